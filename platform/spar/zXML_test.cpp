#include "spar/zXML.h"

#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "spar/zFileStream.h"
#include "spar/zMemoryStream.h"
#include "spar/zStringID.h"

#include "tests/support/SweepStride.h"
#include "tests/support/TestFolder.h"
#include "tests/support/randomRecords.h"
#include "tests/support/xmlRecords.h"

namespace {

using records::add_child;
using records::kRead;
using records::kWrite;
using records::parse;
using records::parsed_as;
using records::Same;
using records::tagged;
using records::written;

TEST(zXML, WritesARecordAsAnElement) {
    zStringID::Default().Add('xtWi', "test_xml_width", false);
    zRecord record = tagged("segment");
    record.SetUInt32("id", 17);
    record.SetInt64("start", 0);
    record.SetInt64("stop", -9223372036854775807ll - 1);
    record.SetInt32('xtWi', 1920);
    record.SetCString("name", "camera <1> & \"2\"\n");
    record.SetBool("on", true);
    record.SetUInt64("big", 18446744073709551615ull);
    record.SetFloat("fps", 29.97f);
    record.SetDouble("ratio", 0.1);
    record.SetInt32('guid', 5);
    EXPECT_EQ(written(record),
              "<segment id=\"uint32:17\" start=\"int64:0\" stop=\"int64:-9223372036854775808\""
              " test_xml_width=\"int32:1920\""
              " name=\"camera &lt;1&gt; &amp; &quot;2&quot;&#10;\" on=\"bool:true\""
              " big=\"uint64:18446744073709551615\" fps=\"float:29.97\" ratio=\"double:0.1\""
              " _xid_67756964=\"int32:5\"/>\n");
}

TEST(zXML, NestsChildren) {
    zRecord record = tagged("movie");
    add_child(record, "track").SetInt32("n", 1);
    add_child(*record.Child(0), "below");
    record.AddChild(nullptr, 0x7FFFFFFF);
    add_child(record, "track").SetInt32("n", 2);
    EXPECT_EQ(written(record),
              "<movie>\n\t<track n=\"int32:1\">\n\t\t<below/>\n\t</track>\n"
              "\t<track n=\"int32:2\"/>\n</movie>\n");
    EXPECT_EQ(written(*record.Child(0), "\r\n", 2),
              "\t\t<track n=\"int32:1\">\r\n\t\t\t<below/>\r\n\t\t</track>\r\n");
    EXPECT_EQ(written(*record.Child(0), nullptr), "<track n=\"int32:1\"><below/></track>");
    EXPECT_EQ(written(*record.Child(0), ""), "<track n=\"int32:1\"><below/></track>");
}

TEST(zXML, WritesADeclarationUnlessToldNotTo) {
    zMemoryStream stream;
    const zRecord record = tagged("a");
    EXPECT_EQ(zXML::WriteStream(1, &record, &stream, "\n", 0), 0);
    EXPECT_EQ(stream.Content(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a/>\n");
    EXPECT_EQ(parsed_as(std::string(stream.Content())), "<a/>");
}

// Names that XML could not hold as they are, or would take for something of its own.
TEST(zXML, EscapesNames) {
    const std::pair<const char*, const char*> kCases[] = {
        {"plain_name-1.2", "plain_name-1.2"},
        {"tn:sq_pixel_width", "tn_x3A_sq_pixel_width"},
        {"", "_x_"},
        {"1st", "_x31_st"},
        {"-a", "_x2D_a"},
        {".a", "_x2E_a"},
        {"a b", "a_x20_b"},
        {"_x41_", "_x5F_x41_"},
        {"_", "_"},
        {"_y", "_y"},
        {"_x", "_x"},
        {"frame_xoffset", "frame_xoffset"},
        {"_x4", "_x4"},
        {"_x41", "_x5F_x41"},
        {"_x41:", "_x5F_x41_x3A_"},
        {"_x4:", "_x4_x3A_"},
        {"_x:", "_x_x3A_"},
        {"_x_", "_x5F_x_"},
        {"a_x_", "a_x_"},
        {"_xrecords", "_xrecords"},
        {"a_xid_5", "a_xid_5"},
        {"_xid_", "_x5F_xid_"},
        {"_xid:", "_xid_x3A_"},
        {"_xid_x41", "_x5F_xid_x5F_x41"},
        {"xml", "_x78_ml"},
        {"XMLns", "_x58_MLns"},
        {"gr\xC3\xB6\xC3\x9F", "gr_xC3__xB6__xC3__x9F_"},
        {"_xrecord", "_x5F_xrecord"},
        {"_xid_5", "_x5F_xid_5"},
    };
    for (const auto& [name, xml] : kCases) {
        EXPECT_EQ(written(tagged(name), nullptr), fmt::format("<{}/>", xml));
        zRecord back;
        EXPECT_EQ(parse(fmt::format("<{}/>", xml), back), 0);
        EXPECT_TRUE(Same(back, tagged(name)));

        zRecord record = tagged("a");
        record.SetInt32(name, 5);
        EXPECT_EQ(written(record, nullptr), fmt::format("<a {}=\"int32:5\"/>", xml));
        EXPECT_EQ(parse(written(record), back), 0);
        EXPECT_TRUE(Same(back, record)) << name;
    }
}

// Keys are C strings: a zero byte in one would hide the rest of it.
TEST(zXML, AnAttributeWithAZeroByteInItsNameKeepsTheNameAsItStands) {
    const std::pair<const char*, const char*> kCases[] = {
        {"<a b_x00_c='1'/>", "<a b_x5F_x00_c=\"1\"/>"},
        {"<a b='1' b_x00_c='2'/>", "<a b=\"1\" b_x5F_x00_c=\"2\"/>"},
        {"<a _x00_='1' _x_='2'/>", "<a _x5F_x00_=\"1\" _x_=\"2\"/>"},
        {"<a b_x00__x41_='1'/>", "<a b_x5F_x00__x5F_x41_=\"1\"/>"},
        {"<a_x00_b/>", "<a_x00_b/>"},  // tags are texts, which hold any bytes
    };
    for (const auto& [text, expected] : kCases) {
        zRecord record;
        EXPECT_EQ(parse(text, record), 0) << text;
        EXPECT_EQ(written(record, nullptr), expected);
        zRecord again;
        EXPECT_EQ(parse(written(record), again), 0) << text;
        EXPECT_TRUE(Same(again, record)) << text;
    }
}

TEST(zXML, AKeyThatGotItsIdLateIsWrittenOnce) {
    zRecord record = tagged("a");
    record.SetInt32("test_xml_late", 1);
    record.SetInt32('xtLa', 2);
    zStringID::Default().Add('xtLa', "test_xml_late", false);
    EXPECT_NE(written(record, nullptr).find("<a test_xml_late=\"int32:2\"/>"), std::string::npos);
}

TEST(zXML, AnUntaggedRecordStaysUntagged) {
    zRecord record;
    EXPECT_EQ(written(record, nullptr), "<_xrecord/>");
    record.SetInt32('xTag', 5);  // a tag that is no text is a variable like others
    EXPECT_EQ(written(record, nullptr), "<_xrecord _xid_78546167=\"int32:5\"/>");
    zRecord back;
    back.SetCString('xTag', "old");
    EXPECT_EQ(parse(written(record), back), 0);
    EXPECT_TRUE(Same(back, record));
}

TEST(zXML, AnAttributeWrittenByHandIsAString) {
    zRecord record;
    EXPECT_EQ(
        parse("<segment id='17' start='4294967296' odd='int32:x' over='int32:4294967296' "
              "half='50%' colon='http://host' real='float:1.5' hex='double:#zz' no='bool:1'/>",
              record),
        0);
    EXPECT_EQ(record.FindVariable("id")->Kind(), ZV_STRING);
    EXPECT_EQ(record.AsUInt32("id", 0), 17u);
    EXPECT_EQ(record.AsInt64("start", 0), 4294967296ll);
    EXPECT_EQ(record.AsString("odd", ""), "int32:x");
    EXPECT_EQ(record.AsString("over", ""), "int32:4294967296");
    EXPECT_EQ(record.AsString("half", ""), "50%");
    EXPECT_EQ(record.AsString("colon", ""), "http://host");
    EXPECT_EQ(record.AsString("hex", ""), "double:#zz");
    EXPECT_EQ(record.AsString("no", ""), "bool:1");
    EXPECT_EQ(record.FindVariable("real")->Kind(), ZV_FLOAT);
    zRecord back;
    EXPECT_EQ(parse(written(record), back), 0);
    EXPECT_TRUE(Same(back, record));
}

TEST(zXML, PassesOverWhatIsNoElement) {
    EXPECT_EQ(parsed_as("<?xml version='1.0'?><!-- a --><?b c?>\n"
                        "<a>text &amp; <![CDATA[<x/>]]><b/><!-- <c/> --></a> <!-- d -->\n"),
              "<a><b/></a>");
    EXPECT_EQ(parsed_as("\xEF\xBB\xBF<a/>"), "<a/>") << "a byte order mark";
}

TEST(zXML, ReadsOtherEncodings) {
    zRecord record;
    const std::u16string wide = u"\uFEFF<a b='\u00F6'/>";
    const std::string utf16(reinterpret_cast<const char*>(wide.data()), wide.size() * 2);
    EXPECT_EQ(parse(utf16, record), 0);
    EXPECT_EQ(record.AsString("b", ""), "\xC3\xB6");
    EXPECT_EQ(parse("<?xml version='1.0' encoding='ISO-8859-1'?><a b='\xF6'/>", record), 0);
    EXPECT_EQ(record.AsString("b", ""), "\xC3\xB6");
}

TEST(zXML, EverythingComesBackUnchanged) {
    records::Random random(3);
    for (int round = 0; round < 2000; ++round) {
        zRecord record;
        records::FillRandom(record, random, 3);
        zRecord back;
        const std::string text = written(record, round % 2 ? "\n" : nullptr);
        ASSERT_EQ(parse(text, back), 0) << text;
        ASSERT_TRUE(Same(back, record)) << text;
        ASSERT_EQ(written(back).size(), written(record).size());
    }
}

TEST(zXML, RealsComeBackBitForBit) {
    records::Random random(4);
    for (int round = 0; round < 50; ++round) {
        zRecord record;
        for (unsigned long long id = 0; id < 400; id += 2) {
            record.SetDouble(id, records::RandomReal(random));
            record.SetFloat(id + 1, std::bit_cast<float>(static_cast<std::uint32_t>(random())));
        }
        zRecord back;
        ASSERT_EQ(parse(written(record), back), 0);
        ASSERT_TRUE(Same(back, record)) << written(record);
    }
}

TEST(zXML, EveryByteComesBackInATextAndInAKey) {
    for (int byte = 0; byte < 256; ++byte) {
        zRecord record;
        record.SetString("value", std::string("a") + static_cast<char>(byte) + "b");
        record.SetString('xTag', std::string("a") + static_cast<char>(byte) + "b");
        if (byte != 0) record.SetInt32((std::string("k") + static_cast<char>(byte)).c_str(), byte);
        zRecord back;
        ASSERT_EQ(parse(written(record), back), 0) << byte;
        ASSERT_TRUE(Same(back, record)) << byte;
    }
}

TEST(zXML, ReadsOverWhatTheRecordHeld) {
    zRecord record;
    record.SetInt32("old", 1);
    record.AddChild(new zRecord, 0x7FFFFFFF);
    EXPECT_EQ(parse("<a new='1'/>", record), 0);
    EXPECT_EQ(written(record, nullptr), "<a new=\"1\"/>");
}

TEST(zXML, ADocumentThatEndsTooEarlyGivesWhatStandsComplete) {
    const std::pair<const char*, const char*> kCases[] = {
        {"<m a='1'>", "<m a=\"1\"/>"},
        {"<m a='1'", "-5202"},
        {"<m><s/>", "<m><s/></m>"},
        {"<m><s/", "<m/>"},
        {"<m><s>", "<m/>"},
        {"<m><s></s", "<m/>"},
        {"<m><s></s>", "<m><s/></m>"},
        {"<m><segments n='1'><s/><s/><s", "<m><segments n=\"1\"><s/><s/></segments></m>"},
        {"<m><segments>", "<m/>"},
        {"<m><f><v/></f><segments><s", "<m><f><v/></f></m>"},
        {"<m><a><b><c/><d>", "<m><a><b><c/></b></a></m>"},
        {"<m><a/><b><c><d>", "<m><a/></m>"},
        {"<m><a/></m", "<m><a/></m>"},
        {"<m><a/></m><!-- ", "<m><a/></m>"},
        {"<m><a/><![CDATA[ x", "<m><a/></m>"},
        {"<m><a/>&am", "<m><a/></m>"},
        {"<m><a/>\xE2\x82", "<m><a/></m>"},
        {"", "-5202"},
        {"  \n", "-5202"},
        {"<", "-5202"},
        {"<?xml version='1.0'?>", "-5202"},
    };
    for (const auto& [text, expected] : kCases) EXPECT_EQ(parsed_as(text), expected) << text;
}

/// The elements of a document whose end tags stand in the first `size` bytes: the ends of tags that
/// are empty elements or end tags. No '>' stands in the values of what is written here.
int complete_elements(const std::string& text, std::size_t size) {
    int count = 0;
    for (std::size_t at = 0; at < size; ++at) {
        if (text[at] != '>') continue;
        const std::size_t open = text.rfind('<', at);
        if (text[at - 1] == '/' || text[open + 1] == '/') ++count;
    }
    return count;
}

int elements_in(const zRecord& record) {
    int count = 1;
    record.ForEachChild([&](zRecord* child) {
        count += elements_in(*child);
        return true;
    });
    return count;
}

/// What `part` has is what stands at the same places in `whole`, each with all its variables.
void expect_part_of(const zRecord& part, const zRecord& whole) {
    whole.ForEachVariable([&](const zVariable& variable) {
        const zVariable* other = part.FindVariable(variable.ID());
        EXPECT_TRUE(other != nullptr && records::SameValue(variable, *other));
        return true;
    });
    ASSERT_LE(part.ChildCount(), whole.ChildCount());
    for (unsigned int i = 0; i < part.ChildCount(); ++i) {
        expect_part_of(*part.Child(i), *whole.Child(i));
    }
}

TEST(zXML, CutAtAnyByteEveryCompleteElementIsThere) {
    records::Random random(6);
    for (int round = 0; round < 40;) {
        zRecord record;
        records::FillRandom(record, random, 3);
        const std::string text = written(record);
        if (text.size() > 1500) continue;  // the work grows with the square of it
        ++round;
        const std::size_t rootEnd = text.find('>');
        for (std::size_t size = 0; size < text.size(); size += tests::SweepStride()) {
            const std::string cut = text.substr(0, size);
            zRecord read;
            const int result = parse(cut, read);
            if (size <= rootEnd) {
                ASSERT_EQ(result, zXML::kNoElement) << cut;
                continue;
            }
            ASSERT_EQ(result, 0) << cut;
            // Holders of complete elements are there beside these, and so is the root.
            ASSERT_GE(elements_in(read), complete_elements(text, size)) << cut;
            expect_part_of(read, record);
            ASSERT_FALSE(::testing::Test::HasFailure()) << cut;
        }
    }
}

struct Manifest {
    explicit Manifest(int segments);
    std::string text;
    std::size_t begun;  // bytes before the first segment
    std::size_t last;   // bytes up to the end of the last
};

Manifest::Manifest(int segments) {
    zRecord format = tagged("format");
    format.SetInt32("tn_width", 1920);
    text = "<larkspur_replay_manifest>\n<formats>\n" + written(format) + written(format) +
           "</formats>\n<segments>\n";
    begun = text.size();
    for (int i = 1; i <= segments; ++i) {
        zRecord segment = tagged("segment");
        segment.SetUInt32("id", static_cast<unsigned int>(i));
        segment.SetInt64("start", i * 1000);
        segment.SetInt64("stop", (i + 1) * 1000);
        text += written(segment);
    }
    last = text.size();
    text += "</segments>\n</larkspur_replay_manifest>";
}

void expect_segments_of_cut(const Manifest& manifest, std::size_t size) {
    zRecord read;
    ASSERT_EQ(parse(manifest.text.substr(0, size), read), 0);
    ASSERT_EQ(read.AsString('xTag', ""), "larkspur_replay_manifest");
    const zRecord* formats =
        read.FindChildByStrVariable('xTag', "formats", true, 0xFFFFFFFF, Z_MATCH_EXACT);
    ASSERT_NE(formats, nullptr);
    ASSERT_EQ(formats->ChildCount(), 2u);
    ASSERT_EQ(formats->Child(1)->AsInt32("tn_width", 0), 1920);
    const zRecord* segments =
        read.FindChildByStrVariable('xTag', "segments", true, 0xFFFFFFFF, Z_MATCH_EXACT);
    const std::size_t bytes = std::min(size, manifest.last) - manifest.begun;
    const int complete = complete_elements(manifest.text.substr(manifest.begun, bytes), bytes);
    if (complete == 0) return;
    ASSERT_NE(segments, nullptr);
    ASSERT_EQ(segments->ChildCount(), static_cast<unsigned int>(complete));
    ASSERT_EQ(segments->Child(complete - 1)->AsInt64("stop", 0), (complete + 1) * 1000);
}

TEST(zXML, AManifestCutAnywhereGivesItsSegments) {
    const Manifest manifest(20);
    for (std::size_t size = manifest.begun; size <= manifest.text.size(); ++size) {
        ASSERT_NO_FATAL_FAILURE(expect_segments_of_cut(manifest, size)) << size;
    }
}

// The last piece of reading is full, or it is a few bytes, or lacks a few.
TEST(zXML, AManifestCutWhereAPieceOfReadingEndsGivesItsSegments) {
    const Manifest manifest(2500);
    const std::size_t piece = 65536;
    ASSERT_GT(manifest.text.size(), 2 * piece + 35);
    for (const std::size_t end : {piece, 2 * piece}) {
        for (std::size_t size = end - 35; size <= end + 35; ++size) {
            ASSERT_NO_FATAL_FAILURE(expect_segments_of_cut(manifest, size)) << size;
        }
    }
}

TEST(zXML, ZeroBytesAtTheEndCountAsCut) {
    const std::string zeros(100000, '\0');  // more than one piece of reading
    const std::string few(3, '\0');
    EXPECT_EQ(parsed_as("<m><s/>" + zeros), "<m><s/></m>");
    EXPECT_EQ(parsed_as("<m><s/><s a=\"" + few), "<m><s/></m>");
    EXPECT_EQ(parsed_as("<m><s/></m>\n" + few), "<m><s/></m>");
    EXPECT_EQ(parsed_as(few), "-5202");
    EXPECT_EQ(parsed_as("<m><s/>" + few + "<s/></m>"), "-5201");
    EXPECT_EQ(parsed_as("<m><s/>" + zeros + "<s/></m>"), "-5201");
    EXPECT_EQ(parsed_as("<m><s/>\x01"), "-5201");
    // In the middle of a character.
    for (const std::string& torn :
         std::vector<std::string>{"\xE2\x82", "\xE2", "\xC3", "\xF0\x9F\x98", "\xF0"}) {
        EXPECT_EQ(parsed_as("<m><s/>" + torn + zeros), "<m><s/></m>");
        EXPECT_EQ(parsed_as("<m><s/><s a='" + torn + zeros), "<m><s/></m>");
        EXPECT_EQ(parsed_as("<m><s/><s a='" + torn + few), "<m><s/></m>");
        EXPECT_EQ(parsed_as("<m a='" + torn + few), "-5202");
        EXPECT_EQ(parsed_as("<m><s/>" + torn + few + "<s/></m>"), "-5201");
        EXPECT_EQ(parsed_as("<m><s/>" + torn + "!!!!" + zeros), "-5201");
    }
    EXPECT_EQ(parsed_as("<m><s/>\x80" + zeros), "-5201") << "no character begins like this";
}

// Wherever a piece of reading ends: right before the torn character, in it, behind it.
TEST(zXML, ZeroBytesBehindAPieceOfReadingCountAsCut) {
    const std::string front = "<m><s/><s a='";
    for (std::size_t size = 65536 - 5; size < 65536 + 5; ++size) {
        const std::string text(size - front.size(), 'x');
        for (const std::size_t zeros : {1u, 10u, 200000u}) {
            EXPECT_EQ(parsed_as(front + text + "\xE2\x82" + std::string(zeros, '\0')),
                      "<m><s/></m>")
                << size << " and " << zeros;
        }
    }
}

TEST(zXML, ZeroBytesAtTheEndOfTwoByteCharactersCountAsCutToo) {
    const auto wide = [](const std::string& text, bool isLittle) {
        std::string bytes = isLittle ? "\xFF\xFE" : "\xFE\xFF";
        for (const char c : text) {
            bytes += isLittle ? c : '\0';
            bytes += isLittle ? '\0' : c;
        }
        return bytes;
    };
    for (const bool isLittle : {false, true}) {
        for (const std::size_t front : {0u, 2u}) {  // with and without the mark
            const std::string zeros(1000, '\0');
            const std::string cut = wide("<m><s/><s a='", isLittle).substr(front);
            EXPECT_EQ(parsed_as(cut + zeros), "<m><s/></m>");
            EXPECT_EQ(parsed_as(wide("<m><s/></m>", isLittle).substr(front)), "<m><s/></m>");
            EXPECT_EQ(parsed_as(cut + zeros + "x"), "-5201");
        }
    }
}

TEST(zXML, WhatIsWrongIsRefusedAndChangesNothing) {
    const std::pair<std::string, int> kCases[] = {
        {"<a></b>", zXML::kNotWellFormed},
        {"<a b='1' b='2'/>", zXML::kNotWellFormed},
        {"<a b=1/>", zXML::kNotWellFormed},
        {"<a>&undeclared;</a>", zXML::kNotWellFormed},
        {"<a b='\x80'/>", zXML::kNotWellFormed},
        {"<a/><b/>", zXML::kNotWellFormed},
        {"words", zXML::kNotWellFormed},
        {"<?xml version='1.0' encoding='martian'?><a/>", zXML::kNotWellFormed},
        {"<!DOCTYPE a><a/>", zXML::kDoctype},
        {"<!DOCTYPE a [<!ENTITY x 'y'>]><a>&x;</a>", zXML::kDoctype},
        {"<!DOCTYPE a SYSTEM 'http://host/a.dtd'><a/>", zXML::kDoctype},
    };
    for (const auto& [text, expected] : kCases) {
        zRecord record = tagged("before");
        add_child(record, "child");
        const zRecord before(record);
        EXPECT_EQ(parse(text, record), expected) << text;
        EXPECT_TRUE(Same(record, before)) << text;
    }
}

TEST(zXML, RefusesWhatItCannotWorkOn) {
    zRecord record;
    zMemoryStream stream;
    EXPECT_EQ(zXML::WriteStream(kWrite, nullptr, &stream, "\n", 0), -22);
    EXPECT_EQ(zXML::WriteStream(kWrite, &record, nullptr, "\n", 0), -22);
    EXPECT_EQ(zXML::ParseStream(kRead, nullptr, &stream), -22);
    EXPECT_EQ(zXML::ParseStream(kRead, &record, nullptr), -22);
    EXPECT_EQ(zXML::ParseFile(kRead, &record, nullptr), -22);
    EXPECT_EQ(zXML::ParseFile(kRead, nullptr, "x"), -22);
    EXPECT_EQ(zXML::ParseMemory(kRead, &record, nullptr, 5), -22);
    EXPECT_EQ(zXML::ParseMemory(kRead, &record, nullptr, 0), zXML::kNoElement);
    for (const unsigned int format : {0u, 2u, 3u, 4u, 9u}) {
        EXPECT_EQ(zXML::WriteStream(format, &record, &stream, "\n", 0), -22) << format;
        EXPECT_EQ(zXML::ParseStream(format, &record, &stream), -22) << format;
    }
}

/// Takes so many bytes, then fails like a full disk.
class FullStream : public zMemoryStream {
public:
    explicit FullStream(unsigned long room) : fRoom(room) {}
    int Write(const void* data, unsigned long size) override {
        if (size > fRoom) return -5028;
        fRoom -= size;
        return zMemoryStream::Write(data, size);
    }
    int Read(void*, unsigned long, unsigned long*) override { return -5005; }

private:
    unsigned long fRoom;
};

TEST(zXML, TheStreamsFailureIsTheResult) {
    zRecord record = tagged("a");
    for (int i = 0; i < 5000; ++i) add_child(record, "with_a_long_name_for_several_pieces");
    const std::size_t size = written(record).size();
    for (const std::size_t room : {std::size_t{0}, std::size_t{100000}, size - 1}) {
        FullStream stream(room);
        EXPECT_EQ(zXML::WriteStream(kWrite, &record, &stream, "\n", 0), -5028);
    }
    FullStream stream(size);
    EXPECT_EQ(zXML::WriteStream(kWrite, &record, &stream, "\n", 0), 0);
    const zRecord before(record);
    EXPECT_EQ(zXML::ParseStream(kRead, &record, &stream), -5005);
    EXPECT_TRUE(Same(record, before));
}

/// Gives `text`, then fails like a broken disk.
class BrokenStream : public zMemoryStream {
public:
    explicit BrokenStream(std::string text) : fText(std::move(text)) {}
    int Read(void* data, unsigned long size, unsigned long* got) override {
        *got = fText.copy(static_cast<char*>(data), size);
        if (*got == 0) return -5005;
        fText.erase(0, *got);
        return 0;
    }

private:
    std::string fText;
};

TEST(zXML, TheStreamsFailureBehindZeroBytesIsTheResultToo) {
    const std::string zeros(100, '\0');
    const std::string torn = "<m><s/><s a='" + zeros;
    std::string wide = "\xFF\xFE";
    for (const char c : torn) {
        wide += c;
        wide += '\0';
    }
    const std::pair<std::string, int> kCases[] = {
        {torn, -5005},
        {torn + std::string(100000, '\0'), -5005},  // in the pieces behind
        {wide, -5005},
        {torn + "x", zXML::kNotWellFormed},  // seen before the failure
    };
    for (const auto& [text, expected] : kCases) {
        BrokenStream stream(text);
        zRecord record = tagged("before");
        EXPECT_EQ(zXML::ParseStream(kRead, &record, &stream), expected) << text.size();
        EXPECT_TRUE(Same(record, tagged("before")));
    }
}

TEST(zXML, ThreadsMayReadAndWriteAtOnce) {
    std::vector<std::thread> threads;
    for (unsigned int seed = 1; seed <= 2; ++seed) {
        threads.emplace_back([seed] {
            records::Random random(seed);
            for (int round = 0; round < 200; ++round) {
                zRecord record;
                records::FillRandom(record, random, 2);
                zRecord back;
                ASSERT_EQ(parse(written(record), back), 0);
                ASSERT_TRUE(Same(back, record));
            }
        });
    }
    for (auto& thread : threads) thread.join();
}

TEST(zXML, ReadsAFile) {
    const tests::TestFolder folder;
    const std::string path = folder.File("xml_test.xml");
    zRecord record = tagged("a");
    for (int i = 0; i < 3000; ++i) add_child(record, "child").SetInt32("n", i);
    zFileStream file(path.c_str(), Z_FILE_WRITE, false);
    ASSERT_EQ(file.Open(), 0);
    EXPECT_EQ(zXML::WriteStream(kWrite, &record, &file, "\n", 0), 0);
    EXPECT_EQ(file.Close(), 0);
    zRecord back;
    EXPECT_EQ(zXML::ParseFile(kRead, &back, path.c_str()), 0);
    EXPECT_TRUE(Same(back, record));
    EXPECT_EQ(zFileStream::RemoveFile(path.c_str()), 0);
    EXPECT_EQ(zXML::ParseFile(kRead, &back, path.c_str()), -5002) << "no such file";
    EXPECT_EQ(zXML::ParseFile(kRead, &back, folder.Path().c_str()), -5021) << "a folder";
    EXPECT_TRUE(Same(back, record));
}

}  // namespace
