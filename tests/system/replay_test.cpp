// `tarn replay` and the replay outputs of `tarn live`, as a user meets them: two processes, one
// recording and one that looks at it.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <sstream>

#include "spar/zRecord.h"
#include "spar/zThread.h"
#include "spar/zTime.h"
#include "spar/zXML.h"

#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"
#include "tests/support/WaitUntil.h"
#include "tests/system/liveKit.h"

using tests::BackgroundProcess;
using tests::ProcessResult;
using namespace std::chrono_literals;

namespace {

constexpr auto kPause = 500us;  // between looks at what another process writes

struct Piece {
    unsigned int fID;
    long long fFrom;
    long long fTo;
};

/// What a manifest lists, read without the code under test.
std::vector<Piece> listed_by(const std::string& manifest) {
    std::vector<Piece> pieces;
    zRecord record;
    if (zXML::ParseFile(1, &record, manifest.c_str()) != 0) return pieces;
    const zRecord* const segments =
        record.FindChildByStrVariable('xTag', "segments", true, 0xFFFFFFFF, Z_MATCH_EXACT);
    if (segments == nullptr) return pieces;
    for (const zRecord* child : segments->Children()) {
        pieces.push_back(
            {child->AsUInt32("id", 0), child->AsInt64("start", 0), child->AsInt64("stop", 0)});
    }
    return pieces;
}

std::vector<Piece> listed_in(const std::string& folder) {
    return listed_by(folder + "/replay.xml");
}

/// What a kill left of the recording in `folder`: by its manifest, or by the one before where less
/// stands in that. A deletion that was under way may have removed movies that are still listed.
std::vector<Piece> left_in(const std::string& folder) {
    const auto standing = [&folder](const char* manifest) {
        std::vector<Piece> pieces = listed_by(folder + manifest);
        std::erase_if(pieces, [&folder](const Piece& piece) {
            return !std::filesystem::exists(folder + "/" + std::to_string(piece.fID) + ".mov");
        });
        return pieces;
    };
    const std::vector<Piece> now = standing("/replay.xml");
    const std::vector<Piece> before = standing("/replay.xml.before");
    return before.size() > now.size() ? before : now;
}

class Replay : public testing::Test {
protected:
    std::string Folder() const { return fFolder.File("cam"); }
    std::string Movie(unsigned int id) const {
        return Folder() + "/" + std::to_string(id) + ".mov";
    }

