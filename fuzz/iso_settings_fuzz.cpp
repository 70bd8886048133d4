// Settings of ISO outputs as people write them: every text is taken whole or refused in one line.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "tools/tarn/IsoSettings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    IsoSettings settings;
    std::string error;
    if (!ReadIsoSettingsText(text, "here", settings, error)) {
        if (error.empty() || settings.outputs.HasChildren()) std::abort();
        return 0;
    }
    if (!settings.outputs.HasChildren()) std::abort();
    for (const zRecord* output : settings.outputs.Children()) {
        if (output->AsString('guid', "").empty() || IsoOutputName(*output).empty()) std::abort();
    }
    return 0;
}
