#include "tarn/filters/tnAacAudioBuffer.h"

#include <utility>

#include "orb/CByteArray.h"
#include "orb/CMemoryDataReference.h"

using namespace Quillon::Orb;

tnAacAudioBuffer::tnAacAudioBuffer() = default;

tnAacAudioBuffer::~tnAacAudioBuffer() = default;

void tnAacAudioBuffer::add(RObject<CAudioSample> sample, double timeMs, double durationMs) {
    Packet packet{std::move(sample), nullptr, 0, timeMs, durationMs};
    const RObject<CMemoryDataReference> memory(
        packet.sample->GetDataReference<CMemoryDataReference>());
    const RObject<CByteArray> bytes(memory ? memory->GetByteArray() : nullptr);
    if (bytes) {
        // The sample keeps the bytes.
        packet.data = bytes->GetData();
        packet.size = static_cast<unsigned int>(bytes->GetLength());
    }
    fPackets.push_back(std::move(packet));
}

const tnAacAudioBuffer::Packet* tnAacAudioBuffer::at(int packet) const {
    if (packet < 0 || packet >= PacketCount()) return nullptr;
    return &fPackets[static_cast<std::size_t>(packet)];
}

int tnAacAudioBuffer::CodecType() const {
    return kCodecType;
}

int tnAacAudioBuffer::PacketCount() const {
    return static_cast<int>(fPackets.size());
}

unsigned int tnAacAudioBuffer::PacketSize(int packet) {
    const Packet* found = at(packet);
    return found ? found->size : 0;
}

const unsigned char* tnAacAudioBuffer::PacketData(int packet) {
    const Packet* found = at(packet);
    return found ? found->data : nullptr;
}

CAudioSample* tnAacAudioBuffer::AudioSample(int packet) {
    const Packet* found = at(packet);
    return found ? RObject<CAudioSample>(found->sample).Detach() : nullptr;
}

double tnAacAudioBuffer::Timestamp(int packet) const {
    const Packet* found = at(packet);
    return found ? found->timeMs : -1.0;
}

double tnAacAudioBuffer::DurationMilli(int packet) const {
    const Packet* found = at(packet);
    return found ? found->durationMs : 0.0;
}

unsigned int tnAacAudioBuffer::SampleCount(int packet) {
    const Packet* found = at(packet);
    return found ? static_cast<unsigned int>(found->sample->GetDuration()) : 0;
}
