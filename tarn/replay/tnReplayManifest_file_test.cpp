#include <algorithm>
#include <filesystem>
#include <limits>
#include <random>

#include "spar/zXML.h"

#include "tests/support/ReplayFixture.h"

// The manifest's file: what is written, and what a reader makes of good and bad ones.

using tests::Ids;
using tests::ReadText;
using tests::WriteText;

namespace {

constexpr char kHead[] = "<larkspur_replay_manifest>\n<formats>\n";
constexpr char kFormats[] =
    "<_xrecord type=\"int32:1986618479\" tn_width=\"int32:640\"/>\n"
    "<_xrecord type=\"int32:1635083375\" samplerate=\"int32:48000\"/>\n";
constexpr char kOpenSegments[] = "</formats>\n<segments>\n";
constexpr char kEnd[] = "</segments>\n</larkspur_replay_manifest>";

std::string element(const std::string& id, const std::string& start, const std::string& stop) {
    return "<segment id=\"" + id + "\" start=\"" + start + "\" stop=\"" + stop + "\"/>\n";
}

std::string segment(unsigned int id, long long start, long long stop) {
    return element("uint32:" + std::to_string(id), "int64:" + std::to_string(start),
                   "int64:" + std::to_string(stop));
}

std::string document(const std::string& segments) {
    return std::string(kHead) + kFormats + kOpenSegments + segments + kEnd;
}

class ReplayManifestFile : public tests::ReplayTest {
protected:
    ReplayManifestFile() {
        for (int id = 1; id <= 9; ++id) MakeMovie(id);
    }
    /// Reads `text` as a manifest; `ids` are those that it lists then.
    int ReadFrom(const std::string& text, Ids* ids = nullptr) {
        WriteText(Path(), text);
        return ReadAgain(ids);
    }
    int ReadAgain(Ids* ids = nullptr) {
        Reopen();
        const int result = fManifest->Read();
        if (ids != nullptr) *ids = Listed();
        return result;
    }
};

TEST_F(ReplayManifestFile, StandsInTheFileAsItIsRecorded) {
    ASSERT_EQ(Begin(), 0);
    const std::string head = Text();
    EXPECT_TRUE(head.starts_with(kHead)) << head;
    EXPECT_TRUE(head.ends_with(kOpenSegments)) << head;
    // A line for each format, by the four characters of its type as a signed number.
    EXPECT_EQ(head.find("<_xrecord type=\"int32:1986618479\" "), sizeof kHead - 1) << head;
    EXPECT_NE(head.find("/>\n<_xrecord type=\"int32:1635083375\" "), std::string::npos) << head;
    EXPECT_NE(head.find("tn_width=\"int32:640\""), std::string::npos);
    EXPECT_NE(head.find("samplerate=\"int32:48000\""), std::string::npos);
    EXPECT_EQ(fManifest->AddSegment(17, 0, 40000), 0);
    EXPECT_EQ(Text(), head + segment(17, 0, 40000));
    EXPECT_EQ(fManifest->AddSegment(4294967295u, -7, std::numeric_limits<long long>::max()), 0);
    const std::string both = head + segment(17, 0, 40000) +
                             segment(4294967295u, -7, std::numeric_limits<long long>::max());
    EXPECT_EQ(Text(), both);
    fManifest->StopRecording();
    EXPECT_EQ(Text(), both + kEnd);
}

TEST_F(ReplayManifestFile, FormatsAreThoseOfTheBeginningWithAllTheirKeys) {
    tnMediaRecord video = Video();
    video.SetCString("file_extension", "mp4");
    video.SetCString("a key of the host's", "\"quoted\" & <bracketed>");
    ASSERT_EQ(fManifest->BeginRecording(video, Audio()), 0);
    video.SetCString("file_extension", "avi");
    fManifest->StopRecording();
    ASSERT_EQ(ReadAgain(), 0);
    const tnMediaRecord back = tnReplayManifestAccess::VideoFormat(*fManifest);
    EXPECT_STREQ(back.AsCString("file_extension", ""), "mp4");
    EXPECT_STREQ(back.AsCString("a key of the host's", ""), "\"quoted\" & <bracketed>");
    EXPECT_EQ(back.fWidth.AsInt32(0), 640);
    EXPECT_EQ(back.AsInt32('tmsc', 0), 25000);
    const tnMediaRecord audio = tnReplayManifestAccess::AudioFormat(*fManifest);
    EXPECT_EQ(audio.fSampleRate.AsInt32(0), 48000);
    EXPECT_EQ(audio.fType.AsInt32(0), static_cast<int>(TN_MEDIA_AUDIO));
}

TEST_F(ReplayManifestFile, WritingNeedsAnOpenFile) {
    EXPECT_EQ(tnReplayManifestAccess::WriteBegin(*fManifest), -1);
    EXPECT_EQ(tnReplayManifestAccess::WriteSegment(*fManifest, tnReplaySegment(1, 0, 1)), -1);
    EXPECT_EQ(tnReplayManifestAccess::WriteEnd(*fManifest), -1);
    EXPECT_FALSE(zFileStream::Exists(Path().c_str()));
    ASSERT_EQ(Begin(), 0);
    EXPECT_EQ(tnReplayManifestAccess::WriteEnd(*fManifest), 0);
}

TEST_F(ReplayManifestFile, SegmentFilesAreNamedByTheirIds) {
    zString path;
    const tnReplaySegment first(3, 0, 1);
    EXPECT_EQ(fManifest->GetSegmentPath(&first, path), 0);
    EXPECT_EQ(path, Movie("3.mov"));
    const tnReplaySegment missing(30, 0, 1);
    EXPECT_EQ(fManifest->GetSegmentPath(&missing, path), -1);
    EXPECT_EQ(path, Movie("30.mov"));
    const tnReplaySegment high(2147483648u, 0, 1);
    EXPECT_EQ(fManifest->GetSegmentPath(&high, path), -1);
    EXPECT_EQ(path, Movie("-2147483648.mov"));
    WriteText(Movie("-1.mov"), "movie");
    const tnReplaySegment last(4294967295u, 0, 1);
    EXPECT_EQ(fManifest->GetSegmentPath(&last, path), 0);
    EXPECT_EQ(path, Movie("-1.mov"));
}

TEST_F(ReplayManifestFile, ExtensionComesWithTheVideoFormat) {
    tnMediaRecord video = Video();
    video.SetCString("file_extension", "mp4");
    ASSERT_EQ(fManifest->BeginRecording(video, Audio()), 0);
    WriteText(Movie("1.mp4"), "movie");
    EXPECT_EQ(fManifest->AddSegment(1, 0, 10), 0);
    EXPECT_EQ(fManifest->AddSegment(2, 10, 20), 0);  // 2.mov does not count
    fManifest->StopRecording();
    ASSERT_EQ(ReadAgain(), 0);
    EXPECT_EQ(Listed(), Ids{1});
}

TEST_F(ReplayManifestFile, ExtensionThatIsNoTextIsNone) {
    tnMediaRecord video = Video();
    video.SetInt32("file_extension", 5);
    ASSERT_EQ(fManifest->BeginRecording(video, Audio()), 0);
    zString path;
    const tnReplaySegment first(1, 0, 1);
    EXPECT_EQ(fManifest->GetSegmentPath(&first, path), 0);
    EXPECT_EQ(path, Movie("1.mov"));
}

TEST_F(ReplayManifestFile, ReadLoadsWhatWasRecorded) {
    Record(3);
    fManifest->StopRecording();
    ASSERT_EQ(ReadAgain(), 0);
    EXPECT_EQ(Listed(), (Ids{1, 2, 3}));
    EXPECT_EQ(fManifest->VideoDuration(), 300);
    EXPECT_FALSE(fManifest->IsRecording());
    EXPECT_EQ(fManifest->BeginRecording(Video(), Audio()), -1);  // it has content
}

// Files of long recordings are looked for in one listing of the folder.

TEST_F(ReplayManifestFile, LongListLeavesOutWhatHasNoFile) {
    constexpr unsigned int kCount = 200;
    Record(kCount);
    // Past what fits into "%d": its file has a negative name.
    WriteText(Movie("-2.mov"), "movie");
    ASSERT_EQ(fManifest->AddSegment(0xFFFFFFFEu, 20000, 20100), 0);
    Close();
    for (const char* gone : {"1.mov", "64.mov", "99.mov", "120.mov", "150.mov", "200.mov"}) {
        std::filesystem::remove(Movie(gone));
    }
    WriteText(Movie("64.mp4"), "another extension");
    WriteText(Movie("064.mov"), "another name");
    std::filesystem::create_symlink(Movie("nowhere"), Movie("99.mov"));
    std::filesystem::create_symlink(Movie("2.mov"), Movie("120.mov"));
    std::filesystem::create_directory(Movie("150.mov"));
    Ids expected;
    for (unsigned int id = 1; id <= kCount; ++id) {
        if (id != 1 && id != 64 && id != 99 && id != 200) expected.push_back(id);
    }
    expected.push_back(0xFFFFFFFEu);
    EXPECT_EQ(InFile(), expected);
}

TEST_F(ReplayManifestFile, LongListHasTheExtensionOfItsFormat) {
    tnMediaRecord video = Video();
    video.SetCString("file_extension", "seg.mxf");
    ASSERT_EQ(fManifest->BeginRecording(video, Audio()), 0);
    Ids expected;
    for (unsigned int id = 1; id <= 100; ++id) {
        ASSERT_EQ(fManifest->AddSegment(id, id * 100, id * 100 + 100), 0);
        if (id % 2 == 0) expected.push_back(id);
        WriteText(Movie(std::to_string(id) + (id % 2 == 0 ? ".seg.mxf" : ".mov")), "movie");
    }
    Close();
    EXPECT_EQ(InFile(), expected);
}

TEST_F(ReplayManifestFile, ReadTwiceParsesOnce) {
    ASSERT_EQ(ReadFrom(document(segment(1, 0, 10))), 0);
    WriteText(Path(), "no XML at all");
    EXPECT_EQ(fManifest->Read(), 0);
    EXPECT_EQ(Listed(), Ids{1});
}

TEST_F(ReplayManifestFile, ReadWhileRecordingDoesNothing) {
    ASSERT_EQ(Begin(), 0);
    const std::string before = Text();
    EXPECT_EQ(fManifest->Read(), 0);
    EXPECT_TRUE(fManifest->IsEmpty());
    EXPECT_EQ(Text(), before);
    Add(1);
    EXPECT_EQ(fManifest->Read(), 0);
    EXPECT_EQ(Listed(), Ids{1});
}

TEST_F(ReplayManifestFile, LastEntryOfTheFileGivesTheDuration) {
    Ids ids;
    EXPECT_EQ(ReadFrom(document(segment(2, 100, 200) + segment(1, 0, 100)), &ids), 0);
    EXPECT_EQ(ids, (Ids{1, 2}));
    EXPECT_EQ(fManifest->VideoDuration(), 100);
}

TEST_F(ReplayManifestFile, LaterOfTwoFormatsOfATypeCounts) {
    const std::string twoVideos =
        "<_xrecord type=\"int32:1986618479\" tn_width=\"int32:1\"/>\n"
        "<_xrecord type=\"int32:1986618479\" tn_width=\"int32:2\"/>\n";
    EXPECT_EQ(ReadFrom(std::string(kHead) + twoVideos + kOpenSegments + kEnd), 0);
    EXPECT_EQ(tnReplayManifestAccess::VideoFormat(*fManifest).fWidth.AsInt32(0), 2);
    EXPECT_TRUE(tnReplayManifestAccess::AudioFormat(*fManifest).IsEmpty());
}

TEST_F(ReplayManifestFile, OverlappingEntriesDisplaceEachOther) {
    const tests::DisplacedSegments displaced;
    Ids ids;
    EXPECT_EQ(
        ReadFrom(document(segment(1, 0, 100) + segment(2, 50, 150) + segment(3, 150, 160)), &ids),
        0);
    EXPECT_EQ(ids, (Ids{2, 3}));
    EXPECT_EQ(fManifest->VideoDuration(), 160);
}

struct BadFile {
    const char* fName;
    std::string fText;
    int fResult;
    Ids fIDs;
};

std::vector<BadFile> bad_entries() {
    const auto one = [](const char* name, const std::string& bad) {
        return BadFile{name, document(bad + segment(2, 200, 300)), 0, {2}};
    };
    return {
        one("id 0", segment(0, 0, 100)),
        one("stop at start", segment(1, 100, 100)),
        one("stop before start", segment(1, 100, 99)),
        one("file missing", segment(77, 0, 100)),
        one("no attributes", "<segment/>\n"),
        one("id missing", "<segment start=\"int64:0\" stop=\"int64:100\"/>\n"),
        one("id is a word", element("first", "int64:0", "int64:100")),
        one("id is negative", element("int64:-1", "int64:0", "int64:100")),
        one("id is past 32 bits", element("int64:4294967297", "int64:0", "int64:100")),
        one("id is a kind that is none", element("int99:1", "int64:0", "int64:100")),
        one("stop is past 64 bits", element("uint32:1", "int64:0", "99999999999999999999999")),
        one("stop is a word", element("uint32:1", "int64:0", "later")),
        one("stop is not a number", element("uint32:1", "int64:0", "double:nan")),
        one("path in an id", element("../1", "int64:0", "int64:100")),
        one("nested segment", "<list>" + segment(1, 0, 100) + "</list>\n"),
    };
}

TEST_F(ReplayManifestFile, BadEntriesAreDroppedAndTheOthersLoad) {
    for (const BadFile& bad : bad_entries()) {
        SCOPED_TRACE(bad.fName);
        Ids ids;
        EXPECT_EQ(ReadFrom(bad.fText, &ids), bad.fResult);
        EXPECT_EQ(ids, bad.fIDs);
        EXPECT_EQ(fManifest->VideoDuration(), 300);
    }
}

TEST_F(ReplayManifestFile, OddEntriesThatAreGoodOnesLoad) {
    const BadFile cases[] = {
        {"negative times", document(segment(1, -200, -100)), 0, {1}},
        {"the whole of time",
         document(segment(1, std::numeric_limits<long long>::min(),
                          std::numeric_limits<long long>::max())),
         0,
         {1}},
        {"numbers without kinds", document(element("1", "0", "100")), 0, {1}},
        {"fractions", document(element("double:1", "double:0.5", "double:1e3")), 0, {1}},
        {"another element name", document("<part id=\"1\" start=\"0\" stop=\"100\"/>\n"), 0, {1}},
        {"unknown attributes",
         document("<segment id=\"1\" mood=\"blue\" start=\"0\" stop=\"100\"/>\n"),
         0,
         {1}},
    };
    for (const BadFile& odd : cases) {
        SCOPED_TRACE(odd.fName);
        Ids ids;
        EXPECT_EQ(ReadFrom(odd.fText, &ids), odd.fResult);
        EXPECT_EQ(ids, odd.fIDs);
    }
}

std::vector<BadFile> bad_files() {
    const std::string one = "<_xrecord type=\"int32:1986618479\" tn_width=\"int32:640\"/>\n";
    const std::string list = segment(1, 0, 100);
    const std::string root = "<larkspur_replay_manifest>\n";
    const std::string segments = "<segments>\n" + list + kEnd;
    const std::string formats = std::string("<formats>\n") + kFormats + "</formats>\n";
    std::string deep;
    for (int level = 0; level < 300; ++level) deep += "<a>";
    std::string many;
    for (int index = 0; index < 5000; ++index) many += " k" + std::to_string(index) + "=\"\"";
    return {
        {"empty file", "", zXML::kNoElement, {}},
        {"no XML", "no XML at all", zXML::kNotWellFormed, {}},
        {"binary", std::string("\0\1\2\3\377", 5), zXML::kNotWellFormed, {}},
        {"no formats", root + segments, -1, {}},
        {"no segments", root + formats + "</larkspur_replay_manifest>", -1, {}},
        {"one format", root + "<formats>\n" + one + "</formats>\n" + segments, -1, {}},
        {"three formats",
         root + "<formats>\n" + one + one + one + "</formats>\n" + segments,
         -1,
         {}},
        {"formats without children", root + "<formats>\n</formats>\n" + segments, -1, {}},
        {"an empty list", document(""), 0, {}},
        {"an empty list as one tag",
         root + formats + "<segments/>\n</larkspur_replay_manifest>",
         0,
         {}},
        {"lists before formats",
         root + "<segments>\n" + list + "</segments>\n" + formats + "</larkspur_replay_manifest>",
         0,
         {1}},
        {"unknown elements", root + "<x><y/></x>" + formats + "<z/>text" + segments, 0, {1}},
        {"sections deeper down",
         "<other><more>" + formats + "<segments>" + list + "</segments></more></other>",
         0,
         {1}},
        {"two lists: the first counts",
         root + formats + "<segments>" + list + "</segments><segments>" + segment(2, 100, 200) +
             kEnd,
         0,
         {1}},
        {"end tags crossed",
         root + formats + "<segments>" + list + "</formats>",
         zXML::kNotWellFormed,
         {}},
        {"something behind the end", document(list) + "<more/>", zXML::kNotWellFormed, {}},
        {"document type",
         "<!DOCTYPE larkspur_replay_manifest [<!ENTITY a \"b\">]>" + document(list),
         zXML::kDoctype,
         {}},
        {"an entity that nobody declared", document("&bomb;" + list), zXML::kNotWellFormed, {}},
        {"too deep", document(deep), zXML::kTooDeep, {}},
        {"too many attributes", document("<segment" + many + "/>"), zXML::kTooBig, {}},
    };
}

TEST_F(ReplayManifestFile, BadFilesGiveTheirResults) {
    for (const BadFile& bad : bad_files()) {
        SCOPED_TRACE(bad.fName);
        Ids ids;
        EXPECT_EQ(ReadFrom(bad.fText, &ids), bad.fResult);
        EXPECT_EQ(ids, bad.fIDs);
    }
}

TEST_F(ReplayManifestFile, CountOfFormatsComesBeforeTheirTakingOver) {
    const std::string one = "<_xrecord type=\"int32:1986618479\" tn_width=\"int32:640\"/>\n";
    EXPECT_EQ(ReadFrom(std::string(kHead) + one + kOpenSegments + segment(1, 0, 100) + kEnd), -1);
    EXPECT_TRUE(tnReplayManifestAccess::VideoFormat(*fManifest).IsEmpty());
    EXPECT_TRUE(fManifest->IsEmpty());
}

TEST_F(ReplayManifestFile, MissingListLeavesTheFormatsThatWereRead) {
    EXPECT_EQ(ReadFrom(std::string(kHead) + kFormats + "</formats></larkspur_replay_manifest>"),
              -1);
    EXPECT_EQ(tnReplayManifestAccess::VideoFormat(*fManifest).fWidth.AsInt32(0), 640);
}

TEST_F(ReplayManifestFile, MissingFileIsTold) {
    EXPECT_EQ(fManifest->Read(), -5002);
    EXPECT_EQ(tnReplayManifest("/dev/null/replay.xml").Read(), -5020);
    EXPECT_TRUE(fManifest->IsEmpty());
}

TEST_F(ReplayManifestFile, TooManyElementsAreRefused) {
    std::string many;
    many.reserve(4 * zXML::kMaxElements);
    for (unsigned int index = 0; index < zXML::kMaxElements; ++index) many += "<a/>";
    EXPECT_EQ(ReadFrom(document(many)), zXML::kTooBig);
}

/// What a file gives that ends after `size` bytes of `text`: the segments whose elements stand
/// complete; -1 as long as there is none, and an error before the root stands.
int result_of_cut(const std::string& text, std::size_t size, Ids* ids) {
    ids->clear();
    const std::size_t root = text.find('>') + 1;
    for (std::size_t end = text.find("<segment "); end != std::string::npos;
         end = text.find("<segment ", end)) {
        end = text.find("/>", end) + 2;
        if (end > size) break;
        ids->push_back(static_cast<unsigned int>(ids->size()) + 1);
    }
    if (size < root) return zXML::kNoElement;
    return ids->empty() ? -1 : 0;
}

TEST_F(ReplayManifestFile, FileCutAtAnyByteGivesWhatStandsComplete) {
    Record(5);
    fManifest->StopRecording();
    const std::string whole = Text();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        SCOPED_TRACE(whole.substr(0, size));
        Ids expected;
        const int result = result_of_cut(whole, size, &expected);
        Ids ids;
        ASSERT_EQ(ReadFrom(whole.substr(0, size), &ids), result);
        ASSERT_EQ(ids, expected);
    }
}

