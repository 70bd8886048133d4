#include "spar/zXMLShortcut.h"

#include <algorithm>
#include <charconv>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "spar/zRecord.h"
#include "spar/zStream.h"
#include "spar/zXML.h"

// A document says the same with a shortcut and without, whatever stands in it and wherever it is
// torn: what was taken is put back among the records and compared with what the parser alone gives.

namespace {

constexpr unsigned long long kTagID = 'xTag';
constexpr std::string_view kOpening = "<r v=\"";

/// Takes elements such as <r v="17"/>, wherever they stand.
class Rows final : public zXMLShortcut {
public:
    struct Row {
        unsigned int childrenBefore;
        std::string value;
    };

    std::string_view Opening() const override { return kOpening; }

    Taken Take(const zRecord& root, const zRecord& parent, std::string_view text) override {
        EXPECT_TRUE(text.starts_with(kOpening));
        auto& rows = fRows[&parent == &root ? nullptr : &parent];
        Taken taken;
        for (std::string_view rest = text; rest.starts_with(kOpening);) {
            const std::size_t end = rest.find_first_not_of("0123456789", kOpening.size());
            if (end == std::string_view::npos || !rest.substr(end).starts_with("\"/>")) break;
            const std::string_view value = rest.substr(0, end).substr(kOpening.size());
            rows.push_back({parent.ChildCount(), std::string(value)});
            rest.remove_prefix(end + 3);
            taken.bytes = text.size() - rest.size();
            ++taken.elements;
            taken.variables += fVariablesEach;
        }
        fCount += taken.elements;
        return taken;
    }

    std::map<const zRecord*, std::vector<Row>> fRows;  // by parent, null for the root
    unsigned int fCount = 0;
    unsigned int fVariablesEach = 1;
};

/// A stream that gives as many bytes at a time as it likes.
class Pieces final : public zStream {
public:
    Pieces(std::string_view text, unsigned int seed) : fText(text), fRandom(seed), fSeed(seed) {}

