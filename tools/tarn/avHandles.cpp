#include "avHandles.h"

void QuietenAv() {
    av_log_set_level(AV_LOG_PANIC);
}

std::string AvErrorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}
