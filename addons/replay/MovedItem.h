#pragma once

#include <cmath>
#include <memory>
#include <utility>

#include "spar/zAsSharedPtr.h"

#include "addons/support/MediaItem.h"

/// A buffer of sound at another time; its packets stay where they are.
class MovedSound final : public tnAudioCompressor::EncodedBuffer {
public:
    MovedSound(std::shared_ptr<tnAudioCompressor::EncodedBuffer> sound, double laterMs)
        : fSound(std::move(sound)), fLaterMs(laterMs) {
        fTimestamps = fSound->fTimestamps;
    }
    int CodecType() const override { return fSound->CodecType(); }
    int PacketCount() const override { return fSound->PacketCount(); }
    unsigned int PacketSize(int packet) override { return fSound->PacketSize(packet); }
    const unsigned char* PacketData(int packet) override { return fSound->PacketData(packet); }
    double Timestamp(int packet) const override { return fSound->Timestamp(packet) + fLaterMs; }
    double DurationMilli(int packet) const override { return fSound->DurationMilli(packet); }
    unsigned int SampleCount(int packet) override { return fSound->SampleCount(packet); }

private:
    const std::shared_ptr<tnAudioCompressor::EncodedBuffer> fSound;
    const double fLaterMs;
};

/// The item so much later on the source's line, and where it was on the host's.
inline MediaItem MovedItem(MediaItem item, double laterMs) {
    if (laterMs == 0) return item;
    item.startMs += laterMs;
    item.endMs += laterMs;
    item.hostShiftMs -= laterMs;
    if (item.sound) {
        auto* const moved = new MovedSound(item.sound, laterMs);
        item.sound = zAsSharedPtr<tnAudioCompressor::EncodedBuffer>(moved);
        moved->Release();
    } else {
        item.decodeMs += laterMs;
        item.decodeTicks += std::llround(laterMs * item.TicksPerMs());
    }
    return item;
}
