#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "spar/zMemoryStream.h"
#include "spar/zXML.h"

#include "tests/support/randomRecords.h"
#include "tests/support/xmlRecords.h"

// How much of a document is read, how much memory that may take, and what is not written for it.

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

using records::add_child;
using records::kWrite;
using records::parse;
using records::Same;
using records::tagged;
using records::written;

/// Kilobytes of a line of the process's status.
long status_kilobytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word != name + ":") continue;
        long value = 0;
        status >> value;
        return value;
    }
    return -1;
}

/// Reads `text` and tells how far the process's memory rose above what it was before, at its peak,
/// in megabytes.
long peak_rise(const std::string& text, int expected) {
    std::ofstream("/proc/self/clear_refs") << "5";  // the peak counts from here
    const long before = status_kilobytes("VmRSS");
    zRecord record;
    EXPECT_EQ(parse(text, record), expected);
    const long rise = (status_kilobytes("VmHWM") - before) / 1024;
    ::testing::Test::RecordProperty("peak_megabytes", static_cast<int>(rise));
    return kSanitized ? 0 : rise;  // their own memory drowns ours
}

std::string repeated(const std::string& part, std::size_t count, const char* front = "") {
    std::string text = front;
    text.reserve(text.size() + part.size() * count);
    for (std::size_t i = 0; i < count; ++i) text += part;
    return text;
}

TEST(zXML, BombsAreRefusedBeforeTheyGoOff) {
    std::string laughs = "<!DOCTYPE l [<!ENTITY a0 'ha'>";
    for (int i = 1; i < 30; ++i) {
        laughs += fmt::format("<!ENTITY a{} '&a{};&a{};'>", i, i - 1, i - 1);
    }
    laughs += "]><l>&a29;</l>";
    EXPECT_LT(peak_rise(laughs, zXML::kDoctype), 20);
}

TEST(zXML, DepthIsBounded) {
    const auto nested = [](int depth) {
        const std::size_t count = static_cast<std::size_t>(depth);
        return repeated("<a>", count) + repeated("</a>", count);
    };
    zRecord record;
    EXPECT_EQ(parse(nested(zXML::kMaxDepth), record), 0);
    EXPECT_EQ(parse(written(record), record), 0) << "what is read can be written";
    EXPECT_EQ(parse(nested(zXML::kMaxDepth + 1), record), zXML::kTooDeep);
    EXPECT_EQ(parse(repeated("<a>", zXML::kMaxDepth) + "<a/>", record), zXML::kTooDeep);
    EXPECT_LT(peak_rise(repeated("<a>", 5000000), zXML::kTooDeep), 20);

    zRecord outer;
    outer.AddChild(new zRecord(record), 0x7FFFFFFF);  // a level more than is read
    zMemoryStream stream;
    EXPECT_EQ(zXML::WriteStream(kWrite, &outer, &stream, "\n", 0), zXML::kTooDeep);
    EXPECT_TRUE(stream.Content().empty());
}

TEST(zXML, SizeIsBounded) {
    if (kSanitized) GTEST_SKIP() << "hundreds of megabytes, a minute here";
    const std::size_t tooMuch = zXML::kMaxDocumentBytes + 1;
    EXPECT_LT(peak_rise(std::string("<a>").append(tooMuch, ' '), zXML::kTooBig), 20) << "blanks";
    EXPECT_LT(peak_rise(std::string("<a b='").append(tooMuch, 'x'), zXML::kTooBig), 80)
        << "one text";
    EXPECT_LT(peak_rise(std::string("<").append(tooMuch, 'x'), zXML::kTooBig), 80) << "one name";
    EXPECT_LT(peak_rise(repeated("<a/>", zXML::kMaxElements, "<a>"), zXML::kTooBig), 200)
        << "elements";
    std::string wide = "<e";
    for (int i = 0; i < 1024; ++i) wide += fmt::format(" a{}=''", i);
    wide += "/>";
    std::string crowded = "<e";
    for (int i = 0; crowded.size() < zXML::kMaxTagBytes - 100; ++i) {
        crowded += fmt::format(" a{:x}=''", i);
    }
    EXPECT_LT(peak_rise(crowded + "/>", zXML::kTooBig), 110) << "attributes";
    const std::size_t count = zXML::kMaxVariables / 1024 + 1;
    EXPECT_LT(peak_rise(repeated(wide, count, "<a>"), zXML::kTooBig), 300) << "variables";
}

