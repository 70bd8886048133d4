#include "WholeMovieFile.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <thread>

#include "tests/support/Probe.h"
#include "tests/support/TestFolder.h"

namespace Quillon::Orb {
namespace {

MovieTrack picture() {
    MovieTrack track;
    track.format = 'apch';
    track.timescale = 25;
    track.frameDuration = 1;
    track.width = 320;
    track.height = 180;
    return track;
}

MovieTrack sound() {
    MovieTrack track;
    track.kind = MovieTrack::Kind::Audio;
    track.format = 'sowt';
    track.timescale = track.sampleRate = 48000;
    track.channels = 2;
    track.bytesPerPacket = 4;
    return track;
}

MovieSample sample_of(const std::vector<unsigned char>& bytes) {
    MovieSample sample;
    sample.data = bytes.data();
    sample.size = bytes.size();
    sample.duration = 1;
    return sample;
}

class WholeMovieFileTest : public testing::Test {
protected:
    std::unique_ptr<MovieFile> Make(const char* name) {
        return MakeMovieFile((fFolder.Path() + "/" + name).c_str(), {.containerType = 'mov '});
    }

    tests::TestFolder fFolder;
    const std::vector<unsigned char> fBytes = std::vector<unsigned char>(1000, 1);
};

TEST_F(WholeMovieFileTest, OrderOfItsLifeIsKept) {
    const auto file = Make("a.mov");
    EXPECT_EQ(file->WriteSample(0, sample_of(fBytes)), ResultError::kCode);
    EXPECT_EQ(file->AddTrack(picture()), 0);
    EXPECT_EQ(file->AddTrack(sound()), 1);
    ASSERT_EQ(file->Begin(), 0);
    EXPECT_EQ(file->Begin(), ResultError::kCode);
    EXPECT_EQ(file->AddTrack(picture()), ResultError::kCode);
    EXPECT_EQ(file->WriteSample(0, sample_of(fBytes)), 0);
    EXPECT_EQ(file->Finish(), 0);
    EXPECT_EQ(file->Finish(), 0);
    EXPECT_EQ(file->WriteSample(0, sample_of(fBytes)), ResultError::kCode);
}

TEST_F(WholeMovieFileTest, FinishBeforeBeginMakesNothing) {
    EXPECT_EQ(Make("a.mov")->Finish(), 0);
    EXPECT_FALSE(std::filesystem::exists(fFolder.Path() + "/a.mov"));
}

TEST_F(WholeMovieFileTest, BeginSaysWhyThereIsNoFile) {
    const auto file = Make("no/such/a.mov");
    file->AddTrack(picture());
    const Result result = file->Begin();
    EXPECT_TRUE(result.Failed());
    EXPECT_EQ(std::string(result.GetMessage()), "'" + fFolder.Path() +
                                                    "/no/such/a.mov': No such file or directory; "
                                                    "no movie was made");
}

TEST_F(WholeMovieFileTest, SamplesThatContradictTheirTrackAreRefusedAndHarmNothing) {
    const auto file = Make("a.mov");
    file->AddTrack(picture());
    file->AddTrack(sound());
    ASSERT_EQ(file->Begin(), 0);
    EXPECT_EQ(file->WriteSample(2, sample_of(fBytes)), ResultArgumentOutOfRange::kCode);
    EXPECT_EQ(file->WriteSample(-1, sample_of(fBytes)), ResultArgumentOutOfRange::kCode);
    MovieSample sample = sample_of(fBytes);
    sample.data = nullptr;
    EXPECT_EQ(file->WriteSample(0, sample), ResultNullPointer::kCode);
    sample = sample_of(fBytes);
    sample.packets = 251;  // of 4 bytes: more than there are
    const Result refused = file->WriteSample(1, sample);
    EXPECT_EQ(refused, ResultInvalidArgument::kCode);
    EXPECT_NE(std::string(refused.GetMessage()).find("a.mov"), std::string::npos);
    sample.packets = -1;
    EXPECT_EQ(file->WriteSample(1, sample), ResultInvalidArgument::kCode);
    sample.packets = 250;
    EXPECT_EQ(file->WriteSample(1, sample), 0);
    EXPECT_EQ(file->WriteSample(0, sample_of({})), 0);
    EXPECT_EQ(file->Finish(), 0);
}

TEST_F(WholeMovieFileTest, DestroyedItIsClosedAsByFinish) {
    const std::string path = fFolder.Path() + "/a.mov";
    for (const bool finished : {true, false}) {
        auto file = MakeMovieFile(path.c_str(), {.containerType = 'mov ', .creationTime = 1});
        file->AddTrack(picture());
        ASSERT_EQ(file->Begin(), 0);
        ASSERT_EQ(file->WriteSample(0, sample_of(fBytes)), 0);
        if (finished) {
            ASSERT_EQ(file->Finish(), 0);
            std::filesystem::rename(path, path + ".finished");
        }
    }
    EXPECT_EQ(std::filesystem::file_size(path), std::filesystem::file_size(path + ".finished"));
}

/// A scale so fine that the camera's five minutes off air are more than one step of a file.
TEST_F(WholeMovieFileTest, AfterALongPauseThePicturesEndWithTheSound) {
    constexpr long long kScale = 10000000;
    constexpr int kSeconds = 310;
    const std::string path = fFolder.Path() + "/a.mp4";
    const auto file = MakeMovieFile(path.c_str(), {.containerType = 'mp4 '});
    MovieTrack pictures = picture();
    pictures.format = 'jpeg';
    pictures.timescale = kScale;
    pictures.frameDuration = kScale;
    file->AddTrack(pictures);
    file->AddTrack(sound());
    ASSERT_EQ(file->Begin(), 0);
    const std::vector<unsigned char> second(4 * 48000);
    for (int i = 0; i < kSeconds; i++) {
        MovieSample block = sample_of(second);
        block.packets = 48000;
        ASSERT_EQ(file->WriteSample(1, block), 0);
        if (i >= 5 && i < kSeconds - 5) continue;
        MovieSample one = sample_of(fBytes);
        one.decodeTime = i * kScale;
        one.duration = kScale;
        ASSERT_EQ(file->WriteSample(0, one), 0);
    }
    ASSERT_EQ(file->Finish(), 0);
    EXPECT_EQ(tests::ProbeStream(path, "v:0", "duration"), "310.000000");
    EXPECT_EQ(tests::ProbeStream(path, "a:0", "duration"), "310.000000");
}

/// Two files with a checkpoint thread each, and samples that come while those write and sync.
TEST_F(WholeMovieFileTest, CheckpointsRunBesideTheSamples) {
    const auto record = [this](const char* name) {
        const auto file = Make(name);
        file->AddTrack(picture());
        file->AddTrack(sound());
        EXPECT_EQ(file->Begin(), 0);
        for (int i = 0; i < 20000; i++) {
            MovieSample sample = sample_of(fBytes);
            sample.decodeTime = i;
            EXPECT_EQ(file->WriteSample(0, sample), 0);
            sample.packets = 250;
            EXPECT_EQ(file->WriteSample(1, sample), 0);
        }
        const Result finished = file->Finish();
        EXPECT_EQ(finished, 0) << finished.GetMessage();
    };
    std::thread other(record, "a.mov");
    record("b.mov");
    other.join();
    // The slots hold different states, but the movies are alike.
    EXPECT_GT(std::filesystem::file_size(fFolder.Path() + "/a.mov"), 40000000U);
    EXPECT_GT(std::filesystem::file_size(fFolder.Path() + "/b.mov"), 40000000U);
}

}  // namespace
}  // namespace Quillon::Orb
