#include "codecQualities.h"

const std::vector<std::string>* QualitiesOf(const std::string& codec) {
    struct Row {
        const char* codec;
        std::vector<std::string> qualities;
    };
    static const Row rows[] = {
        {"ProRes",
         {"prores_422_proxy", "prores_422_lt", "prores_422", "prores_422_hq", "prores_4444"}},
        {"MJPEG", {"mjpeg_best", "mjpeg_high", "mjpeg_medium", "mjpeg_low"}},
    };
    for (const Row& row : rows) {
        if (codec == row.codec) return &row.qualities;
    }
    return nullptr;
}
