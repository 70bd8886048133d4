#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tarn/foundation/tnTarn.h"

#include "tools/tarn/live/Show.h"

// A show out of any bytes: what is taken is whole, what is refused is refused in one line.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool named = (tnTarn::string_defines(), true);
    if (!named) std::abort();
    const std::string text(reinterpret_cast<const char*>(data), size);
    Show show;
    std::string error;
    if (!ReadShowText(text, "show", show, error)) {
        if (error.empty() || !show.outputs.empty()) std::abort();
        return 0;
    }
    if (show.sources.empty() || show.outputs.empty()) std::abort();
    for (const ShowOutput& output : show.outputs) {
        if (!show.FindSource(output.source) || output.name.empty()) std::abort();
    }
    for (const ShowSource& source : show.sources) {
        if (source.clip.empty() && !(source.rate.PerSecond() > 0)) std::abort();
    }
    return 0;
}