TEST_F(ReplayManifestFile, FileThatTheMachineLeftWithZerosReads) {
    Record(3);
    const std::string text = Text();
    Ids ids;
    EXPECT_EQ(ReadFrom(text + std::string(4096, '\0'), &ids), 0);
    EXPECT_EQ(ids, (Ids{1, 2, 3}));
}

/// Lines of a good file in any order, some of them lost: a result, and no more than what stands in
/// it.
TEST_F(ReplayManifestFile, ShuffledLinesDoNoHarm) {
    Record(9);
    fManifest->StopRecording();
    std::vector<std::string> lines;
    std::istringstream text(Text());
    for (std::string line; std::getline(text, line);) lines.push_back(line + "\n");
    std::mt19937 random(61);
    for (int round = 0; round < 300; ++round) {
        std::vector<std::string> shuffled = lines;
        std::shuffle(shuffled.begin() + 1, shuffled.end() - 1, random);
        shuffled.resize(1 + random() % shuffled.size());
        std::string file;
        for (const std::string& line : shuffled) file += line;
        Ids ids;
        const int result = ReadFrom(file, &ids);
        EXPECT_LE(result, 0);
        EXPECT_LE(ids.size(), 9u);
        EXPECT_TRUE(result == 0 || ids.empty());
    }
}

TEST_F(ReplayManifestFile, DamagedBytesDoNoHarm) {
    Record(4);
    fManifest->StopRecording();
    const std::string whole = Text();
    std::mt19937 random(62);
    for (int round = 0; round < 500; ++round) {
        std::string file = whole;
        for (unsigned int count = 1 + random() % 4; count > 0; --count) {
            file[random() % file.size()] = static_cast<char>(random());
        }
        // A damaged time may overlap its neighbour, and the displaced segment is not freed.
        const tests::DisplacedSegments displaced;
        EXPECT_LE(ReadFrom(file), 0);
    }
}

}  // namespace