    /// A show of generated pictures with a replay output.
    /// However busy the machine is, no frame is given up: tests count them.
    std::string Show(const std::string& settings, const std::string& video = "x264",
                     const std::string& audio = "MPEG-4 Audio") const {
        const std::string path = fFolder.File("show.xml");
        std::ofstream(path) << "<show>\n"
                            << "<source name=\"a\" picture=\"bars\" "
                               "fps=\"25\" tone=\"440\" catch_up=\"600\"/>\n"
                            << "<output source=\"a\" output_display_name=\"replay\" "
                               "kind=\"replay\" output_url=\""
                            << Folder() << "\" output_enabled=\"true\" " << settings << ">\n"
                            << "<video codecname=\"" << video << "\" target_bit_rate=\"500\"/>\n"
                            << "<audio codecname=\"" << audio << "\"/>\n"
                            << "</output>\n</show>\n";
        return path;
    }
    static std::vector<std::string> Live(const std::string& show, int seconds) {
        return {TARN_TOOL, "live", show, "--seconds", std::to_string(seconds)};
    }
    /// Records at least so many seconds of the show, at five times its pace where the machine comes
    /// to that.
    static ProcessResult Play(const std::string& show, double seconds) {
        liveKit::RunningShow running(show, {}, "5");
        EXPECT_TRUE(running.PlayTo(seconds));
        return running.Quit();
    }
    /// As many seconds as a test looks at, and half as many more.
    void Record(int seconds, const std::string& settings = "segment_seconds=\"1\"",
                const std::string& video = "x264",
                const std::string& audio = "MPEG-4 Audio") const {
        const ProcessResult result = Play(Show(settings, video, audio), 1.5 * seconds);
        ASSERT_EQ(result.exitCode, 0) << result.err;
    }
    /// Empties the folder; the words that record a minute into it, of which two seconds are kept.
    std::vector<std::string> KeepingTwoSeconds() const {
        std::filesystem::remove_all(Folder());
        std::vector<std::string> words =
            Live(Show("segment_seconds=\"0.4\" keep_seconds=\"2\""), 60);
        words.insert(words.end(), {"--speed", "4"});
        return words;
    }
    ProcessResult Replays(std::vector<std::string> words) const {
        words.insert(words.begin(), {TARN_TOOL, "replay", Folder()});
        return tests::Run(words);
    }
    /// Of the decoded pictures, one a line.
    static std::string Hashes(const std::string& path) {
        const std::string text =
            tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-i", path, "-map", "0:v:0",
                        "-fps_mode", "passthrough", "-f", "framemd5", "-"})
                .out;
        std::istringstream lines(text);
        std::string hashes;
        for (std::string line; std::getline(lines, line);) {
            if (line.empty() || line[0] == '#') continue;
            hashes += line.substr(line.rfind(' ') + 1) + "\n";
        }
        return hashes;
    }
    /// Peak of all channels in dB behind these filters, without the ends of the file.
    static double PeakOf(const std::string& path, const std::string& filters) {
        const std::string text =
            tests::Run({"ffmpeg", "-v", "info", "-nostdin", "-i", path, "-map", "0:a", "-af",
                        filters + "atrim=start=0.5:end=4.8,astats=metadata=0", "-f", "null", "-"})
                .err;
        const std::string key = "Peak level dB: ";
        const std::size_t at = text.rfind(key);
        return at == std::string::npos ? 0 : std::atof(text.c_str() + at + key.size());
    }
    static std::size_t CountOf(const std::string& text, const std::string& part) {
        std::size_t count = 0;
        for (std::size_t at = text.find(part); at != std::string::npos;
             at = text.find(part, at + part.size())) {
            ++count;
        }
        return count;
    }
    void ExpectToDecode(const std::vector<Piece>& pieces) const {
        for (const Piece& piece : pieces) {
            SCOPED_TRACE(piece.fID);
            const ProcessResult decoded =
                tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-xerror", "-i", Movie(piece.fID),
                            "-f", "null", "-"});
            EXPECT_EQ(decoded.exitCode, 0) << decoded.err;
            EXPECT_EQ(decoded.err, "");
            const double seconds = static_cast<double>(piece.fTo - piece.fFrom) / 1e6;
            EXPECT_NEAR(tests::CountFrames(Movie(piece.fID)), seconds * 25, 0.5);
        }
    }

    tests::TestFolder fFolder;
};

TEST_F(Replay, ListShowsTheTimelineAndItsGaps) {
    Record(10);
    const std::vector<Piece> pieces = listed_in(Folder());
    ASSERT_GE(pieces.size(), 6u);
    std::filesystem::remove(Movie(pieces[2].fID));
    const ProcessResult text = Replays({"list"});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_NE(text.out.find("ended"), std::string::npos);
    EXPECT_NE(text.out.find("gap"), std::string::npos);
    EXPECT_NE(text.out.find('.'), std::string::npos);
    EXPECT_EQ(text.err, "");
    const ProcessResult json = Replays({"list", "--json"});
    EXPECT_NE(json.out.find("\"closed\":true"), std::string::npos);
    EXPECT_NE(json.out.find("\"gaps\":[{\"from\":2.000000,\"to\":3.000000}]"), std::string::npos)
        << json.out;
}

