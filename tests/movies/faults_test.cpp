#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>

#include "tests/movies/MovieCheck.h"
#include "tests/support/RecordedFile.h"
#include "tests/support/SweepStride.h"

using namespace Quillon::Orb;

namespace {

struct Outcome {
    Result result;
    Kept before;  // what stood in the file at its last checkpoint
    Kept after;
};

Kept look_at(const FileRecord& record, const MediaClip& clip) {
    return CompareWithClip(ParseBoxes(record.image), BytesOf(record.image), clip);
}

/// Records a clip on a file that fails as `record` says, and looks at the file at its last
/// checkpoint and at its end.
Outcome record_with(const std::shared_ptr<FileRecord>& record, const MediaClip& clip,
                    const WriteOptions& options) {
    Outcome outcome;
    record->keepLog = false;
    WholeMovieFile file("/media/cam1.mov", FileOptions(options), MakeRecordedFile(record),
                        WholeMovieFile::Checkpoints::ByHand);
    outcome.result =
        WriteClip(file, clip, options, [&] { outcome.before = look_at(*record, clip); });
    if (record->published) outcome.after = look_at(*record, clip);
    return outcome;
}

struct Fault {
    const char* name;
    int error;
    bool stays;
    bool half;
};

/// The seconds that a failure says are kept.
double seconds_told(const std::string& text) {
    double seconds = -1;
    const std::string before = "recording stopped, ";
    const auto at = text.find(before);
    if (at != std::string::npos) sscanf(text.c_str() + at + before.size(), "%lf", &seconds);
    return seconds;
}

class Faults : public testing::TestWithParam<Fault> {};

/// Every call of a recording fails once, from the first on until none is left to fail. Each time
/// what was shown is still there, what stands there is right, and the caller hears the reason.
TEST_P(Faults, EveryCallMayFailAndWhatWasShownStays) {
    const Fault fault = GetParam();
    const MediaClip clip =
        MakeUpClip({.seconds = 1, .reordered = true, .sounds = {'mp4a', 'sowt'}});
    WriteOptions options;
    options.expectedSeconds = 1;
    options.checkpointEvery = 15;
    bool failed = true;
    int failures = 0;
    for (int call = 1; failed; call += tests::SweepStride()) {
        auto record = std::make_shared<FileRecord>();
        record->failAt = call;
        record->error = fault.error;
        record->stays = fault.stays;
        record->half = fault.half;
        const Outcome outcome = record_with(record, clip, options);
        failed = record->calls >= call;
        SCOPED_TRACE("call " + std::to_string(call));
        if (record->published) {
            ASSERT_EQ(outcome.after.complaints, "");
            for (std::size_t i = 0; i < outcome.before.samples.size(); i++)
                ASSERT_GE(outcome.after.samples[i], outcome.before.samples[i]);
        }
        if (outcome.result.Succeeded()) continue;
        failures++;
        const std::string text = outcome.result.GetMessage();
        ASSERT_NE(text.find("/media/cam1.mov"), std::string::npos) << text;
        ASSERT_NE(text.find(strerror(fault.error)), std::string::npos) << text;
        ASSERT_TRUE(record->closed);
        if (!record->published) continue;
        // The figure is what a reader finds; a sync that failed may have left more than is told.
        const double kept =
            *std::max_element(outcome.after.seconds.begin(), outcome.after.seconds.end());
        if (record->failedSync)
            ASSERT_LE(seconds_told(text), kept + 0.05) << text;
        else
            ASSERT_NEAR(seconds_told(text), kept, 0.0501) << text;
    }
    EXPECT_GT(failures, 50 / tests::SweepStride());
}

INSTANTIATE_TEST_SUITE_P(Kinds, Faults,
                         testing::Values(Fault{"EIOOnce", EIO, false, false},
                                         Fault{"EIOForGood", EIO, true, false},
                                         Fault{"DiskFullHalfWay", ENOSPC, true, true},
                                         Fault{"DiskFullOnce", ENOSPC, false, true}),
                         [](const auto& each) { return std::string(each.param.name); });

/// The disk fills while a larger index is being written: what the present one takes is kept.
TEST(FullDisk, WhileTheIndexGrowsLosesNothingThatWasShown) {
    const MediaClip clip =
        MakeUpClip({.seconds = 120, .framesPerSecond = 60, .frameBytes = 10, .reordered = true});
    for (const double expectedSeconds : {5, 400}) {
        WriteOptions options;
        options.expectedSeconds = expectedSeconds;
        options.checkpointEvery = 600;
        auto whole = std::make_shared<FileRecord>();
        ASSERT_EQ(record_with(whole, clip, options).result, 0);
        for (int call = 5; call < whole->calls; call += tests::SweepStride() * whole->calls / 40) {
            SCOPED_TRACE("call " + std::to_string(call));
            auto record = std::make_shared<FileRecord>();
            record->failAt = call;
            record->error = ENOSPC;
            record->stays = true;
            record->half = true;
            const Outcome outcome = record_with(record, clip, options);
            ASSERT_EQ(outcome.after.complaints, "");
            for (std::size_t i = 0; i < outcome.before.samples.size(); i++)
                ASSERT_GE(outcome.after.samples[i], outcome.before.samples[i]);
        }
    }
}

/// The next index cannot be written for a while: the recording goes on.
TEST(FullDisk, NextIndexMayFailAsLongAsItIsNotNeeded) {
    const MediaClip clip =
        MakeUpClip({.seconds = 120, .framesPerSecond = 60, .frameBytes = 10, .reordered = true});
    WriteOptions options;
    options.expectedSeconds = 5;
    options.checkpointEvery = 300;
    auto whole = std::make_shared<FileRecord>();
    ASSERT_EQ(record_with(whole, clip, options).result, 0);
    int survived = 0;
    for (int call = 5; call < whole->calls; call += tests::SweepStride() * whole->calls / 60) {
        auto record = std::make_shared<FileRecord>();
        record->failAt = call;
        record->error = ENOSPC;
        const Outcome outcome = record_with(record, clip, options);
        ASSERT_EQ(outcome.after.complaints, "") << call;
        if (outcome.result.Failed()) continue;
        ASSERT_EQ(outcome.after.samples[0], 7200) << call;
        survived++;
    }
    EXPECT_GT(survived, 0);
}

/// Writes samples from `next` on until one fails, and gives that failure.
Result write_until_failure(WholeMovieFile& file, const MediaClip& clip, std::size_t& next) {
    Result result;
    while (result.Succeeded() && next < clip.samples.size()) {
        result = file.WriteSample(clip.samples[next].track, clip.Described(next));
        next++;
    }
    return result;
}

/// The disk fills with media data: what was written up to then, checkpointed or not, is kept.
TEST(FullDisk, LastCheckpointAtTheEndTakesWhatStandsInTheFile) {
    const MediaClip clip = MakeUpClip({.seconds = 4, .frameBytes = 20000, .sounds = {'sowt'}});
    auto record = std::make_shared<FileRecord>();
    WholeMovieFile file("/media/cam1.mov", {.containerType = 'mov '}, MakeRecordedFile(record),
                        WholeMovieFile::Checkpoints::ByHand);
    for (const MovieTrack& track : clip.tracks) file.AddTrack(track);
    ASSERT_EQ(file.Begin(), 0);
    std::size_t next = 0;
    for (; next < clip.samples.size() / 2; next++)
        ASSERT_EQ(file.WriteSample(clip.samples[next].track, clip.Described(next)), 0);
    record->failAt = record->calls + 1;
    record->error = ENOSPC;
    record->half = true;
    ASSERT_TRUE(write_until_failure(file, clip, next).Failed());
    EXPECT_TRUE(file.Finish().Failed());
    const Kept kept = look_at(*record, clip);
    EXPECT_EQ(kept.complaints, "");
    // Of the half of four seconds no more is lost than what waited for a write.
    EXPECT_GE(kept.seconds[0], 1.5);
    EXPECT_NEAR(kept.seconds[0], kept.seconds[1], 0.5);
}

TEST(FullDisk, ReasonIsGivenToEveryLaterSampleAndToFinish) {
    const MediaClip clip = MakeUpClip({});
    auto record = std::make_shared<FileRecord>();
    WriteOptions options;
    WholeMovieFile file("/media/cam1.mov", FileOptions(options), MakeRecordedFile(record),
                        WholeMovieFile::Checkpoints::ByHand);
    for (const MovieTrack& track : clip.tracks) file.AddTrack(track);
    ASSERT_EQ(file.Begin(), 0);
    for (std::size_t i = 0; i < 60; i++)
        ASSERT_EQ(file.WriteSample(clip.samples[i].track, clip.Described(i)), 0);
    ASSERT_EQ(file.Checkpoint(), 0);
    record->failAt = record->calls + 1;
    record->error = ENOSPC;
    std::size_t next = 60;
    const Result failed = write_until_failure(file, clip, next);
    const std::string text = failed.GetMessage();
    EXPECT_EQ(text,
              "'/media/cam1.mov': No space left on device; recording stopped, 0.8 seconds kept");
    EXPECT_EQ(file.WriteSample(clip.samples[next].track, clip.Described(next)).GetMessage(), text);
    EXPECT_EQ(file.Finish().GetMessage(), text);
}

}  // namespace
