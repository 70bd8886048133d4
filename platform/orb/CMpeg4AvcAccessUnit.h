#pragma once

#include <vector>

#include "orb/CByteArray.h"
#include "orb/CObject.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// The NAL units of one coded H.264 picture. One thread at a time changes it.
class ORB_API CMpeg4AvcAccessUnit : public CObject {
public:
    static constexpr unsigned int kType = 'avau';

    /// NAL unit types that this code speaks of.
    enum NalType {
        kNalSlice = 1,
        kNalIdrSlice = 5,
        kNalSei = 6,
        kNalSequenceSet = 7,
        kNalPictureSet = 8,
        kNalDelimiter = 9,
        kNalEndOfSequence = 10,
        kNalEndOfStream = 11,
        kNalFiller = 12,
        kNalSequenceSetExtension = 13,
    };

    CMpeg4AvcAccessUnit();

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    /// Reads NAL units behind start codes of three or four bytes. The array is shared, not copied.
    /// ResultInvalidArgument, with the unit unchanged, where there is none.
    Result ParseAnnexB(CByteArray* bytes);
    /// Reads NAL units behind length fields of 1, 2, 3 or 4 bytes, and keeps that size for
    /// AddFillerData. Failures as above; a length past the end is one.
    Result ParseLengthPrefixed(CByteArray* bytes, int nalLengthSize);

    int GetNalCount() const noexcept { return static_cast<int>(fNals.size()); }
    /// NAL unit type of the `index`th unit, 0 for an index out of range.
    int GetNalType(int index) const noexcept;
    /// True when a slice of an IDR picture is in it.
    bool IsKeyFrame() const noexcept;
    /// Takes the units of this type out; the number of those that went.
    int RemoveNalUnits(int nalType) noexcept;

    /// Bytes of the unit when each NAL unit stands behind a length field of so many bytes.
    int GetLength(int nalLengthSize) const noexcept;

    /// Makes the unit longer by exactly `bytes`, counted with the length field that it was parsed
    /// with, or 4 bytes. Decoders skip what is added.
    ///
    /// 0 bytes change nothing. The least that a new filler NAL unit takes is its length field and
    /// two bytes; a unit that ends in filler already can grow by any number. What cannot be done
    /// exactly is not done at all: ResultNotSupported; a negative number: ResultInvalidArgument.
    Result AddFillerData(int bytes);

    /// The bytes behind length fields of 1 to 4 bytes. ResultInvalidArgument for another size or a
    /// NAL unit too long for it.
    Result RenderLengthPrefixed(int nalLengthSize, RObject<CByteArray>& bytes) const;
    /// The bytes behind start codes of four bytes.
    Result RenderAnnexB(RObject<CByteArray>& bytes) const;

private:
    /// A NAL unit in fBytes, or with an offset of -1 one of filler that exists only as its length.
    struct Nal {
        long long offset;
        int length;
    };

    const unsigned char* bytes_of(const Nal& nal) const noexcept;
    int type_of(const Nal& nal) const noexcept;
    static unsigned char* write_nal(unsigned char* out, const unsigned char* bytes, int length);

    RObject<CByteArray> fBytes;
    std::vector<Nal> fNals;
    int fNalLengthSize = 4;
};

}  // namespace Quillon::Orb