TEST_F(Replay, RecordingTellsTheBytesOfItsMovies) {
    const ProcessResult run = Play(Show("segment_seconds=\"1\""), 5);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    double stored = 0;
    for (const Piece& piece : listed_in(Folder())) {
        std::istringstream sizes(
            tests::Run({"ffprobe", "-v", "error", "-show_entries", "packet=size", "-of",
                        "default=nk=1:nw=1", Movie(piece.fID)})
                .out);
        for (double size = 0; sizes >> size;) stored += size;
    }
    EXPECT_GT(stored, 20'000);
    const std::size_t at = run.out.rfind("\"bytes\":");
    ASSERT_NE(at, std::string::npos) << run.out;
    EXPECT_NEAR(std::atof(run.out.c_str() + at + 8), stored, stored / 10) << run.out;
}

TEST_F(Replay, CutCopiesWhatWasRecorded) {
    Record(10);
    const std::string movie = fFolder.File("last.mov");
    const ProcessResult cut = Replays({"cut", "--in", "2.4", "--out", "5", movie, "--json"});
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    // From the key frame before.
    EXPECT_NE(cut.out.find("\"from\":2.000000,\"to\":5.000000,\"frames\":75"), std::string::npos)
        << cut.out;
    EXPECT_NE(cut.out.find("\"encoded\":false"), std::string::npos);
    EXPECT_EQ(tests::CountFrames(movie), 75);
    EXPECT_NEAR(tests::ProbeSeconds(movie, "a:0"), 3, 0.07);
    EXPECT_TRUE(tests::GstreamerReads(movie));
    // Its pictures are those of the segments, one after the other.
    std::string joined;
    for (unsigned int id : {3u, 4u, 5u}) joined += Hashes(Movie(id));
    EXPECT_EQ(Hashes(movie), joined);
    // Cuts are handed on: no room is kept in them for more than they hold.
    EXPECT_LT(std::filesystem::file_size(movie), 1'000'000u);
    EXPECT_EQ(cut.err, "");
}

TEST_F(Replay, SoundOfACutRunsThroughItsJoins) {
    for (const char* const codec : {"MPEG-4 Audio", "PCM"}) {
        SCOPED_TRACE(codec);
        std::filesystem::remove_all(Folder());
        Record(10, "segment_seconds=\"1\"", "x264", codec);
        const std::string movie = fFolder.File("cut.mov");
        const ProcessResult cut = Replays({"cut", "--in", "1", "--out", "6", movie});
        ASSERT_EQ(cut.exitCode, 0) << cut.err;
        // A steady tone: what is left beside it, once the filter has settled, would be clicks at
        // the joins.
        const std::string without =
            "bandreject=f=440:width_type=h:w=400,bandreject=f=440:width_type=h:w=400,";
        EXPECT_LT(PeakOf(movie, without), PeakOf(movie, "") - 40);
    }
}

TEST_F(Replay, ExactCutHasBothEndsToTheFrame) {
    Record(10);
    const std::string movie = fFolder.File("exact.mov");
    const ProcessResult cut =
        Replays({"cut", "--in", "2.4", "--out", "4.2", "--exact", movie, "--json"});
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    EXPECT_NE(cut.out.find("\"encoded\":true"), std::string::npos);
    EXPECT_EQ(tests::CountFrames(movie), 45);
    EXPECT_NEAR(tests::ProbeSeconds(movie, "a:0"), 1.8, 0.05);
    const std::vector<double> times = tests::ProbePictureTimes(movie);
    for (std::size_t index = 0; index < times.size(); ++index) {
        EXPECT_NEAR(times[index], static_cast<double>(index) / 25, 0.001);
    }
    // The pictures are those of the stretch: the segments' own, from the tenth of the third on.
    const std::string reference = fFolder.File("reference.mov");
    ASSERT_EQ(Replays({"cut", "--in", "2", "--out", "4.2", reference}).exitCode, 0);
    const std::string trimmed = fFolder.File("trimmed.mkv");
    ASSERT_EQ(
        tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-i", reference, "-vf",
                    "trim=start_frame=10,setpts=PTS-STARTPTS", "-an", "-c:v", "ffv1", trimmed})
            .exitCode,
        0);
    EXPECT_GT(tests::Psnr(movie, trimmed), 30);
}

