#include "addons/support/MediaItem.h"

#include <cmath>
#include <utility>

#include "orb/CVideoSample.h"
#include "tarn/filters/OrbVideoBuffer.h"

using namespace Quillon::Orb;

namespace {

constexpr double kMsPerSecond = 1000.0;

std::shared_ptr<TrackFormat> format_of(tnFilter& filter) {
    auto format = std::make_shared<TrackFormat>();
    format->input = filter.InputFormat();
    format->output = filter.OutputFormat();
    format->decoderInfo = filter.DecoderInfo();
    return format;
}

long long offset_of(tnVideoCompressor::EncodedBuffer& buffer, OrbVideoBuffer* orb) {
    // The media library's own offset counts from the picture's time; the one that every buffer has
    // counts from the sum of durations, which is the same while times are regular.
    if (!orb) return buffer.DisplayOffsetRelativeToDuration();
    const RObject<CVideoSample> sample(orb->OrbVideoSample());
    return sample ? sample->GetCompositionOffset() : 0;
}

}  // namespace

double MediaItem::TicksPerMs() const {
    const long long scale = format ? format->output.AsInt64('tmsc', 0) : 0;
    return scale > 0 ? static_cast<double>(scale) / kMsPerSecond : 1.0;
}

MediaItem MakePicture(const std::shared_ptr<tnFilter>& filter,
                      std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer,
                      std::shared_ptr<const TrackFormat>& format, bool again) {
    auto* const orb = dynamic_cast<OrbVideoBuffer*>(buffer.get());
    if (filter && (!format || again)) {
        const std::shared_ptr<TrackFormat> made = format_of(*filter);
        if (orb) made->picture = orb->OrbVideoProperties();
        format = made;
    }
    MediaItem item;
    item.format = format;
    item.isKey = buffer->IsKeyFrame();
    item.offsetTicks = offset_of(*buffer, orb);
    const double decodeMs = buffer->BufferTimeInMilliseconds();
    const double ticksPerMs = item.TicksPerMs();
    item.decodeMs = decodeMs;
    item.decodeTicks = std::llround(decodeMs * ticksPerMs);
    item.startMs = decodeMs + static_cast<double>(item.offsetTicks) / ticksPerMs;
    item.endMs = item.startMs + buffer->Duration() / ticksPerMs;
    item.hasHostTime = buffer->fSyncTime != -1;
    item.hostShiftMs = static_cast<double>(buffer->fSyncTime) - decodeMs;
    item.bytes = buffer->DataSize();
    item.picture = std::move(buffer);
    return item;
}

MediaItem MakeSound(const std::shared_ptr<tnFilter>& filter,
                    std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer,
                    std::shared_ptr<const TrackFormat>& format) {
    if (filter && !format) {
        const std::shared_ptr<TrackFormat> made = format_of(*filter);
        if (auto* const encoder = dynamic_cast<tnAudioCompressor*>(filter.get())) {
            made->framesPerPacket = encoder->FramesPerPacket();
        }
        format = made;
    }
    MediaItem item;
    item.format = format;
    item.isKey = true;
    const int packets = buffer->PacketCount();
    for (int i = 0; i < packets; ++i) item.bytes += buffer->PacketSize(i);
    item.startMs = buffer->Timestamp(0);
    item.endMs = buffer->Timestamp(packets - 1) + buffer->DurationMilli(packets - 1);
    item.hasHostTime = buffer->fTimestamps[0] >= 0;
    item.hostShiftMs = static_cast<double>(buffer->fTimestamps[0]) - item.startMs;
    item.sound = std::move(buffer);
    return item;
}
