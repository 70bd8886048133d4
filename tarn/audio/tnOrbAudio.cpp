#include "tarn/audio/tnOrbAudio.h"

#include "orb/CAudioSample.h"
#include "orb/CBufferDataReference.h"
#include "orb/CByteArray.h"
#include "orb/CContainerReaderAudioProperties.h"
#include "tarn/foundation/tnMediaRecord.h"

using namespace Quillon::Orb;

int OrbAudioPropertiesFromMediaRecord(const tnMediaRecord& record,
                                      RObject<CAudioProperties>& properties) {
    properties = new CContainerReaderAudioProperties(nullptr);
    const int bits = record.fBitsPerSample.AsInt32('mbps');
    if (!properties || (bits != 16 && bits != 32)) {
        return -1;
    }
    const int channels = record.fChannels.AsInt32(0);
    properties->SetFormat(bits == 16 ? 'sowt' : CAudioProperties::kFloat32Little);
    properties->SetChannels(channels);
    properties->SetFramesPerPacket(1);
    // Unsigned: a nonsense number of channels wraps to a nonsense size, never a trap.
    properties->SetBytesPerPacket(static_cast<int>(static_cast<unsigned int>(channels) *
                                                   static_cast<unsigned int>(bits / 8)));
    properties->SetSampleRate(record.fSampleRate.AsInt32(0));
    properties->SetBitsPerSample(bits);
    return 0;
}

// By value: the sample is kept alive by a reference of this call's own.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
Result ORB_SetAudioSampleData(RObject<CAudioSample> sample, unsigned char* data, int length,
                              bool copy) {
    const RObject<CByteArray> bytes(copy ? new CByteArray(data, length)
                                         : new CByteArray(length, data, nullptr));
    const RObject<CBufferDataReference> reference(new CBufferDataReference(bytes.Get()));
    return sample->SetDataReference(reference.Get());
}