TEST_F(Replay, ExactCutThatIsShorterThanAFrameIsRefused) {
    Record(10);
    const std::string movie = fFolder.File("exact.mov");
    const ProcessResult cut = Replays({"cut", "--in", "2.405", "--out", "2.41", "--exact", movie});
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_NE(cut.err.find("no picture begins between 2.405 and 2.410 s"), std::string::npos)
        << cut.err;
    EXPECT_FALSE(std::filesystem::exists(movie));
}

TEST_F(Replay, ExactCutOfIntraPicturesIsACopy) {
    Record(10, "segment_seconds=\"1\"", "MJPEG");
    const std::string movie = fFolder.File("exact.mov");
    const ProcessResult cut =
        Replays({"cut", "--in", "2.4", "--out", "4.2", "--exact", movie, "--json"});
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    EXPECT_NE(cut.out.find("\"encoded\":false"), std::string::npos);
    EXPECT_EQ(tests::CountFrames(movie), 45);
}

/// The third of five segments of this intra-coded recording, encoded in another way.
void encode_third_otherwise(const std::string& folder, const std::string& kept,
                            const std::vector<std::string>& how) {
    std::filesystem::rename(folder + "/3.mov", kept);
    std::vector<std::string> words = {"ffmpeg", "-v", "error", "-nostdin", "-i", kept};
    words.insert(words.end(), how.begin(), how.end());
    words.push_back(folder + "/3.mov");
    ASSERT_EQ(tests::Run(words).exitCode, 0);
}

TEST_F(Replay, ExactCutOfMixedSegmentsIsEncoded) {
    Record(10, "segment_seconds=\"1\"", "MJPEG");
    // Its pictures count time otherwise too.
    encode_third_otherwise(Folder(), fFolder.File("third.mov"),
                           {"-c:v", "libx264", "-video_track_timescale", "90000", "-c:a", "copy"});
    const std::string movie = fFolder.File("cut.mov");
    const ProcessResult refused = Replays({"cut", "--in", "1", "--out", "5", movie});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("use --exact"), std::string::npos) << refused.err;

    const ProcessResult cut =
        Replays({"cut", "--in", "1", "--out", "5", "--exact", movie, "--json"});
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    EXPECT_NE(cut.out.find("\"encoded\":true"), std::string::npos) << cut.out;
    const std::vector<double> times = tests::ProbePictureTimes(movie);
    ASSERT_EQ(times.size(), 100u);
    for (std::size_t index = 0; index < times.size(); ++index) {
        EXPECT_NEAR(times[index], static_cast<double>(index) / 25, 0.001);
    }
}

TEST_F(Replay, SegmentWithoutSoundIsSilentInAnExactCut) {
    Record(10, "segment_seconds=\"1\"", "MJPEG");
    encode_third_otherwise(Folder(), fFolder.File("third.mov"), {"-c:v", "copy", "-an"});
    const std::string movie = fFolder.File("cut.mov");
    const ProcessResult cut = Replays({"cut", "--in", "1", "--out", "5", "--exact", movie});
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    // What follows it stays with its pictures.
    EXPECT_NEAR(tests::ProbeSeconds(movie, "v:0"), 4, 0.01);
    EXPECT_NEAR(tests::ProbeSeconds(movie, "a:0"), 4, 0.08);
}

