#include "tests/movies/PowerCuts.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <random>

#include "tests/movies/LibavReader.h"
#include "tests/movies/MovieCheck.h"
#include "tests/movies/MovieFolder.h"
#include "tests/support/RecordedFile.h"
#include "tests/support/SweepStride.h"

using namespace Quillon::Orb;
using Kind = PowerCuts::Kind;

namespace {

std::shared_ptr<FileRecord> record_log(const MediaClip& clip, const WriteOptions& options) {
    auto record = std::make_shared<FileRecord>();
    WholeMovieFile file("cut.mov", FileOptions(options), MakeRecordedFile(record),
                        WholeMovieFile::Checkpoints::ByHand);
    EXPECT_EQ(WriteClip(file, clip, options), 0);
    return record;
}

/// Looks at every state that a power cut may leave, and keeps what is wrong with any.
class Inspection {
public:
    Inspection(const MediaClip& clip, bool decodable) : fClip(clip), fDecodable(decodable) {}

    void Look(const std::vector<unsigned char>& image, Kind kind) {
        // What a sync promised is looked at every time: the states behind it are held against it.
        if (kind != Kind::Synced && fPassed++ % tests::SweepStride() != 0) return;
        fStates[kind]++;
        const Kept kept = CompareWithClip(ParseBoxes(image), BytesOf(image), fClip);
        note(kept.complaints);
        for (std::size_t i = 0; i < fPromised.size() && i < kept.samples.size(); i++)
            if (kept.samples[i] < fPromised[i]) note("lost what was promised");
        if (kind == Kind::Synced) fPromised = kept.samples;
        bool empty = false;
        for (const long long samples : kept.samples) empty |= samples == 0;
        if (fDecodable || kind != Kind::Reordered)
            note(LibavRead(image, fDecodable, empty).complaints);
        if (fDecodable && kind == Kind::Prefix) note(Ffprobe(file_of(image), empty).complaints);
    }

    int States(Kind kind) { return fStates[kind]; }
    const std::map<std::string, int>& Complaints() const { return fComplaints; }

private:
    void note(const std::string& complaint) {
        if (!complaint.empty()) fComplaints[complaint]++;
    }
    static std::string file_of(const std::vector<unsigned char>& image) {
        const std::string path = MovieFolder() + "/cut.mov";
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(image.data()),
                   static_cast<std::streamsize>(image.size()));
        return path;
    }

    const MediaClip& fClip;
    const bool fDecodable;
    int fPassed = 0;
    std::vector<long long> fPromised;
    std::map<Kind, int> fStates;
    std::map<std::string, int> fComplaints;
};

void expect_whole_at_every_cut(const MediaClip& clip, bool decodable, const WriteOptions& options,
                               int statesPerWindow) {
    const auto record = record_log(clip, options);
    PowerCuts cuts(record->log);
    cuts.statesPerWindow = statesPerWindow * (std::getenv("TARN_SOAK_ROUNDS") ? 10 : 1);
    if (decodable) cuts.allChoicesUpTo = 9;
    Inspection inspection(clip, decodable);
    cuts.Run([&](const auto& image, Kind kind) { inspection.Look(image, kind); });
    for (const auto& [text, times] : inspection.Complaints())
        ADD_FAILURE() << times << " times: " << text;
    EXPECT_GT(inspection.States(Kind::Prefix), 50 / tests::SweepStride());
    EXPECT_GT(inspection.States(Kind::Synced), 10);
    EXPECT_GT(inspection.States(Kind::Reordered), 100 / tests::SweepStride());
    testing::Test::RecordProperty("prefixes", inspection.States(Kind::Prefix));
    testing::Test::RecordProperty("reorderings", inspection.States(Kind::Reordered));
}

class RealPowerCut : public testing::TestWithParam<const char*> {};

/// The log of writes and syncs of a short recording is cut at every place, and what was not synced
/// then arrives in any order, in part, or not at all. Each time there is a whole movie up to the
/// last sync, and libavformat reads it; every prefix goes through ffprobe too.
TEST_P(RealPowerCut, AnywhereLeavesAMovieThatReadersOpen) {
    WriteOptions options;
    options.container = std::string(GetParam()) == "mp4" ? 'mp4 ' : 'mov ';
    options.expectedSeconds = 2;
    options.checkpointEvery = 24;
    expect_whole_at_every_cut(H264AacClip(), true, options, 20);
}

INSTANTIATE_TEST_SUITE_P(Containers, RealPowerCut, testing::Values("mov", "mp4"),
                         [](const auto& each) { return std::string(each.param); });

struct Recording {
    const char* name;
    ClipShape shape;
    double expectedSeconds;
    bool fastStart;
};

// The first stays in its first pair of slots; the second moves to larger ones in front; the others
// roll behind the media data.
const Recording kRecordings[] = {
    {"Short", {.seconds = 1, .reordered = true, .sounds = {'mp4a'}}, 1, true},
    {"Growing",
     {.seconds = 150, .framesPerSecond = 50, .frameBytes = 10, .reordered = true},
     400,
     true},
    {"BeyondTheAnnounced",
     {.seconds = 150, .framesPerSecond = 60, .frameBytes = 10, .reordered = true},
     5,
     true},
    {"NotInFront",
     {.seconds = 100, .framesPerSecond = 60, .frameBytes = 10, .reordered = true},
     5,
     false},
};

class PowerCut : public testing::TestWithParam<Recording> {};

/// The same for recordings whose index moves, of pictures that nothing decodes.
TEST_P(PowerCut, AnywhereLeavesAWholeMovie) {
    const Recording& recording = GetParam();
    const MediaClip clip = MakeUpClip(recording.shape);
    const bool isLong = recording.shape.seconds > 10;
    WriteOptions options;
    options.expectedSeconds = recording.expectedSeconds;
    options.fastStart = recording.fastStart;
    options.checkpointEvery = isLong ? 900 : 10;
    expect_whole_at_every_cut(clip, false, options, isLong ? 6 : 60);
}

INSTANTIATE_TEST_SUITE_P(Recordings, PowerCut, testing::ValuesIn(kRecordings),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
