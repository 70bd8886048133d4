#include "tarn/replay/SegmentRows.h"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/ReplayFixture.h"
#include "tests/support/plainManifest.h"

// Segments that are read off the text beside a reading of the same manifest that knows nothing of
// such ways.

namespace {

constexpr char kFormats[] =
    "<formats>\n<_xrecord type=\"int32:1986618479\"/>\n"
    "<_xrecord type=\"int32:1635083375\"/>\n</formats>\n";

std::string row(unsigned int id, long long start, long long stop) {
    return "<segment id=\"uint32:" + std::to_string(id) +
           "\" start=\"int64:" + std::to_string(start) + "\" stop=\"int64:" + std::to_string(stop) +
           "\"/>\n";
}

class ReplaySegmentRows : public tests::ReplayTest {
protected:
    ReplaySegmentRows() {
        for (int id = 1; id <= 9; ++id) MakeMovie(id);
        MakeMovie(-2);
    }
    /// Reads `text` both ways; whether it reads at all.
    bool Compare(const std::string& text) {
        const tests::DisplacedSegments displaced;
        tests::WriteText(Path(), text);
        const tests::PlainManifest plain(fFolder.Path(), Path());
        Reopen();
        EXPECT_EQ(fManifest->Read(), plain.Result()) << text.substr(0, 2000);
        EXPECT_EQ(Listed(), plain.IDs()) << text.substr(0, 2000);
        EXPECT_EQ(fManifest->VideoDuration(), plain.Duration()) << text.substr(0, 2000);
        return plain.Result() == 0;
    }
};

TEST_F(ReplaySegmentRows, OddDocumentsReadAsThePlainWay) {
    const std::string formats = kFormats;
    const std::string rows = row(1, 0, 10) + row(2, 10, 20);
    const std::string list = "<segments>\n" + rows + "</segments>\n";
    const std::string documents[] = {
        "<m>\n" + formats + list + "</m>",
        "<m>\n" + list + formats + "</m>",
        "<m>\n" + formats + list + "<segments>\n" + row(3, 30, 40) + "</segments>\n</m>",
        "<m>\n" + formats + "<segments/>" + list + "</m>",
        "<m>\n" + formats + "<segments>\n" + list + row(3, 20, 30) + "</segments>\n</m>",
        "<m>\n" + formats + "<segments>\n" + row(3, 20, 30) + list + row(4, 30, 40) +
            "</segments>\n</m>",
        "<m>\n" + formats + "<x>" + list + "</x>" + list + "</m>",
        "<segments>\n" + formats + rows + "</segments>",
        "<segments>\n" + formats + rows + list + "</segments>",
        "<m><formats>" + list + formats + "</formats></m>",
        "<m>\n" + formats + "<_x73_egments>\n" + rows + "</_x73_egments>\n" + list + "</m>",
        "<m>\n" + formats + "<q _xid_78546167=\"segments\">\n" + rows + "</q>\n" + list + "</m>",
        "<m>\n" + formats + "<segments _xid_78546167=\"q\">\n" + row(5, 0, 1) + "</segments>\n" +
            list + "</m>",
        "<m>\n" + formats + "<!-- " + list + " -->" + list + "</m>",
        "<m>\n" + formats + "<![CDATA[ " + list + " ]]></m>",
        "<m>\n" + formats + "<segments><!--\n" + rows + "-->" + row(3, 0, 5) + "</segments></m>",
        "<m>\n" + formats + "<segments><![CDATA[" + rows + "]]>" + row(3, 0, 5) + "</segments></m>",
        "<m>\n" + formats + "<segments><x>" + rows + "</x>" + row(3, 0, 5) + "</segments></m>",
        "<m>\n" + formats + list,
        "<m>\n" + formats + "<segments>\n" + rows + "<x>",
        "<m>\n" + formats + "<segments>\n" + rows + "</x>",
        "<m>\n" + formats + "<segments>\n" + rows + std::string(50, '\0'),
        "<m>\n<formats><x/></formats>" + list + "</m>",
        "<m>\n" + list + "</m>",
    };
    for (const std::string& document : documents) Compare(document);
}

TEST_F(ReplaySegmentRows, OddEntriesReadAsThePlainWay) {
    const std::string entries[] = {
        row(0, 0, 10),
        row(3, 10, 10),
        row(30, 0, 10),          // no file
        row(4294967294u, 0, 9),  // a negative name
        row(3, -9223372036854775807ll - 1, 9223372036854775807ll),
        "<segment id=\"uint32:003\" start=\"int64:-0\" stop=\"int64:07\"/>\n",
        "<segment id=\"uint32:-3\" start=\"int64:0\" stop=\"int64:7\"/>\n",
        "<segment id=\"uint32:+3\" start=\"int64:0\" stop=\"int64:7\"/>\n",
        "<segment id=\"uint32:4294967299\" start=\"int64:0\" stop=\"int64:7\"/>\n",
        "<segment id=\"uint32:3\" start=\"int64:0\" stop=\"int64:9223372036854775808\"/>\n",
        "<segment id=\"uint32:3 \" start=\"int64:0\" stop=\"int64:7\"/>\n",
        "<segment id=\"uint32:\" start=\"int64:0\" stop=\"int64:7\"/>\n",
        "<segment id=\"3\" start=\"0\" stop=\"7\"/>\n",
        "<segment id=\"uint32:3\" start=\"int64:0\" stop=\"int64:7\"/>\r\n",
        "<segment id=\"uint32:3\" start=\"int64:0\" stop=\"int64:7\"></segment>\n",
        "<segment id=\"uint32:3\" start=\"int64:0\" stop=\"int64:7\" stop=\"int64:8\"/>\n",
        "<segment id=\"uint32:3\"  start=\"int64:0\" stop=\"int64:7\"/>\n",
        "<segment stop=\"int64:7\" id=\"uint32:3\" start=\"int64:0\"/>\n",
        "<x id=\"uint32:3\" start=\"int64:0\" stop=\"int64:7\"/>\n",
        "<segment id=\"uint32:3\" start=\"int64:5\" stop=\"int64:15\"><formats/></segment>\n",
    };
    for (const std::string& entry : entries) {
        SCOPED_TRACE(entry);
        for (const std::string& around : {std::string(), row(1, 0, 10), row(2, 3, 8)}) {
            Compare("<m>\n" + std::string(kFormats) + "<segments>\n" + around + entry + around +
                    "</segments>\n</m>");
        }
    }
}

TEST_F(ReplaySegmentRows, CutDocumentsReadAsThePlainWay) {
    const std::string document = "<m>\n" + std::string(kFormats) + "<segments>\n" + row(1, 0, 10) +
                                 row(2, 10, 20) + "<segment id=\"3\" start=\"20\" stop=\"30\"/>\n" +
                                 row(4, 30, 40) + "</segments>\n</m>";
    for (std::size_t size = 0; size <= document.size(); ++size) Compare(document.substr(0, size));
}

void append_elements(std::string& text, std::mt19937& random, int depth) {
    static const std::pair<const char*, const char*> kAround[] = {
        {"<segments>\n", "</segments>\n"},
        {"<formats>\n", "</formats>\n"},
        {"<x>", "</x>\n"},
        {"<segment id=\"3\" start=\"1\" stop=\"9\">", "</segment>"},
        {"<!--", "-->"},
        {"<![CDATA[", "]]>"}};
    const unsigned int count = 1 + random() % 5;
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned int what = random() % 12;
        if (what < 5 && depth > 0) {
            const auto& [before, behind] = kAround[random() % std::size(kAround)];
            text += before;
            append_elements(text, random, depth - 1);
            text += behind;
        } else if (what == 5) {
            text += kFormats;
        } else if (what == 6) {
            text +=
                "<segment id=\"" + std::to_string(random() % 11) + "\" start=\"5\" stop=\"40\"/>";
        } else {
            const unsigned int rows = what == 7 ? random() % 2000 : random() % 4;
            for (unsigned int j = 0; j < rows; ++j) {
                const long long start = random() % 300;
                text += row(random() % 11, start, start + random() % 40);
            }
        }
    }
}

TEST_F(ReplaySegmentRows, AnyDocumentReadsAsThePlainWay) {
    int read = 0;
    for (unsigned int seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        std::string document = "<m>\n";
        if (random() % 3 != 0) document += kFormats;
        append_elements(document, random, 4);
        document += "</m>";
        if (seed % 4 == 0) document.resize(random() % document.size());
        read += Compare(document) ? 1 : 0;
    }
    EXPECT_GT(read, 50);
}

}  // namespace
