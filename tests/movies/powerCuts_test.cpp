#include "tests/movies/PowerCuts.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

#include "tests/movies/MovieCheck.h"
#include "tests/support/RecordedFile.h"

using namespace Quillon::Orb;

namespace {

std::shared_ptr<FileRecord> record_log(const MediaClip& clip, const WriteOptions& options) {
    auto record = std::make_shared<FileRecord>();
    WholeMovieFile file("cut.mov", FileOptions(options), MakeRecordedFile(record),
                        WholeMovieFile::Checkpoints::ByHand);
    EXPECT_EQ(WriteClip(file, clip, options), 0);
    return record;
}

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

/// The log of writes and syncs is cut at every place, and what was not synced then arrives in any
/// order, in part, or not at all. Each time there is a whole movie up to the last sync.
TEST_P(PowerCut, AnywhereLeavesAWholeMovie) {
    const Recording& recording = GetParam();
    const MediaClip clip = MakeUpClip(recording.shape);
    WriteOptions options;
    options.expectedSeconds = recording.expectedSeconds;
    options.fastStart = recording.fastStart;
    options.checkpointEvery = recording.shape.seconds > 10 ? 900 : 10;
    const auto record = record_log(clip, options);
    PowerCuts cuts(record->log);
    cuts.statesPerWindow = recording.shape.seconds > 10 ? 6 : 60;
    std::map<std::string, int> complaints;
    std::vector<long long> promised;
    long long states = 0;
    cuts.Run([&](const std::vector<unsigned char>& image, bool synced) {
        const Kept kept = CompareWithClip(ParseBoxes(image), BytesOf(image), clip);
        if (!kept.complaints.empty()) complaints[kept.complaints]++;
        for (std::size_t i = 0; i < promised.size() && i < kept.samples.size(); i++)
            if (kept.samples[i] < promised[i]) complaints["lost what was promised"]++;
        if (synced) promised = kept.samples;
        states++;
    });
    for (const auto& [text, times] : complaints) ADD_FAILURE() << times << " times: " << text;
    EXPECT_GT(states, 100);
    RecordProperty("states", std::to_string(states));
}

INSTANTIATE_TEST_SUITE_P(Recordings, PowerCut, testing::ValuesIn(kRecordings),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