TEST(zXML, AttributesAndNewKeysAreBounded) {
    const auto document = [](const std::string& stem, unsigned int elements, unsigned int each) {
        std::string text = "<a>";
        unsigned int number = 0;
        for (unsigned int element = 0; element < elements; ++element) {
            text += "<e";
            for (unsigned int i = 0; i < each; ++i) {
                text += fmt::format(" {}{}=''", stem, number++);
            }
            text += "/>";
        }
        return text + "</a>";
    };
    zRecord record;
    EXPECT_EQ(parse(document("most", 1, zXML::kMaxAttributes), record), 0);
    EXPECT_EQ(record.Child(0)->VariableCount(), zXML::kMaxAttributes + 1) << "and the tag";
    EXPECT_EQ(parse(document("more", 1, zXML::kMaxAttributes + 1), record), zXML::kTooBig);
    const unsigned int each = 1024;
    EXPECT_EQ(parse(document("keys", zXML::kMaxNewKeys / each, each), record), 0);
    EXPECT_EQ(parse(document("kezs", zXML::kMaxNewKeys / each + 1, each), record), zXML::kTooBig);
    EXPECT_EQ(parse(document("keys", zXML::kMaxNewKeys / each, each), record), 0)
        << "keys that are known by now";

    // What is read can be written.
    zMemoryStream most;
    EXPECT_EQ(parse(document("most", 1, zXML::kMaxAttributes), record), 0);
    EXPECT_EQ(zXML::WriteStream(kWrite, &record, &most, "\n", 0), 0);

    zRecord wide;
    for (unsigned int i = 0; i <= zXML::kMaxAttributes; ++i) wide.SetInt32(1 + i, 0);
    zMemoryStream stream;
    EXPECT_EQ(zXML::WriteStream(kWrite, &wide, &stream, "\n", 0), zXML::kTooBig);
    wide.RemoveID(1);
    EXPECT_EQ(zXML::WriteStream(kWrite, &wide, &stream, "\n", 0), 0);
    zRecord back;
    EXPECT_EQ(parse(std::string(stream.Content()), back), 0);
    EXPECT_TRUE(Same(back, wide));
}

/// Forgets what it takes.
class Nowhere : public zMemoryStream {
public:
    int Write(const void*, unsigned long) override { return 0; }
};

TEST(zXML, WhatNoReaderTakesIsNotWritten) {
    if (kSanitized) GTEST_SKIP() << "hundreds of megabytes, a minute here";
    Nowhere stream;
    zRecord many;
    for (unsigned int i = 1; i < zXML::kMaxElements; ++i) many.AddChild(new zRecord, 0x7FFFFFFF);
    EXPECT_EQ(zXML::WriteStream(kWrite, &many, &stream, "", 0), 0);
    many.AddChild(new zRecord, 0x7FFFFFFF);
    EXPECT_EQ(zXML::WriteStream(kWrite, &many, &stream, "", 0), zXML::kTooBig) << "elements";

    zRecord rows;
    for (unsigned int row = 0; row < zXML::kMaxVariables / 1024; ++row) {
        auto* child = new zRecord;
        for (unsigned int i = 1; i <= 1024; ++i) child->SetBool(i, true);
        rows.AddChild(child, 0x7FFFFFFF);
    }
    EXPECT_EQ(zXML::WriteStream(kWrite, &rows, &stream, "", 0), 0);
    rows.SetBool(1ull, true);
    EXPECT_EQ(zXML::WriteStream(kWrite, &rows, &stream, "", 0), zXML::kTooBig) << "variables";

    zRecord large;
    for (unsigned long size = 0; size < zXML::kMaxDocumentBytes; size += 8ul << 20) {
        EXPECT_EQ(zXML::WriteStream(kWrite, &large, &stream, "", 0), 0) << size;
        add_child(large, "text").SetString("text", std::string(8ul << 20, 'x'));
    }
    EXPECT_EQ(zXML::WriteStream(kWrite, &large, &stream, "", 0), zXML::kTooBig) << "bytes";
}

