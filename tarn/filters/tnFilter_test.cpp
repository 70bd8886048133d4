#include "tarn/filters/tnFilter.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/filterDoubles.h"

using namespace filterDoubles;

namespace {

TEST(Compressors, AFailedDescriptionIsAskedAgainAndASuccessIsFinal) {
    VideoCompressor video;
    EXPECT_EQ(video.DecoderInfo(), nullptr);
    EXPECT_EQ(video.DecoderInfo(), nullptr);
    EXPECT_EQ(video.fAsked, 2);
    video.fDescriptionResult = 0;
    video.fDescription = {1, 2, 3};
    const auto info = video.DecoderInfo();
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(*info, (std::vector<unsigned char>{1, 2, 3}));
    video.fDescription = {9};
    EXPECT_EQ(video.DecoderInfo(), info);
    EXPECT_EQ(video.fAsked, 3);

    VideoCompressor empty;
    empty.fDescriptionResult = 0;
    ASSERT_NE(empty.DecoderInfo(), nullptr);
    EXPECT_TRUE(empty.DecoderInfo()->empty());
    EXPECT_EQ(empty.fAsked, 1);

    AudioCompressor audio;
    EXPECT_EQ(audio.DecoderInfo(), nullptr);
}

// One joins and asks in its initialisation function while another one writes.
TEST(Compressors, OneDescriptionStandsForAllThreads) {
    class Describing final : public VideoCompressor {
    public:
        int GetDecoderDescription(zBuffer& out) override {
            out.SetAndCopyData("avcC", 4, 0);
            return 0;
        }
    };
    for (int round = 0; round < 100; ++round) {
        Describing video;
        std::vector<std::shared_ptr<const std::vector<unsigned char>>> seen(4);
        std::atomic<int> waiting{4};
        std::vector<std::thread> threads;
        for (auto& one : seen) {
            threads.emplace_back([&] {
                --waiting;
                while (waiting > 0) std::this_thread::yield();
                one = video.DecoderInfo();
            });
        }
        for (std::thread& thread : threads) thread.join();
        ASSERT_NE(seen[0], nullptr);
        for (const auto& one : seen) EXPECT_EQ(one, seen[0]);
    }
}

TEST(Compressors, AFailingCreateNeverReachesTheInputFormat) {
    VideoCompressor video;
    video.fCreateResult = -1;
    EXPECT_FALSE(video.CreateFilter(VideoFormat(nullptr)));
    EXPECT_EQ(video.fConfigured, 0);
    AudioCompressor audio;
    EXPECT_TRUE(audio.CreateFilter(AudioFormat(nullptr)));
    for (const int result : {-1, 1}) {
        audio.fCreateResult = result;
        EXPECT_FALSE(audio.CreateFilter(AudioFormat(nullptr))) << result;
    }
}

// Whether the encoder took the source is not asked: it answers frames with what went wrong.
TEST(Compressors, TheOutputIsAlsoTheSettingsAndTheInputsFateIsNotTheCreations) {
    VideoCompressor video;
    video.SetOutputFormat(VideoFormat("codec"));
    video.fConfigureResult = -1;
    EXPECT_TRUE(video.CreateFilter(VideoFormat(nullptr)));
    EXPECT_EQ(video.fConfigured, 1);
    EXPECT_EQ(video.fMadeFor.AsString('mcon', ""), "codec");
    EXPECT_TRUE(video.fOneRecord);
    EXPECT_EQ(video.fUserData, nullptr);
}

TEST(EncodedBuffers, HaveTheirDefaults) {
    Picture* picture = new Picture(0, true);
    EXPECT_EQ(picture->CompressedDataSize(), picture->DataSize());
    EXPECT_EQ(picture->DataAsByteArray(), nullptr);
    EXPECT_EQ(picture->fSyncTime, -1);
    picture->Release();
    Sound* sound = new Sound(100, 1, 0);
    EXPECT_EQ(sound->fTimestamps, std::vector<long long>(32, -1));
    EXPECT_EQ(sound->AudioSample(0), nullptr);
    sound->Release();
}

}  // namespace
