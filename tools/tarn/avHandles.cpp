#include "avHandles.h"

#include <filesystem>
#include <system_error>

void QuietenAv() {
    av_log_set_level(AV_LOG_PANIC);
}

std::string AvUrl(const std::string& path) {
    std::error_code unknown;
    return std::filesystem::exists(path, unknown) ? "file:" + path : path;
}

std::string AvErrorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}