    int Read(void* data, unsigned long size, unsigned long* got) override {
        const unsigned long most = fSeed == 0 ? size : 1 + fRandom() % 5000;
        *got = fText.copy(static_cast<char*>(data), std::min(size, most));
        fText.remove_prefix(*got);
        return 0;
    }
    int Write(const void* /*data*/, unsigned long /*size*/) override { return -1; }
    int Flush() override { return 0; }

private:
    std::string_view fText;
    std::mt19937 fRandom;
    const unsigned int fSeed;  // 0: all that is asked for
};

std::string written(const zRecord& record, const Rows& rows, bool isRoot) {
    std::string text = "(";
    text.append(record.AsString(kTagID, "-")).append(" ").append(record.AsString("v", "-"));
    const auto found = rows.fRows.find(isRoot ? nullptr : &record);
    auto row =
        found == rows.fRows.end() ? decltype(found->second.begin()){} : found->second.begin();
    const auto appendRows = [&](unsigned int children) {
        if (found == rows.fRows.end()) return;
        for (; row != found->second.end() && row->childrenBefore <= children; ++row) {
            text.append("(r ").append(row->value).append(")");
        }
    };
    for (unsigned int i = 0; i < record.ChildCount(); ++i) {
        appendRows(i);
        text += written(*record.Child(i), rows, false);
    }
    appendRows(0xFFFFFFFF);
    text += ')';
    return text;
}

struct Outcome {
    int result = 0;
    std::string text;
    unsigned int taken = 0;
};

Outcome parse(const std::string& document, unsigned int seed, Rows* rows) {
    zRecord record;
    Pieces stream(document, seed);
    Outcome outcome;
    outcome.result = zXML::ParseStream(zXML::kAttributes, &record, &stream, rows);
    if (outcome.result == 0) outcome.text = written(record, rows ? *rows : Rows(), true);
    if (rows != nullptr) outcome.taken = rows->fCount;
    return outcome;
}

/// The number of elements that the shortcut took, after a comparison of what the document says.
unsigned int taken_of(const std::string& document, unsigned int seed = 0) {
    const Outcome plain = parse(document, seed, nullptr);
    Rows rows;
    const Outcome shortened = parse(document, seed, &rows);
    EXPECT_EQ(shortened.result, plain.result) << document.substr(0, 2000);
    EXPECT_TRUE(shortened.text == plain.text) << document.substr(0, 2000);
    return shortened.taken;
}

std::string rows_of(unsigned int count) {
    std::string text;
    for (unsigned int i = 0; i < count; ++i)
        text.append(kOpening).append(std::to_string(i)).append("\"/>");
    return text;
}

TEST(XMLShortcut, TakesElementsThatStandBetweenTags) {
    const struct {
        const char* document;
        unsigned int taken;
    } cases[] = {
        {"<a><r v=\"1\"/><r v=\"2\"/></a>", 2},
        {"<a><b/><r v=\"1\"/><b><r v=\"2\"/></b>text<r v=\"3\"/></a>", 3},
        {"<a><r v=\"1\"/> <r v=\"x\"/><r v=\"2\"/></a>", 1},  // another form: the parser's turn
        {"<a><r v=\"1\"/>\n<r v=\"2\"/>", 2},                 // no end
        {"<a><b><r v=\"1\"/>", 1},                            // the open parent stays for it
        {"<a><r v=\"1\"/><b", 1},
        {"<a><r v=\"1\"/></b>", 1},  // not well-formed
        {"<a><!-- <r v=\"1\"/> --></a>", 0},
        {"<a><!-- <r v=\"1\"/>", 0},
        {"<a><![CDATA[ <r v=\"1\"/> ]]></a>", 0},
        {"<a><![CDATA[<r v=\"1\"/>", 0},
        {"<a><![CDATA[ x ]]><r v=\"1\"/></a>", 1},
        {"<a><?pi <r v=\"1\"/> ?></a>", 0},
        {"<a>]]<r v=\"1\"/>></a>", 0},
        {"<a>]<r v=\"1\"/>]></a>", 0},
        {"<a>\r<r v=\"1\"/></a>", 0},  // the parser waits: a line feed may follow
        {"<a>&amp;<r v=\"1\"/></a>", 1},
        {"<a>&am<r v=\"1\"/></a>", 0},
        {"<a b='<r v=\"1\"/>'/>", 0},
        {"<a <r v=\"1\"/>/>", 0},
        {"<r v=\"1\"/>", 0},  // the root itself
        {"<a/><r v=\"1\"/>", 0},
        {"<!DOCTYPE a><a><r v=\"1\"/></a>", 0},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE9<r v=\"1\"/></a>", 1},
        {"<a>\xE9<r v=\"1\"/></a>", 0},  // half a character
        {"", 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.document);
        EXPECT_EQ(taken_of(test.document), test.taken);
    }
}

TEST(XMLShortcut, KeepsOutOfWideCharacters) {
    // Bytes that look like a row are other characters there.
    std::string document("\xFF\xFE<\0a\0>\0", 8);
    document += std::string(kOpening) + "17\"/> ";
    document += std::string("<\0/\0a\0>\0", 8);
    EXPECT_EQ(taken_of(document), 0u);
}

TEST(XMLShortcut, LongListsAreTakenToTheLastElement) {
    for (const unsigned int count : {1000u, 30000u}) {
        const std::string list = rows_of(count);
        EXPECT_EQ(taken_of("<a><b>" + list + "</b></a>"), count);
        EXPECT_EQ(taken_of("<a><b>" + list + std::string(5000, '\0')), count);
        EXPECT_EQ(taken_of("<a><b>" + list.substr(0, list.size() - 1)), count - 1);
    }
}

TEST(XMLShortcut, LongCommentsAreReadInOnePass) {
    // In pieces that each begin with a row this would take the parser hours.
    EXPECT_EQ(taken_of("<a><!--" + rows_of(500000) + "--></a>"), 0u);
}

