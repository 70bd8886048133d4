#pragma once

#include <vector>

#include "orb/CByteArray.h"
#include "orb/CObject.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// The parameter sets of an H.264 stream and how long the length field before each NAL unit is:
/// what an avcC box holds (ISO/IEC 14496-15). Built once, then only read, by any thread.
class ORB_API CMpeg4AvcDecoderConfiguration : public CObject {
public:
    static constexpr unsigned int kType = 'avcC';
    using NalUnit = std::vector<unsigned char>;  ///< header byte first, no start code, no length

    CMpeg4AvcDecoderConfiguration();

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    /// Reads an avcC record. ResultInvalidArgument for bytes that are none; nothing changes then.
    Result Parse(const unsigned char* data, int length);
    /// Takes the parameter sets out of NAL units behind start codes, as encoders give them out of
    /// band. ResultInvalidArgument without a sequence and a picture parameter set.
    Result ParseAnnexB(const unsigned char* data, int length);
    /// The avcC record.
    Result Render(RObject<CByteArray>& record) const;

    int GetNalUnitLengthSize() const noexcept { return fNalUnitLengthSize; }
    /// 1, 2 or 4; ResultInvalidArgument for the rest.
    Result SetNalUnitLengthSize(int size);

    int GetProfile() const noexcept { return fProfile; }
    int GetCompatibility() const noexcept { return fCompatibility; }
    int GetLevel() const noexcept { return fLevel; }
    const std::vector<NalUnit>& GetSequenceParameterSets() const noexcept { return fSequenceSets; }
    const std::vector<NalUnit>& GetPictureParameterSets() const noexcept { return fPictureSets; }

private:
    Result take_sequence_set(const NalUnit& unit);

    int fNalUnitLengthSize = 4;
    int fProfile = 0;
    int fCompatibility = 0;
    int fLevel = 0;
    int fChromaFormat = 1;
    int fLumaBits = 8;
    int fChromaBits = 8;
    std::vector<NalUnit> fSequenceSets;
    std::vector<NalUnit> fPictureSets;
    std::vector<NalUnit> fSequenceExtensions;
};

}  // namespace Quillon::Orb
