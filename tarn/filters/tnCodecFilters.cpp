#include "tarn/filters/tnCodecFilters.h"

#include <memory>

#include "tarn/filters/tnAacAudioCompressor.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/filters/tnMjpegVideoCompressor.h"
#include "tarn/filters/tnNvencVideoCompressor.h"
#include "tarn/filters/tnOrbProResVideoCompressor.h"
#include "tarn/filters/tnPcmAudioFilter.h"
#include "tarn/filters/tnX264VideoCompressor.h"

namespace {

/// A filter that ends by its own count, as any holder of the interface expects.
template <typename Filter>
std::shared_ptr<tnFilter> make() {
    return std::shared_ptr<tnFilter>(new Filter(), [](tnFilter* filter) { filter->Release(); });
}

}  // namespace

void tnCodecFilters::Register(tnFilterManager& manager) {
    manager.RegisterFactory(kX264, make<tnX264VideoCompressor>);
    manager.RegisterFactory(kPlatformH264, make<tnPlatformVideoCompressor>);
    manager.RegisterFactory(kNvencH264, make<tnNvencVideoCompressor>);
    manager.RegisterFactory(kProRes, make<tnOrbProResVideoCompressor>);
    manager.RegisterFactory(kMotionJpeg, make<tnMjpegVideoCompressor>);
    manager.RegisterFactory(kAac, make<tnAacAudioCompressor>);
    manager.RegisterFactory(kPcm, make<tnPcmAudioFilter>);
}