// Where in a piece of reading a long tag begins decides when the parser looks at it.
TEST(zXML, ADocumentMayBeLargerThanATag) {
    for (const std::size_t shift : {0u, 4096u, 40000u}) {
        std::string text = "<a>" + std::string(zXML::kMaxTagBytes + (1u << 20) + shift, ' ');
        text += "<b c='" + std::string(200000, 'x') + "'/></a>";
        zRecord record;
        ASSERT_EQ(parse(text, record), 0) << shift;
        ASSERT_EQ(record.ChildCount(), 1u);
        EXPECT_EQ(record.Child(0)->AsString("c", "").size(), 200000u);
    }
    for (const std::size_t size : {700000u, 1000000u, 1048576u}) {
        zRecord record = tagged("texts");
        for (std::size_t all = 0; all < zXML::kMaxTagBytes + (4u << 20); all += size) {
            add_child(record, "text").SetString("text", std::string(size, 'x'));
        }
        zRecord back;
        ASSERT_EQ(parse(written(record), back), 0) << size;
        EXPECT_TRUE(Same(back, record)) << size;
    }
}

TEST(zXML, LongTextsComeBack) {
    zRecord record = tagged("long");
    record.SetString("text", std::string(12u << 20, 'x'));
    zRecord back;
    EXPECT_EQ(parse(written(record), back), 0);
    EXPECT_TRUE(Same(back, record));
    record.SetString("text", std::string(zXML::kMaxTagBytes, 'x'));
    zMemoryStream stream;
    EXPECT_EQ(zXML::WriteStream(kWrite, &record, &stream, "\n", 0), zXML::kTooBig)
        << "what could not be read is not written";
}

TEST(zXML, ATagIsReadUpToTheLastByteItMayHave) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "one thread and tens of megabytes: most of a minute here, with nothing to find";
#endif
    const std::string behind = "<b c='" + std::string(50000, 'x') + "'/>";
    const auto document = [&](unsigned long tagBytes) {
        const std::string front = "<e t=\"";
        const std::string back = "\"/>";
        const unsigned long text = tagBytes - front.size() - back.size();
        // Enough behind it that the parser must have looked at the tag before the end.
        return "<a>" + front + std::string(text, 'x') + back + repeated(behind, 8) + "</a>";
    };
    zRecord record;
    for (const unsigned long less : {0u, 40000u, 200000u}) {
        ASSERT_EQ(parse(document(zXML::kMaxTagBytes - less), record), 0) << less;
        EXPECT_EQ(record.ChildCount(), 9u);
    }
    EXPECT_EQ(parse(document(zXML::kMaxTagBytes + 1), record), zXML::kTooBig);

    zRecord last = *record.Child(0);
    EXPECT_EQ(written(last, nullptr).size(), zXML::kMaxTagBytes - 200000);
    last.SetString("t", last.AsString("t", "") + std::string(200000, 'x'));
    EXPECT_EQ(written(last, nullptr).size(), zXML::kMaxTagBytes);
    last.SetString("t", last.AsString("t", "") + "x");
    zMemoryStream stream;
    EXPECT_EQ(zXML::WriteStream(kWrite, &last, &stream, nullptr, 0), zXML::kTooBig);
}

}  // namespace
