#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/addonHost.h"

// Where a camera's flash and its click stand in a movie file, as a player shows them.

namespace addonTest {

/// Mean brightness of each decoded picture.
inline std::vector<int> Brightness(const std::string& path) {
    const std::string bytes = tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-i", path, "-map",
                                          "0:v:0", "-vf", "scale=1:1:flags=area", "-fps_mode",
                                          "passthrough", "-pix_fmt", "gray", "-f", "rawvideo", "-"})
                                  .out;
    std::vector<int> values;
    for (const char byte : bytes) values.push_back(static_cast<unsigned char>(byte));
    return values;
}

/// Seconds of decoded sound before its first loud sample, as a player hears it; -1 without one.
inline double ClickTime(const std::string& path) {
    const std::string bytes =
        tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-dts_delta_threshold", "100000", "-i",
                    path, "-map", "0:a:0", "-af", "aresample=async=1000", "-ac", "1", "-ar",
                    "48000", "-f", "s16le", "-"})
            .out;
    const auto* samples = reinterpret_cast<const short*>(bytes.data());
    for (std::size_t i = 0; i < bytes.size() / 2; ++i) {
        if (std::abs(samples[i]) > 12000) return static_cast<double>(i) / Camera::kRate;
    }
    return -1;
}

/// Seconds at which the first white picture is shown; -1 without one.
inline double FlashTime(const std::string& path) {
    const std::vector<int> values = Brightness(path);
    const std::vector<double> times = tests::ProbePictureTimes(path);
    for (std::size_t i = 0; i < values.size() && i < times.size(); ++i) {
        if (values[i] > 200) return times[i];
    }
    return -1;
}

}  // namespace addonTest
