#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tools/tarn/SleepOption.h"

// A failure changes nothing and says why in a line; a success is within its bounds and reads again.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    tnSleeper::Configuration read{tnSleeper::kSleepNone, -7, -8};
    std::string error;
    if (!ParseSleep(text, read, error)) {
        const bool same = read.injectionPoint == tnSleeper::kSleepNone && read.minimum == -7 &&
                          read.maximum == -8;
        if (!same || error.empty()) std::abort();
        return 0;
    }
    for (const long long length : {read.minimum, read.maximum}) {
        if (length < 0 || length > 60'000) std::abort();
    }
    const char* point =
        read.injectionPoint == tnSleeper::kSleepRenderer ? "renderer:" : "decompressor:";
    tnSleeper::Configuration again{};
    if (!ParseSleep(point + std::to_string(read.minimum) + "-" + std::to_string(read.maximum),
                    again, error)) {
        std::abort();
    }
    const bool equal = again.injectionPoint == read.injectionPoint &&
                       again.minimum == read.minimum && again.maximum == read.maximum;
    if (!equal) std::abort();
    return 0;
}
