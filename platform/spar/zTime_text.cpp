// The wall clock as text.
#include <time.h>

#include "spar/zString.h"
#include "spar/zTime.h"

void zTime::AsTimeString(zString& text, long long secondsSince1970, int form) {
    const time_t seconds = static_cast<time_t>(secondsSince1970);
    tm local;
    char buffer[64];
    const char* format = form == 'shrt' ? "%Y-%m-%d %H:%M:%S" : "%Y-%m-%d %H:%M:%S %z";
    if (localtime_r(&seconds, &local) == nullptr ||
        strftime(buffer, sizeof buffer, format, &local) == 0)
        buffer[0] = 0;
    text = static_cast<const char*>(buffer);
}