/// The third segment is cut short as a disk does that loses the end of a file: its index stands at
/// the front and tells of more than there is.
TEST_F(Replay, SegmentThatWasCutOffFailsACut) {
    for (const char* const codec : {"x264", "MJPEG"}) {
        SCOPED_TRACE(codec);
        std::filesystem::remove_all(Folder());
        Record(10, "segment_seconds=\"1\"", codec);
        const auto size = std::filesystem::file_size(Movie(3));
        std::filesystem::resize_file(Movie(3), size * 2 / 5);
        const std::string movie = fFolder.File("cut.mov");
        // From within the first segment on: x264's pictures are encoded anew.
        for (const char* const exact : {"--exact", "--json"}) {
            SCOPED_TRACE(exact);
            const ProcessResult cut = Replays({"cut", "--in", "0.4", "--out", "5", movie, exact});
            EXPECT_EQ(cut.exitCode, 1) << cut.out;
            EXPECT_NE(cut.err.find(Movie(3)), std::string::npos) << cut.err;
            EXPECT_EQ(cut.err.find("sound"), std::string::npos) << "pictures first: " << cut.err;
            EXPECT_EQ(std::count(cut.err.begin(), cut.err.end(), '\n'), 1) << cut.err;
        }
        EXPECT_EQ(Replays({"cut", "--in", "0.4", "--out", "2", "--exact", movie}).exitCode, 0);
    }
}

TEST_F(Replay, SegmentThatIsNoMovieFailsACut) {
    Record(10);
    std::ofstream(Movie(3), std::ios::binary) << std::string(5000, 'x');
    const std::string movie = fFolder.File("cut.mov");
    for (const char* const exact : {"--exact", "--json"}) {
        SCOPED_TRACE(exact);
        const ProcessResult cut = Replays({"cut", "--in", "0.4", "--out", "5", movie, exact});
        EXPECT_EQ(cut.exitCode, 1) << cut.out;
        EXPECT_NE(cut.err.find(Movie(3)), std::string::npos) << cut.err;
    }
}

/// The movie begins with the third segment: the first has no key frame, and the second is missing.
TEST_F(Replay, GapBeforeTheFirstKeyFrameIsNoneOfTheMovies) {
    Record(10);
    const std::string kept = fFolder.File("first.mov");
    std::filesystem::rename(Movie(1), kept);
    ASSERT_EQ(tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-i", kept, "-c", "copy", "-bsf:v",
                          "noise=drop=key", Movie(1)})
                  .exitCode,
              0);
    std::filesystem::remove(Movie(2));
    const std::string movie = fFolder.File("cut.mov");
    const ProcessResult cut = Replays({"cut", "--in", "0", "--out", "5", movie, "--json"});
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    EXPECT_NE(cut.out.find("\"from\":2.000000,\"to\":5.000000,\"frames\":75,\"segments\":3,"
                           "\"gapSeconds\":0.000000"),
              std::string::npos)
        << cut.out;
    const std::vector<double> times = tests::ProbePictureTimes(movie);
    ASSERT_EQ(times.size(), 75u);
    for (std::size_t index = 0; index < times.size(); ++index) {
        EXPECT_NEAR(times[index], static_cast<double>(index) / 25, 0.001);
    }
}

TEST_F(Replay, GapsAreClosedInACut) {
    Record(10);
    std::filesystem::remove(Movie(3));
    const std::string movie = fFolder.File("cut.mov");
    const ProcessResult cut = Replays({"cut", "--in", "1", "--out", "5", movie, "--json"});
    ASSERT_EQ(cut.exitCode, 0) << cut.err;
    EXPECT_NE(cut.out.find("\"gapSeconds\":1.000000"), std::string::npos) << cut.out;
    EXPECT_EQ(tests::CountFrames(movie), 75);
    EXPECT_NEAR(tests::ProbeSeconds(movie, "v:0"), 3, 0.01);
    EXPECT_NEAR(tests::ProbeSeconds(movie, "a:0"), 3, 0.08);
}

