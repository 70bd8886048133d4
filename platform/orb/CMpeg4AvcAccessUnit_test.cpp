#include "orb/CMpeg4AvcAccessUnit.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "orb/CMpeg4AvcDataReference.h"
#include "orb/testSupport.h"

namespace Quillon::Orb {
namespace {

using Bytes = std::vector<unsigned char>;

RObject<CMpeg4AvcAccessUnit> annex_b(const Bytes& bytes) {
    RObject<CMpeg4AvcAccessUnit> unit(new CMpeg4AvcAccessUnit());
    EXPECT_EQ(0, unit->ParseAnnexB(bytes_of(bytes).Get()));
    return unit;
}

Bytes rendered(const CMpeg4AvcAccessUnit& unit, int size = 4) {
    RObject<CByteArray> bytes;
    EXPECT_EQ(0, unit.RenderLengthPrefixed(size, bytes));
    EXPECT_EQ(unit.GetLength(size), bytes->GetLength());
    return vector_of(*bytes);
}

// SEI, then an IDR slice, behind start codes of both lengths, with zeros between and behind.
const Bytes kIdr = {0, 0, 0, 1,    0x06, 5,    1, 9, 0x80, 0, 0,
                    0, 0, 1, 0x65, 0x88, 0x84, 0, 0, 3,    1, 0};

TEST(CMpeg4AvcAccessUnit, ParsesStartCodesOfBothLengths) {
    RObject<CMpeg4AvcAccessUnit> unit = annex_b(kIdr);
    ASSERT_EQ(2, unit->GetNalCount());
    EXPECT_EQ(CMpeg4AvcAccessUnit::kNalSei, unit->GetNalType(0));
    EXPECT_EQ(CMpeg4AvcAccessUnit::kNalIdrSlice, unit->GetNalType(1));
    EXPECT_EQ(0, unit->GetNalType(2));
    EXPECT_EQ(0, unit->GetNalType(-1));
    EXPECT_TRUE(unit->IsKeyFrame());
    EXPECT_EQ(5 + 7 + 8, unit->GetLength(4));
    EXPECT_EQ(5 + 7 + 4, unit->GetLength(2));
    EXPECT_EQ((Bytes{0, 5, 0x06, 5, 1, 9, 0x80, 0, 7, 0x65, 0x88, 0x84, 0, 0, 3, 1}),
              rendered(*unit, 2));
    EXPECT_FALSE(annex_b({0, 0, 1, 0x41, 0x9A})->IsKeyFrame());
}

TEST(CMpeg4AvcAccessUnit, ParsesLengthFieldsOfEverySize) {
    const Bytes nals[] = {{0x06, 5, 1, 9, 0x80}, {0x65, 1, 2, 3, 4, 5, 6}};
    for (int size = 1; size <= 4; ++size) {
        Bytes bytes;
        for (const Bytes& nal : nals) {
            for (int i = size - 1; i >= 0; --i) {
                bytes.push_back(static_cast<unsigned char>(i == 0 ? nal.size() : 0));
            }
            bytes.insert(bytes.end(), nal.begin(), nal.end());
        }
        RObject<CMpeg4AvcAccessUnit> unit(new CMpeg4AvcAccessUnit());
        ASSERT_EQ(0, unit->ParseLengthPrefixed(bytes_of(bytes).Get(), size));
        EXPECT_EQ(2, unit->GetNalCount());
        EXPECT_EQ(bytes, rendered(*unit, size));
        // Filler is counted with the size that was parsed.
        const int before = unit->GetLength(size);
        EXPECT_EQ(0, unit->AddFillerData(size + 2));
        EXPECT_EQ(before + size + 2, unit->GetLength(size));
    }
}

TEST(CMpeg4AvcAccessUnit, BrokenBytesChangeNothing) {
    RObject<CMpeg4AvcAccessUnit> unit = annex_b(kIdr);
    const Bytes before = rendered(*unit);
    EXPECT_EQ(ResultNullPointer::kCode, unit->ParseAnnexB(nullptr));
    EXPECT_EQ(ResultNullPointer::kCode, unit->ParseLengthPrefixed(nullptr, 4));
    for (const Bytes& bytes :
         {Bytes{}, Bytes{0, 0, 1}, Bytes{1, 2, 3, 4}, Bytes{0, 0, 1, 0, 0, 1}}) {
        EXPECT_EQ(ResultInvalidArgument::kCode, unit->ParseAnnexB(bytes_of(bytes).Get()));
    }
    for (const Bytes& bytes : {Bytes{}, Bytes{0, 0, 0}, Bytes{0, 0, 0, 2, 1}, Bytes{0, 0, 0, 0},
                               Bytes{255, 255, 255, 255, 1}}) {
        EXPECT_EQ(ResultInvalidArgument::kCode,
                  unit->ParseLengthPrefixed(bytes_of(bytes).Get(), 4));
    }
    EXPECT_EQ(ResultInvalidArgument::kCode, unit->ParseLengthPrefixed(bytes_of(kIdr).Get(), 0));
    EXPECT_EQ(ResultInvalidArgument::kCode, unit->ParseLengthPrefixed(bytes_of(kIdr).Get(), 5));
    EXPECT_EQ(before, rendered(*unit));
}

TEST(CMpeg4AvcAccessUnit, FillerGrowsTheUnitByExactlyThatMuch) {
    for (int bytes = 0; bytes < 300; ++bytes) {
        RObject<CMpeg4AvcAccessUnit> unit = annex_b(kIdr);
        const Bytes before = rendered(*unit);
        const Result result = unit->AddFillerData(bytes);
        if (bytes > 0 && bytes < 6) {
            // Less than a length field and the smallest filler: refused, and nothing changed.
            EXPECT_EQ(ResultNotSupported::kCode, result) << bytes;
            EXPECT_EQ(before, rendered(*unit));
            continue;
        }
        EXPECT_EQ(0, result) << bytes;
        const Bytes after = rendered(*unit);
        ASSERT_EQ(before.size() + static_cast<std::size_t>(bytes), after.size());
        EXPECT_TRUE(std::equal(before.begin(), before.end(), after.begin()));
        if (bytes == 0) continue;
        // length, header, any number of FF, stop bit
        const unsigned char* filler = after.data() + before.size();
        EXPECT_EQ(bytes - 4, filler[2] << 8 | filler[3]);
        EXPECT_EQ(12, filler[4]);
        for (int i = 5; i < bytes - 1; ++i) EXPECT_EQ(0xFF, filler[i]);
        EXPECT_EQ(0x80, filler[bytes - 1]);
    }
}

TEST(CMpeg4AvcAccessUnit, FillerThatIsThereGrowsByAnyNumber) {
    RObject<CMpeg4AvcAccessUnit> unit = annex_b(kIdr);
    const int before = unit->GetLength(4);
    ASSERT_EQ(0, unit->AddFillerData(10));
    for (int bytes = 1; bytes < 8; ++bytes) {
        const int length = unit->GetLength(4);
        EXPECT_EQ(0, unit->AddFillerData(bytes));
        EXPECT_EQ(length + bytes, unit->GetLength(4));
    }
    EXPECT_EQ(3, unit->GetNalCount());
    EXPECT_EQ(before + 10 + 28, unit->GetLength(4));
    // also filler that came with the stream
    RObject<CMpeg4AvcAccessUnit> parsed(new CMpeg4AvcAccessUnit());
    ASSERT_EQ(0, parsed->ParseLengthPrefixed(bytes_of(rendered(*unit)).Get(), 4));
    EXPECT_EQ(0, parsed->AddFillerData(1));
    EXPECT_EQ(0, unit->AddFillerData(1));
    EXPECT_EQ(rendered(*unit), rendered(*parsed));
}

TEST(CMpeg4AvcAccessUnit, FillerStaysInFrontOfTheEndOfASequence) {
    RObject<CMpeg4AvcAccessUnit> unit =
        annex_b({0, 0, 1, 0x65, 1, 2, 0, 0, 1, 0x0A, 0, 0, 1, 0x0B});
    ASSERT_EQ(3, unit->GetNalCount());
    ASSERT_EQ(0, unit->AddFillerData(20));
    EXPECT_EQ(CMpeg4AvcAccessUnit::kNalFiller, unit->GetNalType(1));
    EXPECT_EQ(CMpeg4AvcAccessUnit::kNalEndOfSequence, unit->GetNalType(2));
    EXPECT_EQ(CMpeg4AvcAccessUnit::kNalEndOfStream, unit->GetNalType(3));
}

TEST(CMpeg4AvcAccessUnit, ShortLengthFieldsSplitFiller) {
    // A length of one byte tells of units of 255 bytes at most; every number must still come out.
    for (int bytes = 3; bytes < 1200; ++bytes) {
        RObject<CMpeg4AvcAccessUnit> unit(new CMpeg4AvcAccessUnit());
        ASSERT_EQ(0, unit->ParseLengthPrefixed(bytes_of({3, 0x65, 1, 2}).Get(), 1));
        ASSERT_EQ(0, unit->AddFillerData(bytes)) << bytes;
        ASSERT_EQ(4 + bytes, unit->GetLength(1));
        const Bytes all = rendered(*unit, 1);
        RObject<CMpeg4AvcAccessUnit> again(new CMpeg4AvcAccessUnit());
        ASSERT_EQ(0, again->ParseLengthPrefixed(bytes_of(all).Get(), 1));
        EXPECT_EQ(unit->GetNalCount(), again->GetNalCount());
        const int more = bytes % 7;
        const Result result = unit->AddFillerData(more);
        EXPECT_EQ(4 + bytes + (result.Failed() ? 0 : more), unit->GetLength(1));
    }
}

TEST(CMpeg4AvcAccessUnit, FillerRefusesNonsense) {
    RObject<CMpeg4AvcAccessUnit> unit = annex_b(kIdr);
    EXPECT_EQ(ResultInvalidArgument::kCode, unit->AddFillerData(-1));
    EXPECT_EQ(ResultNotSupported::kCode, unit->AddFillerData(0x7FFFFFFF));
    RObject<CMpeg4AvcAccessUnit> empty(new CMpeg4AvcAccessUnit());
    EXPECT_EQ(ResultNotSupported::kCode, empty->AddFillerData(100));
    EXPECT_EQ(0, empty->GetLength(4));
}

TEST(CMpeg4AvcAccessUnit, RendersStartCodes) {
    RObject<CMpeg4AvcAccessUnit> unit = annex_b({0, 0, 1, 0x65, 1, 2});
    ASSERT_EQ(0, unit->AddFillerData(7));
    RObject<CByteArray> bytes;
    ASSERT_EQ(0, unit->RenderAnnexB(bytes));
    EXPECT_EQ((Bytes{0, 0, 0, 1, 0x65, 1, 2, 0, 0, 0, 1, 0x0C, 0xFF, 0x80}), vector_of(*bytes));
}

TEST(CMpeg4AvcAccessUnit, UnitTooLongForItsLengthFieldIsRefused) {
    Bytes bytes = {0, 0, 1, 0x65};
    bytes.resize(300, 7);
    RObject<CMpeg4AvcAccessUnit> unit = annex_b(bytes);
    RObject<CByteArray> out;
    EXPECT_EQ(ResultInvalidArgument::kCode, unit->RenderLengthPrefixed(1, out));
    EXPECT_EQ(0, unit->RenderLengthPrefixed(2, out));
    EXPECT_EQ(ResultInvalidArgument::kCode, unit->RenderLengthPrefixed(0, out));
}

TEST(CMpeg4AvcAccessUnit, UnitsOfATypeAreTakenOut) {
    RObject<CMpeg4AvcAccessUnit> unit =
        annex_b({0, 0, 1, 0x67, 1, 0, 0, 1, 0x68, 2, 0, 0, 1, 0x65, 3, 0, 0, 1, 0x67, 4});
    EXPECT_EQ(2, unit->RemoveNalUnits(CMpeg4AvcAccessUnit::kNalSequenceSet));
    EXPECT_EQ(1, unit->RemoveNalUnits(CMpeg4AvcAccessUnit::kNalPictureSet));
    EXPECT_EQ(0, unit->RemoveNalUnits(CMpeg4AvcAccessUnit::kNalPictureSet));
    EXPECT_EQ((Bytes{0, 0, 0, 2, 0x65, 3}), rendered(*unit));
}

TEST(CMpeg4AvcAccessUnit, RandomUnitsSurviveBothForms) {
    std::mt19937 random(1);
    for (int round = 0; round < 500; ++round) {
        Bytes stream;
        const int count = 1 + static_cast<int>(random() % 6);
        for (int i = 0; i < count; ++i) {
            if (random() % 2) stream.push_back(0);
            stream.insert(stream.end(), {0, 0, 1});
            // No zero bytes inside: encoders keep start codes out of their units.
            for (unsigned n = 1 + random() % 40; n > 0; --n) {
                stream.push_back(static_cast<unsigned char>(1 + random() % 255));
            }
        }
        RObject<CMpeg4AvcAccessUnit> unit = annex_b(stream);
        ASSERT_EQ(count, unit->GetNalCount());
        RObject<CMpeg4AvcAccessUnit> again(new CMpeg4AvcAccessUnit());
        ASSERT_EQ(0, again->ParseLengthPrefixed(bytes_of(rendered(*unit)).Get(), 4));
        RObject<CByteArray> bytes;
        ASSERT_EQ(0, again->RenderAnnexB(bytes));
        EXPECT_EQ(rendered(*unit), rendered(*annex_b(vector_of(*bytes))));
    }
}

const Bytes kSets = {0, 0, 0, 1, 0x67, 0x64, 0, 0x28, 0xAC, 0xB4, 0, 0, 1, 0x68, 0xEE, 0x3C, 0x80};

TEST(CMpeg4AvcDataReference, RendersAsBytes) {
    RObject<CMpeg4AvcDecoderConfiguration> configuration(new CMpeg4AvcDecoderConfiguration());
    ASSERT_EQ(0, configuration->ParseAnnexB(kSets.data(), static_cast<int>(kSets.size())));
    ASSERT_EQ(0, configuration->SetNalUnitLengthSize(2));
    RObject<CMpeg4AvcProperties> properties(new CMpeg4AvcProperties(configuration.Get()));
    RObject<CMpeg4AvcAccessUnit> unit = annex_b({0, 0, 1, 0x65, 1, 2});
    RObject<CMpeg4AvcDataReference> reference(new CMpeg4AvcDataReference(unit.Get()));
    RObject<CMpeg4AvcAccessUnit> same(reference->GetAccessUnit());
    EXPECT_EQ(unit, same);
    RObject<CMemoryDataReference> memory;
    ASSERT_EQ(0, reference->ToDataReference('avc1', properties.Get(), memory.Receive()));
    RObject<CByteArray> bytes(memory->GetByteArray());
    EXPECT_EQ((Bytes{0, 3, 0x65, 1, 2}), vector_of(*bytes));
    ASSERT_EQ(0, reference->ToDataReference('h264', nullptr, memory.Receive()));
    bytes = memory->GetByteArray();
    EXPECT_EQ((Bytes{0, 0, 0, 1, 0x65, 1, 2}), vector_of(*bytes));
}

TEST(CMpeg4AvcDataReference, TellsWhatIsMissing) {
    RObject<CMpeg4AvcAccessUnit> unit = annex_b({0, 0, 1, 0x65, 1, 2});
    RObject<CMpeg4AvcDataReference> reference(new CMpeg4AvcDataReference(unit.Get()));
    RObject<CMpeg4AvcDataReference> empty(new CMpeg4AvcDataReference(nullptr));
    RObject<CMpeg4AvcProperties> bare(new CMpeg4AvcProperties());
    CMemoryDataReference* memory = nullptr;
    EXPECT_EQ(ResultNullPointer::kCode, empty->ToDataReference('h264', nullptr, memory));
    EXPECT_EQ(ResultNullPointer::kCode, reference->ToDataReference('avc1', nullptr, memory));
    EXPECT_EQ(ResultNullPointer::kCode, reference->ToDataReference('avc1', bare.Get(), memory));
    EXPECT_EQ(ResultNotSupported::kCode, reference->ToDataReference('mp4v', bare.Get(), memory));
    EXPECT_EQ(nullptr, memory);
}

TEST(CMpeg4AvcDecoderConfiguration, RecordIsBuiltFromParameterSets) {
    RObject<CMpeg4AvcDecoderConfiguration> configuration(new CMpeg4AvcDecoderConfiguration());
    // A set that comes twice stands once.
    Bytes twice = kSets;
    twice.insert(twice.end(), kSets.begin(), kSets.end());
    ASSERT_EQ(0, configuration->ParseAnnexB(twice.data(), static_cast<int>(twice.size())));
    EXPECT_EQ(100, configuration->GetProfile());
    EXPECT_EQ(0x28, configuration->GetLevel());
    EXPECT_EQ(4, configuration->GetNalUnitLengthSize());
    RObject<CByteArray> record;
    ASSERT_EQ(0, configuration->Render(record));
    // sequence set: id 0, chroma format 1 (4:2:0), both depths 8
    EXPECT_EQ((Bytes{1,    0x64, 0, 0x28, 0xFF, 0xE1, 0,    6,    0x67, 0x64, 0,    0x28, 0xAC,
                     0xB4, 1,    0, 4,    0x68, 0xEE, 0x3C, 0x80, 0xFD, 0xF8, 0xF8, 0}),
              vector_of(*record));
    RObject<CMpeg4AvcDecoderConfiguration> again(new CMpeg4AvcDecoderConfiguration());
    ASSERT_EQ(0, again->Parse(record->GetData(), record->GetLength()));
    EXPECT_EQ(configuration->GetSequenceParameterSets(), again->GetSequenceParameterSets());
    EXPECT_EQ(configuration->GetPictureParameterSets(), again->GetPictureParameterSets());
    RObject<CByteArray> second;
    ASSERT_EQ(0, again->Render(second));
    EXPECT_EQ(vector_of(*record), vector_of(*second));
}

TEST(CMpeg4AvcDecoderConfiguration, BaselineRecordHasNoTail) {
    const Bytes sets = {0, 0, 1, 0x67, 0x42, 0xC0, 0x1E, 0xDA, 0, 0, 1, 0x68, 0xCE, 0x80};
    RObject<CMpeg4AvcDecoderConfiguration> configuration(new CMpeg4AvcDecoderConfiguration());
    ASSERT_EQ(0, configuration->ParseAnnexB(sets.data(), static_cast<int>(sets.size())));
    EXPECT_EQ(66, configuration->GetProfile());
    EXPECT_EQ(0xC0, configuration->GetCompatibility());
    RObject<CByteArray> record;
    ASSERT_EQ(0, configuration->Render(record));
    EXPECT_EQ(7 + 2 + 5 + 2 + 3, record->GetLength());
}

TEST(CMpeg4AvcDecoderConfiguration, BrokenRecordsAreRefusedAtEveryLength) {
    RObject<CMpeg4AvcDecoderConfiguration> good(new CMpeg4AvcDecoderConfiguration());
    ASSERT_EQ(0, good->ParseAnnexB(kSets.data(), static_cast<int>(kSets.size())));
    RObject<CByteArray> record;
    ASSERT_EQ(0, good->Render(record));
    const int untilTail = record->GetLength() - 4;
    for (int length = 0; length < record->GetLength(); ++length) {
        RObject<CMpeg4AvcDecoderConfiguration> c(new CMpeg4AvcDecoderConfiguration());
        // Old writers leave the tail out: a record may end there, or anywhere in it.
        EXPECT_EQ(length < untilTail, c->Parse(record->GetData(), length).Failed()) << length;
    }
    RObject<CMpeg4AvcDecoderConfiguration> c(new CMpeg4AvcDecoderConfiguration());
    EXPECT_EQ(ResultNullPointer::kCode, c->Parse(nullptr, 10));
    EXPECT_EQ(ResultInvalidArgument::kCode, c->ParseAnnexB(nullptr, 0));
    EXPECT_EQ(ResultInvalidArgument::kCode, c->ParseAnnexB(kSets.data(), 10));
    const Bytes cut = {0, 0, 1, 0x67, 0x64, 0, 0, 1, 0x68, 1};
    EXPECT_EQ(ResultInvalidArgument::kCode,
              c->ParseAnnexB(cut.data(), static_cast<int>(cut.size())));
    EXPECT_EQ(ResultInvalidArgument::kCode, c->SetNalUnitLengthSize(3));
    EXPECT_EQ(0, c->GetProfile());
}

TEST(CMpeg4AvcProperties, DecoderInfoIsTheRecord) {
    RObject<CMpeg4AvcDecoderConfiguration> configuration(new CMpeg4AvcDecoderConfiguration());
    ASSERT_EQ(0, configuration->ParseAnnexB(kSets.data(), static_cast<int>(kSets.size())));
    RObject<CMpeg4AvcProperties> properties(new CMpeg4AvcProperties());
    EXPECT_FALSE(properties->HasDecoderInfo());
    EXPECT_EQ(nullptr, properties->GetDecoderConfiguration());
    properties->SetDecoderConfiguration(configuration.Get());
    RObject<CByteArray> info;
    ASSERT_EQ(0, properties->GetDecoderInfo(info));
    RObject<CMpeg4AvcProperties> other(new CMpeg4AvcProperties());
    ASSERT_EQ(0, other->SetDecoderInfo(info.Get()));
    EXPECT_TRUE(other->HasDecoderInfo());
    RObject<CMpeg4AvcDecoderConfiguration> read(other->GetDecoderConfiguration());
    EXPECT_EQ(100, read->GetProfile());
    EXPECT_EQ(ResultInvalidArgument::kCode, other->SetDecoderInfo(bytes_of({2, 3}).Get()));
    EXPECT_TRUE(other->HasDecoderInfo());
    EXPECT_EQ(0, other->SetDecoderInfo(nullptr));
    EXPECT_FALSE(other->HasDecoderInfo());
}

}  // namespace
}  // namespace Quillon::Orb
