#include "tarn/filters/OrbVideoBuffer.h"

#include <utility>

#include "orb/CLockedDataReference.h"
#include "orb/CMemoryDataReference.h"
#include "orb/CMpeg4AvcDataReference.h"
#include "orb/CMpeg4AvcProperties.h"
#include "spar/zBuffer.h"
#include "spar/zMemory.h"
#include "spar/zRecord.h"

using namespace Quillon::Orb;

namespace {

constexpr int kH264CodecFormat = 7;

RObject<CMpeg4AvcProperties> avc_properties_of(CVideoCompressor* compressor) {
    if (!compressor) return nullptr;
    const RObject<CVideoProperties> properties(compressor->GetOutputProperties(0));
    RObject<CDecoderSpecificProperties> extension;
    if (properties) extension = properties->GetExtension('h264');
    if (!extension || !extension->IsType(CMpeg4AvcProperties::kType)) return nullptr;
    return RObject<CMpeg4AvcProperties>(static_cast<CMpeg4AvcProperties*>(extension.Detach()));
}

int length_size_of(const CMpeg4AvcProperties& properties) {
    constexpr int kUsual = 4;
    const RObject<CMpeg4AvcDecoderConfiguration> configuration(
        properties.GetDecoderConfiguration());
    return configuration ? configuration->GetNalUnitLengthSize() : kUsual;
}

}  // namespace

OrbVideoBuffer::OrbVideoBuffer(RObject<CVideoSample>& sample, RObject<CVideoCompressor>& compressor,
                               zBuffer& description, long long time)
    : fSample(sample),
      fCompressor(compressor),
      fDecoderDescription(&description),
      fIsKeyFrame(sample->GetPictureType() == CVideoSample::kKeyPicture),
      fPictureType(sample->GetPictureType()),
      fCanDrop(sample->GetPictureType() == CVideoSample::kDisposablePicture),
      fTime(time),
      fCompositionTime(time + sample->GetCompositionOffset()),
      fCompositionOffset(sample->GetCompositionOffset()) {}

OrbVideoBuffer::~OrbVideoBuffer() {
    delete[] fData;
    delete fFrameMetaData;
}

unsigned int OrbVideoBuffer::DataSize() {
    return fDataSize.load(std::memory_order_relaxed);
}

bool OrbVideoBuffer::IsKeyFrame() const {
    return fIsKeyFrame;
}

bool OrbVideoBuffer::CanDropBuffer() const {
    return fCanDrop;
}

unsigned int OrbVideoBuffer::Duration() const {
    return fDuration;
}

double OrbVideoBuffer::BufferTimeInMilliseconds() const {
    return fBufferTimeMs;
}

int OrbVideoBuffer::GetDecoderDescription(zBuffer& out) {
    out.SetData(fDecoderDescription->Data(), fDecoderDescription->Size(), false);
    return 0;
}

int OrbVideoBuffer::VideoCodecFormat() const {
    return kH264CodecFormat;
}

zRecord* OrbVideoBuffer::FrameMetaData() const {
    return fFrameMetaData;
}

int OrbVideoBuffer::DisplayOffsetRelativeToDuration() const {
    return fDisplayOffset;
}

void OrbVideoBuffer::Print() {}

int OrbVideoBuffer::DisplayOffsetInMilliseconds() const {
    return fDisplayOffsetMs;
}

CVideoProperties* OrbVideoBuffer::OrbVideoProperties() {
    return fCompressor ? fCompressor->GetOutputProperties(0) : nullptr;
}

CVideoSample* OrbVideoBuffer::OrbVideoSample() {
    return RObject<CVideoSample>(fSample).Detach();
}

int OrbVideoBuffer::InitializeData(unsigned int pad) {
    RObject<CMemoryDataReference> memory(fSample->GetDataReference<CMemoryDataReference>());
    const RObject<CMpeg4AvcDataReference> avc(fSample->GetDataReference<CMpeg4AvcDataReference>());
    Result status = ResultError();
    if (avc) status = render_padded(pad, *avc, memory);
    if (status.Failed() && avc) return -1;
    if (memory && take_size(*memory)) status = ResultOK();
    return status.Failed() ? -1 : 0;
}

bool OrbVideoBuffer::take_size(CMemoryDataReference& memory) {
    const RObject<CLockedDataReference> bytes(
        new CLockedDataReference(&memory, CDataReference::kReadWrite));
    if (!bytes || !bytes->GetData() || bytes->GetLength() == 0) return false;
    fDataSize.store(static_cast<unsigned int>(bytes->GetLength()), std::memory_order_relaxed);
    return true;
}

Result OrbVideoBuffer::render_padded(unsigned int pad, CMpeg4AvcDataReference& avc,
                                     RObject<CMemoryDataReference>& memory) {
    memory.Clear();
    const RObject<CMpeg4AvcProperties> properties = avc_properties_of(fCompressor.Get());
    if (!properties) return ResultFalse();
    if (pad != 0) {
        const RObject<CMpeg4AvcAccessUnit> unit(avc.GetAccessUnit());
        const int lacking =
            unit ? static_cast<int>(pad) - unit->GetLength(length_size_of(*properties)) : 0;
        if (lacking > 0) unit->AddFillerData(lacking);
    }
    return avc.ToDataReference('avc1', properties.Get(), memory.Receive());
}

const unsigned char* OrbVideoBuffer::Data() {
    const zMutexLock lock(fDataMutex);
    if (!fData) render_avc();
    if (!fData) {
        take_bytes(
            RObject<CMemoryDataReference>(fSample->GetDataReference<CMemoryDataReference>()).Get());
    }
    return fData;
}

void OrbVideoBuffer::render_avc() {
    const RObject<CMpeg4AvcDataReference> avc(fSample->GetDataReference<CMpeg4AvcDataReference>());
    if (!avc) return;
    const RObject<CMpeg4AvcProperties> properties = avc_properties_of(fCompressor.Get());
    if (!properties) return;
    const RObject<CMpeg4AvcDecoderConfiguration> configuration(
        properties->GetDecoderConfiguration());
    if (!configuration) return;
    RObject<CMemoryDataReference> memory;
    if (avc->ToDataReference('avc1', properties.Get(), memory.Receive()).Succeeded()) {
        take_bytes(memory.Get());
    }
}

void OrbVideoBuffer::take_bytes(CMemoryDataReference* memory) {
    if (!memory) return;
    const RObject<CLockedDataReference> bytes(
        new CLockedDataReference(memory, CDataReference::kReadWrite));
    if (!bytes || !bytes->GetData() || bytes->GetLength() == 0) return;
    const auto size = static_cast<unsigned int>(bytes->GetLength());
    fData = new unsigned char[size];
    fDataSize.store(size, std::memory_order_relaxed);
    zCopyMemory(bytes->GetData(), fData, size);
}