TEST_F(Replay, PurgeKeepsTheLastSeconds) {
    Record(10);
    const std::vector<Piece> before = listed_in(Folder());
    const ProcessResult purge = Replays({"purge", "--keep", "3", "--json"});
    ASSERT_EQ(purge.exitCode, 0) << purge.err;
    const std::vector<Piece> after = listed_in(Folder());
    ASSERT_FALSE(after.empty());
    EXPECT_LT(after.size(), before.size());
    EXPECT_GT(after.front().fTo, before.back().fTo - 3'000'000);
    EXPECT_LE(after.front().fFrom, before.back().fTo - 3'000'000);
    for (const Piece& piece : before) {
        EXPECT_EQ(std::filesystem::exists(Movie(piece.fID)), piece.fID >= after.front().fID);
    }
    ExpectToDecode(after);
}

TEST_F(Replay, RunningRecordingIsNotPurged) {
    Record(5);
    // As a recorder leaves it that was killed, or still runs.
    std::string text;
    std::getline(std::ifstream(Folder() + "/replay.xml"), text, '\0');
    std::ofstream(Folder() + "/replay.xml") << text.substr(0, text.find("</segments>"));
    const std::size_t count = listed_in(Folder()).size();
    const ProcessResult refused = Replays({"purge", "--keep", "1"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("--force"), std::string::npos);
    EXPECT_EQ(listed_in(Folder()).size(), count);
    EXPECT_EQ(Replays({"purge", "--keep", "1", "--force"}).exitCode, 0);
    EXPECT_LT(listed_in(Folder()).size(), count);
}

TEST_F(Replay, WatchEndsWithItsReader) {
    Record(5);
    // As a recorder leaves it that still runs: there is more to come, and nobody to tell.
    std::string text;
    std::getline(std::ifstream(Folder() + "/replay.xml"), text, '\0');
    std::ofstream(Folder() + "/replay.xml") << text.substr(0, text.find("</segments>"));
    for (const char* command : {"watch", "list"}) {
        const ProcessResult result = tests::RunUnread({TARN_TOOL, "replay", Folder(), command});
        EXPECT_EQ(result.exitCode, 0) << command;
        EXPECT_TRUE(result.err.empty()) << result.err;
    }
}

TEST_F(Replay, WatchTellsOfEachSegmentWhileAnotherProcessRecords) {
    std::filesystem::create_directories(Folder());
    BackgroundProcess watcher({TARN_TOOL, "replay", Folder(), "watch", "--json"});
    Record(10, "segment_seconds=\"1\" keep_seconds=\"4\"");
    const ProcessResult watched = watcher.Wait();  // it ends when the recording is closed
    EXPECT_EQ(watched.exitCode, 0) << watched.err;
    for (const Piece& piece : listed_in(Folder())) {
        const std::string line =
            "{\"event\":\"segment\",\"segment\":{\"id\":" + std::to_string(piece.fID) + ",";
        EXPECT_NE(watched.out.find(line), std::string::npos) << watched.out;
    }
    EXPECT_NE(watched.out.find("{\"event\":\"segment\",\"segment\":{\"id\":1,"), std::string::npos);
    EXPECT_NE(watched.out.find("{\"event\":\"removed\",\"segment\":{\"id\":1,"), std::string::npos);
    EXPECT_NE(watched.out.find("{\"event\":\"closed\"}"), std::string::npos);
}

TEST_F(Replay, CutWorksWhileAnotherProcessRecords) {
    BackgroundProcess recorder(Live(Show("segment_seconds=\"0.4\" keep_seconds=\"4\""), 60));
    ASSERT_TRUE(tests::WaitUntil([this] { return listed_in(Folder()).size() >= 4; }, kPause));
    int cuts = 0;
    for (; cuts < 4; ++cuts) {
        const std::string movie = fFolder.File("cut" + std::to_string(cuts) + ".mov");
        const ProcessResult cut = Replays({"cut", "--last", "1", movie});
        ASSERT_EQ(cut.exitCode, 0) << cut.err;
        EXPECT_GE(tests::CountFrames(movie), 25);
    }
    recorder.Signal(SIGINT);
    EXPECT_EQ(recorder.Wait().exitCode, 0);
}

TEST_F(Replay, MistakesAreToldInALine) {
    struct Case {
        std::vector<std::string> fWords;
        const char* fText;
    };
    EXPECT_NE(Replays({"list"}).err.find("no replay recording there"), std::string::npos);
    Record(5);
    const std::string movie = fFolder.File("a.mov");
    const Case cases[] = {
        {{"cut", "--in", "soon", movie}, "is no time"},
        {{"cut", "--in", "1:90", movie}, "is no time"},
        {{"cut", "--in", "3", "--out", "2", movie}, "is empty"},
        {{"cut", "--in", "1000", "--out", "1001", movie}, "nothing is recorded"},
        {{"cut", "--last", "1", fFolder.File("a.avi")}, ".mov, .mp4 or .m4v"},
        {{"cut", "--last", "1", fFolder.File("none/a.mov")}, "make it first"},
        {{"cut", "--last", "1", Folder() + "/a.mov"}, "belongs to the recording"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.fText);
        const ProcessResult result = Replays(one.fWords);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_NE(result.err.find(one.fText), std::string::npos) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
    }
    const ProcessResult keep = Replays({"purge", "--keep", "nan"});
    EXPECT_NE(keep.exitCode, 0);
    EXPECT_NE(keep.err.find("--keep: 'nan' is not from 0 to 1000000000 seconds"), std::string::npos)
        << keep.err;
    for (const char* const kept : {"0.5", "1e13", "nan", "-3"}) {
        SCOPED_TRACE(kept);
        const ProcessResult live = tests::Run(
            Live(Show("segment_seconds=\"1\" keep_seconds=\"" + std::string(kept) + "\""), 1));
        EXPECT_EQ(live.exitCode, 1);
        EXPECT_NE(live.err.find("keep_seconds"), std::string::npos) << live.err;
    }
    const ProcessResult again = tests::Run(Live(Show("segment_seconds=\"1\""), 1));
    EXPECT_NE(again.exitCode, 0);
    EXPECT_NE(again.err.find("stands there already"), std::string::npos) << again.err;
}

// A limit of the file's size stands for a full disk.
TEST_F(Replay, ACutThatFailsLeavesNoPartThatCouldPassForIt) {
    Record(10);
    const std::string movie = fFolder.File("cut.mov");
    const ProcessResult result =
        tests::Run({"prlimit", "--fsize=300000", TARN_TOOL, "replay", Folder(), "cut", movie});
    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_NE(result.err.find(movie), std::string::npos) << result.err;
    EXPECT_FALSE(std::filesystem::exists(movie));
}

// A limit of the file's size stands for a full disk.
TEST_F(Replay, APurgeThatCannotWriteItsManifestIsToldAndBringsTheOldOneBack) {
    Record(10);
    const std::size_t count = listed_in(Folder()).size();
    ASSERT_GT(count, 4u);
    const ProcessResult result =
        tests::Run({"prlimit", "--fsize=1", TARN_TOOL, "replay", Folder(), "purge", "--keep", "4"});
    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_NE(result.err.find("cannot be written anew"), std::string::npos) << result.err;
    EXPECT_EQ(listed_in(Folder()).size(), count);
    EXPECT_FALSE(std::filesystem::exists(Folder() + "/replay.xml.before"));
    EXPECT_EQ(Replays({"list"}).exitCode, 0);
}

/// Waits on real time, since the commands of a show come while it runs.
TEST_F(Replay, OutputThatIsSwitchedOnAgainGoesOnInAFolderBeside) {
    // Of the file that the output writes now: a segment takes ten.
    const auto hasFrames = [](const std::string& line) {
        return liveKit::NumberOf(liveKit::PartOf(line, "replay"), "frames") > 10;
    };
    liveKit::RunningShow show(Show("segment_seconds=\"0.4\""), {}, "4");
    ASSERT_TRUE(show.ReadUntil(hasFrames)) << show.End().err;
    ASSERT_TRUE(show.Command("enable replay off"));
    ASSERT_TRUE(show.Command("enable replay on"));
    ASSERT_TRUE(show.ReadUntil(hasFrames)) << show.End().err;
    const ProcessResult live = show.Quit();
    EXPECT_EQ(live.exitCode, 0) << live.err;
    EXPECT_FALSE(listed_in(Folder()).empty());
    EXPECT_FALSE(listed_in(Folder() + " 2").empty());
}

int kill_rounds() {
    const char* const text = std::getenv("TARN_SOAK_ROUNDS");
    return text != nullptr ? std::atoi(text) : 10;
}

/// The recorder is killed at a random moment. The moment is random and whatever it is, all that is
/// listed stands whole, and what the kill left of a segment is not taken for one. TARN_SOAK_ROUNDS
/// says how often.
TEST_F(Replay, KilledRecorderLeavesWholeSegments) {
    std::mt19937 random(63);
    std::size_t most = 0;
    int leftovers = 0;
    for (int round = 0; round < kill_rounds(); ++round) {
        SCOPED_TRACE(round);
        BackgroundProcess recorder(KeepingTwoSeconds());
        // Not before there is something to lose.
        ASSERT_TRUE(tests::WaitUntil([this] { return !listed_in(Folder()).empty(); }, kPause));
        zThread::MicroSleep(static_cast<unsigned int>(random() % 1'500'000));
        recorder.Signal(SIGKILL);
        recorder.Wait();
        const ProcessResult list = Replays({"list", "--json"});
        ASSERT_EQ(list.exitCode, 0) << list.err;
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
            names.insert(entry.path().filename().string());
        }
        const std::vector<Piece> left = left_in(Folder());
        EXPECT_EQ(CountOf(list.out, "\"id\":"), left.size());
        for (const Piece& piece : left) {
            EXPECT_NE(list.out.find("\"id\":" + std::to_string(piece.fID) + ","),
                      std::string::npos);
        }
        leftovers += names.size() > left.size() + 1 ? 1 : 0;
        most = std::max(most, left.size());
        ExpectToDecode(left);
    }
    EXPECT_GT(most, 1u);
    EXPECT_GT(leftovers, 0);  // the kills did come in the middle of segments
}

