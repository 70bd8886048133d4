#include "tarn/iso/tnISOFileLayer.h"

#include <atomic>

#include "spar/zFileStream.h"

namespace {

std::atomic<tnISOFileLayer*> gLayer{nullptr};

}  // namespace

tnISOFileLayer::~tnISOFileLayer() = default;

bool tnISOFileLayer::IsFolder(const std::string& path) {
    return zFileStream::IsFolder(path);
}

long long tnISOFileLayer::SpaceAvailable(const std::string& path) {
    return zFileStream::SpaceAvailable(path);
}

tnISOFileLayer& tnISOFileLayer::Current() {
    static tnISOFileLayer real;
    tnISOFileLayer* layer = gLayer;
    return layer != nullptr ? *layer : real;
}

void tnISOFileLayer::Set(tnISOFileLayer* layer) {
    gLayer = layer;
}
