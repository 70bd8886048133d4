#include "spar/zTime.h"

#include <time.h>

long long zTime::MicroNow() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000LL + now.tv_nsec / 1000;
}

long long zTime::SecondsSince1970() {
    return time(nullptr);
}
