#include "orb/CMpeg4AvcDecoderConfiguration.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "orb/CMpeg4AvcAccessUnit.h"
#include "orb/annexB.h"

namespace Quillon::Orb {

namespace {

using NalUnit = CMpeg4AvcDecoderConfiguration::NalUnit;

constexpr std::size_t kMostSequenceSets = 31;
constexpr std::size_t kMostPictureSets = 255;
constexpr std::size_t kLongestSet = 0xFFFF;
constexpr int kVersion = 1;

/// Reads an avcC record; past the end it gives zeros and remembers.
class RecordReader {
public:
    RecordReader(const unsigned char* data, int length) : fNext(data), fEnd(data + length) {}

    int Byte() { return fNext < fEnd ? *fNext++ : (fCut = true, 0); }
    /// `count` parameter sets, each behind a length of two bytes.
    void Sets(int count, std::vector<NalUnit>& sets) {
        while (count-- > 0 && !fCut) {
            int length = Byte() << 8;
            length |= Byte();
            if (length == 0 || length > fEnd - fNext) {
                fCut = true;
                return;
            }
            sets.emplace_back(fNext, fNext + length);
            fNext += length;
        }
    }
    bool IsCut() const { return fCut; }
    long long Left() const { return fEnd - fNext; }

private:
    const unsigned char* fNext;
    const unsigned char* fEnd;
    bool fCut = false;
};

/// Reads the bits of a NAL unit without the bytes that keep start codes out of it.
class BitReader {
public:
    explicit BitReader(const NalUnit& unit) : fUnit(unit) {}

    unsigned Bits(int count) {
        unsigned value = 0;
        while (count-- > 0) value = value << 1 | bit();
        return value;
    }
    /// An unsigned Exp-Golomb number.
    unsigned Golomb() {
        int zeros = 0;
        while (zeros < 31 && !fCut && bit() == 0) ++zeros;
        return (1U << zeros) - 1 + Bits(zeros);
    }
    bool IsCut() const { return fCut; }

private:
    unsigned bit() {
        if (fLeft == 0) {
            if (fAt >= 2 && fAt < fUnit.size() && fUnit[fAt] == 3 && fUnit[fAt - 1] == 0 &&
                fUnit[fAt - 2] == 0) {
                ++fAt;
            }
            if (fAt >= fUnit.size()) {
                fCut = true;
                return 0;
            }
            fByte = fUnit[fAt++];
            fLeft = 8;
        }
        return fByte >> --fLeft & 1U;
    }