/// The manifest is written anew within a millisecond, and many of the kills in it leave none, or
/// one that lists nothing. Two seconds are kept, so that at the least that much is there.
TEST_F(Replay, KillInTheMidstOfADeletionLosesNoSegment) {
    constexpr int kRounds = 5;
    std::mt19937 random(64);
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        BackgroundProcess recorder(KeepingTwoSeconds());
        // Without a pause: what is aimed at is over within one.
        ASSERT_TRUE(tests::WaitUntil(
            [this] { return std::filesystem::exists(Folder() + "/replay.xml.before"); }, 0us));
        zThread::MicroSleepUntil(zTime::MicroNow() + random() % 500, true);
        recorder.Signal(SIGKILL);
        recorder.Wait();
        const ProcessResult list = Replays({"list", "--json"});
        ASSERT_EQ(list.exitCode, 0) << list.err;
        const std::vector<Piece> left = left_in(Folder());
        EXPECT_EQ(CountOf(list.out, "\"id\":"), left.size());
        ASSERT_FALSE(left.empty());
        EXPECT_GE(left.back().fTo - left.front().fFrom, 2'000'000);
        const ProcessResult purge = Replays({"purge", "--keep", "1", "--force"});
        EXPECT_EQ(purge.exitCode, 0) << purge.err;
        EXPECT_FALSE(std::filesystem::exists(Folder() + "/replay.xml.before"));
        const std::vector<Piece> kept = listed_in(Folder());
        EXPECT_FALSE(kept.empty());
        ExpectToDecode(kept);
    }
}

}  // namespace