TEST(XMLShortcut, DocumentsSayTheSameWhereverTheyAreCut) {
    const std::string document =
        "<a><b><r v=\"1\"/><c/><!--<r v=\"2\"/>--><r v=\"3\"/></b><![CDATA[<r v=\"4\"/>]]>"
        "<r v=\"5\"/><d><e><r v=\"6\"/></e></d>]]<r v=\"7\"/></a>";
    for (std::size_t size = 0; size <= document.size(); ++size) {
        SCOPED_TRACE(size);
        taken_of(document.substr(0, size));
        taken_of(document.substr(0, size) + std::string(100, '\0'));
    }
}

/// Any nesting of what may and what may not hold rows.
void append_content(std::string& text, std::mt19937& random, int depth) {
    static const std::vector<std::string> kPlain = {
        "text ",        "]]",          "]",    "\r",
        "\n",           "&lt;",        "<x/>", "<r v=\"a\"/>",
        "<r w=\"1\"/>", "<r v=\"1\">", "</r>", "<r v=\"12345678901234567890123\"/>"};
    static const std::vector<std::pair<std::string, std::string>> kAround = {
        {"<n v=\"9\">", "</n>"},
        {"<m>", "</m>"},
        {"<!--", "-->"},
        {"<![CDATA[", "]]>"},
        {"<?p ", "?>"}};
    const unsigned int count = 1 + random() % 6;
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned int what = random() % 20;
        if (what < 9) {
            text += rows_of(what == 0 ? random() % 9000 : random() % 4);
        } else if (what < 15 && depth > 0) {
            const auto& [before, behind] = kAround[random() % kAround.size()];
            text += before;
            append_content(text, random, depth - 1);
            text += behind;
        } else {
            // Most of these make a document that is wrong: not too many of them.
            text += kPlain[random() % (what == 19 ? kPlain.size() : 9)];
        }
    }
}

TEST(XMLShortcut, AnyDocumentSaysTheSame) {
    unsigned int taken = 0;
    for (unsigned int seed = 1; seed <= 600; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        std::string document = "<a>";
        append_content(document, random, 5);
        document += "</a>";
        if (seed % 3 == 0) document.resize(random() % document.size());
        if (seed % 7 == 0 && !document.empty()) document[random() % document.size()] = '>';
        taken += taken_of(document, seed % 2 == 0 ? seed : 0);
    }
    EXPECT_GT(taken, 10000u);
}

// Bounds

TEST(XMLShortcut, TakenElementsCountAgainstTheBound) {
    for (const unsigned int count : {zXML::kMaxElements - 1, zXML::kMaxElements}) {
        Rows rows;
        const int expected = count < zXML::kMaxElements ? 0 : zXML::kTooBig;
        EXPECT_EQ(parse("<a>" + rows_of(count) + "</a>", 0, &rows).result, expected);
    }
}

TEST(XMLShortcut, TakenVariablesCountAgainstTheBound) {
    constexpr unsigned int kEach = 8;
    for (const unsigned int more : {0u, 1u}) {
        Rows rows;
        rows.fVariablesEach = kEach;
        const std::string document = "<a>" + rows_of(zXML::kMaxVariables / kEach + more) + "</a>";
        EXPECT_EQ(parse(document, 0, &rows).result, more == 0 ? 0 : zXML::kTooBig);
    }
}

TEST(XMLShortcut, DepthIsBoundedAllTheSame) {
    for (const int depth : {zXML::kMaxDepth - 1, zXML::kMaxDepth}) {
        std::string document;
        for (int i = 0; i < depth; ++i) document += "<a>";
        const unsigned int expected = depth < zXML::kMaxDepth ? 1 : 0;
        EXPECT_EQ(taken_of(document + "<r v=\"1\"/>"), expected);
    }
}

}  // namespace