    const NalUnit& fUnit;
    std::size_t fAt = 0;
    unsigned fByte = 0;
    int fLeft = 0;
    bool fCut = false;
};

/// Profiles whose record ends after the picture sets: chroma and depth go without saying.
bool is_plain_profile(int profile) {
    return profile == 66 || profile == 77 || profile == 88;
}

void add_once(std::vector<NalUnit>& sets, const unsigned char* unit, std::size_t length) {
    NalUnit set(unit, unit + length);
    if (std::find(sets.begin(), sets.end(), set) == sets.end()) sets.push_back(std::move(set));
}

void put_sets(NalUnit& out, const std::vector<NalUnit>& sets) {
    for (const NalUnit& set : sets) {
        out.push_back(static_cast<unsigned char>(set.size() >> 8));
        out.push_back(static_cast<unsigned char>(set.size()));
        out.insert(out.end(), set.begin(), set.end());
    }
}

bool are_short(const std::vector<NalUnit>& sets) {
    return std::all_of(sets.begin(), sets.end(),
                       [](const NalUnit& set) { return set.size() <= kLongestSet; });
}

}  // namespace

CMpeg4AvcDecoderConfiguration::CMpeg4AvcDecoderConfiguration() : CObject(kType, nullptr) {}

Result CMpeg4AvcDecoderConfiguration::Parse(const unsigned char* data, int length) {
    if (!data) return ResultNullPointer();
    RecordReader reader(data, length);
    if (reader.Byte() != kVersion) return ResultInvalidArgument("not an avcC record");
    const int profile = reader.Byte();
    const int compatibility = reader.Byte();
    const int level = reader.Byte();
    const int lengthSize = (reader.Byte() & 3) + 1;
    std::vector<NalUnit> sequenceSets;
    std::vector<NalUnit> pictureSets;
    std::vector<NalUnit> extensions;
    reader.Sets(reader.Byte() & 31, sequenceSets);
    reader.Sets(reader.Byte(), pictureSets);
    if (reader.IsCut() || lengthSize == 3) return ResultInvalidArgument("a broken avcC record");
    int chromaFormat = 1;
    int lumaBits = 8;
    int chromaBits = 8;
    // Old writers leave the tail out also where the profile wants it.
    if (!is_plain_profile(profile) && reader.Left() >= 4) {
        chromaFormat = reader.Byte() & 3;
        lumaBits = 8 + (reader.Byte() & 7);
        chromaBits = 8 + (reader.Byte() & 7);
        reader.Sets(reader.Byte(), extensions);
        if (reader.IsCut()) return ResultInvalidArgument("a broken avcC record");
    }
    fProfile = profile;
    fCompatibility = compatibility;
    fLevel = level;
    fNalUnitLengthSize = lengthSize;
    fChromaFormat = chromaFormat;
    fLumaBits = lumaBits;
    fChromaBits = chromaBits;
    fSequenceSets = std::move(sequenceSets);
    fPictureSets = std::move(pictureSets);
    fSequenceExtensions = std::move(extensions);
    return 0;
}

Result CMpeg4AvcDecoderConfiguration::take_sequence_set(const NalUnit& unit) {
    BitReader reader(unit);
    reader.Bits(8);
    const unsigned profile = reader.Bits(8);
    const unsigned compatibility = reader.Bits(8);
    const unsigned level = reader.Bits(8);
    reader.Golomb();
    unsigned chromaFormat = 1;
    unsigned lumaExtra = 0;
    unsigned chromaExtra = 0;
    if (!is_plain_profile(static_cast<int>(profile))) {
        chromaFormat = reader.Golomb();
        if (chromaFormat == 3) reader.Bits(1);
        lumaExtra = reader.Golomb();
        chromaExtra = reader.Golomb();
    }
    if (reader.IsCut() || chromaFormat > 3 || lumaExtra > 6 || chromaExtra > 6) {
        return ResultInvalidArgument("a broken sequence parameter set");
    }
    fProfile = static_cast<int>(profile);
    fCompatibility = static_cast<int>(compatibility);
    fLevel = static_cast<int>(level);
    fChromaFormat = static_cast<int>(chromaFormat);
    fLumaBits = 8 + static_cast<int>(lumaExtra);
    fChromaBits = 8 + static_cast<int>(chromaExtra);
    return 0;
}

Result CMpeg4AvcDecoderConfiguration::ParseAnnexB(const unsigned char* data, int length) {
    if (!data || length <= 0) return ResultInvalidArgument("no parameter sets");
    std::vector<NalUnit> sequenceSets;
    std::vector<NalUnit> pictureSets;
    std::vector<NalUnit> extensions;
    AnnexBReader reader(data, static_cast<std::size_t>(length));
    const unsigned char* unit = nullptr;
    std::size_t size = 0;
    while (reader.Next(unit, size)) {
        const int type = unit[0] & 0x1F;
        if (type == CMpeg4AvcAccessUnit::kNalSequenceSet) add_once(sequenceSets, unit, size);
        if (type == CMpeg4AvcAccessUnit::kNalPictureSet) add_once(pictureSets, unit, size);
        if (type == CMpeg4AvcAccessUnit::kNalSequenceSetExtension) add_once(extensions, unit, size);
    }
    if (sequenceSets.empty() || pictureSets.empty()) {
        return ResultInvalidArgument("no sequence and picture parameter set");
    }
    if (sequenceSets.size() > kMostSequenceSets || pictureSets.size() > kMostPictureSets ||
        !are_short(sequenceSets) || !are_short(pictureSets) || !are_short(extensions)) {
        return ResultInvalidArgument("parameter sets that no avcC record holds");
    }
    Result result = take_sequence_set(sequenceSets.front());
    if (result.Failed()) return result;
    fSequenceSets = std::move(sequenceSets);
    fPictureSets = std::move(pictureSets);
    fSequenceExtensions = std::move(extensions);
    return 0;
}

Result CMpeg4AvcDecoderConfiguration::Render(RObject<CByteArray>& record) const {
    NalUnit out{kVersion,
                static_cast<unsigned char>(fProfile),
                static_cast<unsigned char>(fCompatibility),
                static_cast<unsigned char>(fLevel),
                static_cast<unsigned char>(0xFC | (fNalUnitLengthSize - 1)),
                static_cast<unsigned char>(0xE0 | fSequenceSets.size())};
    put_sets(out, fSequenceSets);
    out.push_back(static_cast<unsigned char>(fPictureSets.size()));
    put_sets(out, fPictureSets);
    if (!is_plain_profile(fProfile)) {
        out.push_back(static_cast<unsigned char>(0xFC | fChromaFormat));
        out.push_back(static_cast<unsigned char>(0xF8 | (fLumaBits - 8)));
        out.push_back(static_cast<unsigned char>(0xF8 | (fChromaBits - 8)));
        out.push_back(static_cast<unsigned char>(fSequenceExtensions.size()));
        put_sets(out, fSequenceExtensions);
    }
    record = new CByteArray(out.data(), static_cast<int>(out.size()));
    if (!record || record->GetLength() == 0) return ResultOutOfMemory();
    return 0;
}

Result CMpeg4AvcDecoderConfiguration::SetNalUnitLengthSize(int size) {
    if (size != 1 && size != 2 && size != 4) {
        return ResultInvalidArgument("a NAL length of %d bytes", size);
    }
    fNalUnitLengthSize = size;
    return 0;
}

}  // namespace Quillon::Orb
