#pragma once

#include <atomic>

#include "orb/CVideoCompressor.h"
#include "orb/RObject.h"
#include "spar/zMutex.h"
#include "tarn/filters/tnVideoCompressor.h"

namespace Quillon::Orb {
class CMemoryDataReference;
class CMpeg4AvcDataReference;
}  // namespace Quillon::Orb

/// One encoded picture as the media library's sample, with the times that the compressor worked
/// out. It becomes bytes when somebody asks: many observers pass the sample on and never want them.
///
/// H.264 comes as movie files store it, a length field in front of each NAL unit; the parameter
/// sets are in the decoder description. Observers see the buffer when its times are complete, from
/// any number of threads; it may outlive its compressor, but for GetDecoderDescription.
class TARN_API OrbVideoBuffer : public tnVideoCompressor::EncodedBuffer {
public:
    /// Shares both objects. `description` stays the compressor's. `time`, in ticks, is that of the
    /// frame whose place in the encoder's input the picture has in its output.
    OrbVideoBuffer(Quillon::Orb::RObject<Quillon::Orb::CVideoSample>& sample,
                   Quillon::Orb::RObject<Quillon::Orb::CVideoCompressor>& compressor,
                   zBuffer& description, long long time);
    ~OrbVideoBuffer() override;

    /// Made at the first call, and the same from then on; null where the sample has no bytes.
    const unsigned char* Data() override;
    unsigned int DataSize() override;
    bool IsKeyFrame() const override;
    bool CanDropBuffer() const override;
    unsigned int Duration() const override;
    double BufferTimeInMilliseconds() const override;
    /// Refers to the compressor's bytes, so only while that lives. H.264 alone has a description.
    int GetDecoderDescription(zBuffer& out) override;
    /// The code by which observers know H.264 among the buffers of add-ons.
    int VideoCodecFormat() const override;
    zRecord* FrameMetaData() const override;
    int DisplayOffsetRelativeToDuration() const override;
    void Print() override;
    int DisplayOffsetInMilliseconds() const override;

    /// What the encoder says of its stream, with a reference for the caller; null without encoder.
    virtual Quillon::Orb::CVideoProperties* OrbVideoProperties();
    /// The sample, with a reference for the caller. Its own time is not the buffer's.
    virtual Quillon::Orb::CVideoSample* OrbVideoSample();

    /// Once, by the compressor before delivery: fixes the size, after filling an H.264 unit up to
    /// `pad` bytes. -1 where there are no data or their rendering failed; 0 may leave the size 0.
    /// Filler comes in NAL units of at least two bytes behind their length field, so a unit that
    /// lacks less stays as it is.
    virtual int InitializeData(unsigned int pad);

protected:
    friend class tnOrbVideoCompressor;

    Quillon::Orb::Result render_padded(
        unsigned int pad, Quillon::Orb::CMpeg4AvcDataReference& avc,
        Quillon::Orb::RObject<Quillon::Orb::CMemoryDataReference>& memory);
    /// False, and the size as it was, for no bytes.
    bool take_size(Quillon::Orb::CMemoryDataReference& memory);
    void render_avc() SPAR_REQUIRES(fDataMutex);
    void take_bytes(Quillon::Orb::CMemoryDataReference* memory) SPAR_REQUIRES(fDataMutex);

    // the compressor's thread until delivery, then only read
    long long fDecodeTime = 0;  // ticks
    double fBufferTimeMs = 0.0;
    int fDisplayOffset = 0;  // ticks
    int fDisplayOffsetMs = 0;
    bool fIrregularTiming = false;  // the duration is the nominal one
    const Quillon::Orb::RObject<Quillon::Orb::CVideoSample> fSample;
    const Quillon::Orb::RObject<Quillon::Orb::CVideoCompressor> fCompressor;

    unsigned char* fData SPAR_GUARDED_BY(fDataMutex) = nullptr;
    std::atomic<unsigned int> fDataSize{0};

    zBuffer* const fDecoderDescription;  // the compressor's
    const bool fIsKeyFrame;
    unsigned int fDuration = 0;  // ticks
    zRecord* fFrameMetaData = nullptr;
    const int fPictureType;
    const bool fCanDrop;
    const long long fTime;               // ticks, from the compressor's queue
    const long long fCompositionTime;    // ticks: when it is shown
    const long long fCompositionOffset;  // ticks from fTime to fCompositionTime

    zMutex fDataMutex;
};
