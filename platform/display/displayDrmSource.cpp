#include "display/displayDrmSource.h"

#include <string>
#include <utility>

namespace {

displayRefreshRate rate_of(const displayDrmMode& mode) {
    long long pixels = static_cast<long long>(mode.horizontalTotal) * mode.verticalTotal;
    pixels *= mode.verticalScan;
    if (mode.doubleScan) pixels *= 2;
    long long pixelsPerSecond = static_cast<long long>(mode.pixelClockKhz) * 1000;
    // A blank a field: two to the frame that the totals describe.
    if (mode.interlaced) pixelsPerSecond *= 2;
    return displayRefreshRate::OfMode(pixelsPerSecond, pixels);
}

}  // namespace

std::unique_ptr<displayRefreshSource> displayDrmSource::ForFirstActiveDisplay() {
    constexpr int kMostCards = 16;
    for (int card = 0; card < kMostCards; ++card) {
        auto opened = displayDrmCard::Open(("/dev/dri/card" + std::to_string(card)).c_str());
        if (!opened) continue;
        if (auto source = ForCard(std::move(opened))) return source;
    }
    return nullptr;
}

std::unique_ptr<displayRefreshSource> displayDrmSource::ForCard(
    std::unique_ptr<displayDrmCard> card) {
    for (int pipe = 0; pipe < card->PipeCount(); ++pipe) {
        displayDrmMode mode{};
        if (!card->ActiveMode(pipe, mode)) continue;
        // Virtual cards show a picture and count no blanks.
        unsigned int sequence = 0;
        long long realTime = 0;
        if (!card->WaitForVblank(pipe, 0, sequence, realTime)) continue;
        return std::make_unique<displayDrmSource>(std::move(card), pipe, mode);
    }
    return nullptr;
}

displayDrmSource::displayDrmSource(std::unique_ptr<displayDrmCard> card, int pipe,
                                   const displayDrmMode& mode)
    : fCard(std::move(card)), fPipe(pipe), fRate(rate_of(mode)) {}

displayRefreshRate displayDrmSource::Rate() const {
    return fRate;
}

bool displayDrmSource::WaitForRefresh(displayRefresh& refresh) {
    unsigned int sequence = 0;
    long long realTime = 0;
    if (!fCard->WaitForVblank(fPipe, 1, sequence, realTime)) return false;
    // The difference to the low half of what we know is right across the wrap.
    fCount = fCount < 0 ? sequence
                        : fCount + static_cast<int>(sequence - static_cast<unsigned int>(fCount));
    refresh = fRate.At(fCount, realTime);
    return true;
}
