#include "LiveSource.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "spar/zBoot.h"
#include "spar/zObject.h"
#include "spar/zTime.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/movies/tnStreamBuffer.h"

#include "LivePictures.h"
#include "LiveSound.h"
#include "TestPicture.h"
#include "tests/support/filterDoubles.h"

namespace {

constexpr long long kFarAhead = 1'000'000'000;  // us: no tick is late by that clock

constexpr double kClipStart = 0.25;  // s, on the clip's own time line

/// A clip in script: a number of pictures, over and over.
class ScriptedPictures final : public LivePictures {
public:
    ScriptedPictures(const tnMediaRecord& format, int length, bool loop)
        : fFormat(format), fLength(length), fLoop(loop) {}

    const tnMediaRecord& Format() const override { return fFormat; }
    long long RoundStart() const override { return fRoundStart; }
    double StartSeconds() const override { return kClipStart; }
    bool Next(tnStreamBuffer* buffer) override {
        if (fNext == fLength) {
            if (!fLoop) return false;
            fNext = 0;
            fRoundStart += fLength;
        }
        if (buffer) *static_cast<unsigned char*>(buffer->GetPointer()) = fNext & 0xFF;
        ++fNext;
        return true;
    }

private:
    const tnMediaRecord fFormat;
    const int fLength;
    const bool fLoop;
    int fNext = 0;
    long long fRoundStart = 0;
};

class ScriptedSound final : public LiveSound {
public:
    explicit ScriptedSound(std::vector<double>& rounds) : fRounds(rounds) {
        fFormat.MakeDefaultAudioFormat();
    }
    const tnMediaRecord& Format() const override { return fFormat; }
    void Next(short*, long long) override {}
    void BeginRound(double at, double start) override {
        fRounds.push_back(at);
        EXPECT_EQ(start, kClipStart);
    }

private:
    std::vector<double>& fRounds;
    tnMediaRecord fFormat{TN_MEDIA_AUDIO};
};

/// A source driven by hand: ticks come from the test, and compressors note what is written.
class SourceOnTicks : public testing::Test {
protected:
    SourceOnTicks() {
        zBoot::StartAll();
        tnFilterManager::Default()->RegisterFactory("note video", [this] {
            fVideo = std::make_shared<filterDoubles::VideoCompressor>();
            return fVideo;
        });
        tnFilterManager::Default()->RegisterFactory("note audio", [this] {
            fAudio = std::make_shared<filterDoubles::AudioCompressor>();
            return fAudio;
        });
    }
    ~SourceOnTicks() override {
        fSource.reset();
        zBoot::StopAll();
    }

    void make(int length, bool loop, double catchUp = 2) {
        ShowSource description;
        description.name = "test";
        description.catchUp = catchUp;
        tnMediaRecord format = filterDoubles::VideoFormat(nullptr);
        format.SetInt64('tmsc', 50);
        format.SetUInt64('dura', 2);
        format.SetFloat('mfps', 25);
        fSource = std::make_unique<LiveSource>(
            description, std::make_unique<ScriptedPictures>(format, length, loop),
            std::make_unique<ScriptedSound>(fRounds));
    }

    void observe() {
        tnMediaRecord video(TN_MEDIA_VIDEO);
        video.SetCString('mcon', "note video");
        tnMediaRecord audio(TN_MEDIA_AUDIO);
        audio.SetCString('mcon', "note audio");
        tnFilterManager& manager = *tnFilterManager::Default();
        manager.ObserveVideoFilter(
            fSource->VideoNumber(), fToken, fSource->VideoTrack(video), [](auto) {},
            [this](const std::shared_ptr<tnVideoCompressor::EncodedBuffer>& buffer) {
                fOrder.push_back('v');
                fSyncTimes.push_back(buffer->fSyncTime);
            });
        manager.ObserveAudioFilter(
            fSource->AudioNumber(), fToken, fSource->AudioTrack(audio), [](auto) {},
            [this](const std::shared_ptr<tnAudioCompressor::EncodedBuffer>& buffer) {
                fOrder.push_back('a');
                fStamps.push_back(buffer->fTimestamps[0]);
            });
        fSource->BeginUse(true, true);
    }

    void stop_observing() {
        fSource->EndUse(true, true);
        tnFilterManager::Default()->StopObservingFilter(fSource->VideoNumber(), fToken);
        tnFilterManager::Default()->StopObservingFilter(fSource->AudioNumber(), fToken);
    }

    void tick(long long number, long long lateUs = -kFarAhead) {
        tn_time_rec time{};
        time.tick_count = number;
        time.nominal_time = zTime::MicroNow() - lateUs;
        fSource->ReceiveTime(time);
    }

    std::vector<double> fRounds;
    std::unique_ptr<LiveSource> fSource;
    std::shared_ptr<filterDoubles::VideoCompressor> fVideo;
    std::shared_ptr<filterDoubles::AudioCompressor> fAudio;
    std::shared_ptr<zObject> fToken = std::make_shared<zObject>();
    std::string fOrder;
    std::vector<long long> fSyncTimes;
    std::vector<long long> fStamps;
};

TEST_F(SourceOnTicks, GivesAFrameATickAndSoundAheadOfIt) {
    make(100, true);
    observe();
    for (int i = 1; i <= 3; ++i) tick(i);
    EXPECT_EQ(fVideo->fTimes, (std::vector<long long>{0, 2, 4}));  // ticks of 1/50 s
    EXPECT_EQ(fSyncTimes.front(), 0);
    // 40 ms of picture a frame, 33 1/3 ms of sound a block: a block begins before each frame's end.
    //   frames  |--0--|--1--|--2--|
    //   blocks  |-0-|-1-|-2-|-3-|
    EXPECT_EQ(fOrder, "aavavav");
    EXPECT_EQ(fAudio->fCounts, std::vector<unsigned int>(4, 1600 * 4));
    EXPECT_EQ(fAudio->fTimes, (std::vector<double>{0, 33, 66, 100}));
    EXPECT_EQ(fStamps, (std::vector<long long>{1, 33, 66, 100}));  // 0 is stamped as 1
    EXPECT_EQ(fSource->Figures().frames, 3);
    EXPECT_EQ(fSource->Figures().lost, 0);
    EXPECT_DOUBLE_EQ(fSource->Seconds(), 0.12);
}

TEST_F(SourceOnTicks, MakesUpForLostTicks) {
    make(100, true);
    observe();
    tick(1);
    tick(5);
    EXPECT_EQ(fVideo->fTimes, (std::vector<long long>{0, 2, 4, 6, 8}));
    EXPECT_EQ(fSource->Figures().ticks, 2);
    EXPECT_EQ(fSource->Figures().lost, 3);
    EXPECT_EQ(fSource->Figures().skipped, 0);
}

TEST_F(SourceOnTicks, MakesUpForTheFirstOfTheTwoTicksAtTheStart) {
    make(100, true);
    observe();
    tick(2);
    EXPECT_EQ(fVideo->fTimes, (std::vector<long long>{0, 2}));
    EXPECT_EQ(fSource->Figures().lost, 1);
    tick(3);
    EXPECT_EQ(fSource->Figures().frames, 3);
    EXPECT_EQ(fSource->Figures().lost, 1);
}

TEST_F(SourceOnTicks, OwesNothingForTheTicksBeforeItJoinedAClock) {
    make(100, true);
    tick(40);
    EXPECT_EQ(fSource->Figures().frames, 1);
    EXPECT_EQ(fSource->Figures().lost, 0);
    tick(42);
    EXPECT_EQ(fSource->Figures().frames, 3);
    EXPECT_EQ(fSource->Figures().lost, 1);
}

TEST_F(SourceOnTicks, SkipsNothingAtTheStartHoweverSlowItIs) {
    make(100, true, 0);
    observe();
    tick(2);
    EXPECT_EQ(fVideo->fTimes, (std::vector<long long>{0, 2}));
    EXPECT_EQ(fSource->Figures().skipped, 0);
}

TEST_F(SourceOnTicks, SkipsWhatIsTooFarBehindButNeverSound) {
    make(1000, true, 0.2);  // 5 frames
    observe();
    tick(1);
    tick(51);
    // 50 frames are due; all but the last 6 are passed over, and the times say so.
    EXPECT_EQ(fVideo->fTimes, (std::vector<long long>{0, 90, 92, 94, 96, 98, 100}));
    EXPECT_EQ(fSource->Figures().skipped, 44);
    EXPECT_EQ(fSource->Figures().frames, 7);
    EXPECT_EQ(fAudio->fTimes.size(), 62u);  // 51 frames of 40 ms hold 61.2 blocks
}

TEST_F(SourceOnTicks, WritesNothingToNumbersThatNobodyUses) {
    make(100, true);
    tick(1);
    tick(2);
    observe();
    tick(3);
    // The first buffer stands at its own time, not at that of a write before anybody listened.
    EXPECT_EQ(fSyncTimes, std::vector<long long>{80});
    EXPECT_EQ(fVideo->fTimes, std::vector<long long>{4});
    stop_observing();
    tick(4);
    EXPECT_EQ(fOrder.size(), 2u);
    fSyncTimes.clear();
    observe();
    tick(5);
    EXPECT_EQ(fSyncTimes, std::vector<long long>{160});
    EXPECT_EQ(fSource->Figures().frames, 5);
}

TEST_F(SourceOnTicks, CountsLateTicks) {
    make(100, true);
    tick(1, 500'000);  // the clock's first two ticks come at the start, whatever their time
    tick(2, 500'000);
    EXPECT_EQ(fSource->Figures().late, 0);
    tick(3, 500'000);
    tick(4);
    tick(5, 60'000);
    EXPECT_EQ(fSource->Figures().late, 2);
    EXPECT_GE(fSource->Figures().worstLateUs, 500'000);
}

TEST_F(SourceOnTicks, IsLateByThePaceOfItsClock) {
    make(100, true);
    fSource->SetPace(0.5);
    for (int i = 1; i <= 3; ++i) tick(i);
    tick(4, 500'000);
    EXPECT_EQ(fSource->Figures().late, 0);
    tick(5, 1'500'000);
    EXPECT_EQ(fSource->Figures().late, 1);
}

TEST_F(SourceOnTicks, BeginsAClipAnewWithItsSound) {
    make(3, true);
    observe();
    for (int i = 1; i <= 8; ++i) tick(i);
    EXPECT_EQ(fRounds, (std::vector<double>{0, 0.12, 0.24}));
    EXPECT_EQ(fVideo->fTimes.size(), 8u);
    EXPECT_FALSE(fSource->Figures().ended);
}

TEST_F(SourceOnTicks, EndsWithAClipThatIsPlayedOnce) {
    make(3, false);
    observe();
    for (int i = 1; i <= 8; ++i) tick(i);
    EXPECT_TRUE(fSource->Figures().ended);
    EXPECT_EQ(fSource->Figures().frames, 3);
    EXPECT_EQ(fVideo->fTimes, (std::vector<long long>{0, 2, 4}));
}

TEST_F(SourceOnTicks, TracksCarryWhatTheSourceRenders) {
    make(3, false);
    tnMediaRecord wish(TN_MEDIA_VIDEO);
    wish.SetCString('mcon', "x264");
    wish.SetInt32('mtbr', 700);
    wish.fWidth.SetInt32(5000);
    const tnMediaRecord video = fSource->VideoTrack(wish);
    EXPECT_EQ(video.AsString('mcon', ""), "x264");
    EXPECT_EQ(video.AsInt32('mtbr', 0), 700);
    EXPECT_EQ(video.fWidth.AsInt32(0), 64);
    EXPECT_EQ(video.AsInt64('tmsc', 0), 50);
    EXPECT_EQ(video.AsInt64('dura', 0), 2);
    EXPECT_EQ(video.AsInt32("source_id", -1), fSource->VideoNumber());
    const tnMediaRecord audio = fSource->AudioTrack(tnMediaRecord(TN_MEDIA_AUDIO));
    EXPECT_EQ(audio.fSampleRate.AsInt32(0), 48000);
    EXPECT_EQ(audio.AsInt32("source_id", -1), fSource->AudioNumber());
    EXPECT_NE(fSource->AudioNumber(), fSource->VideoNumber());
}

TEST(TestPicture, CarriesItsNumber) {
    ShowSource source;
    source.width = 160;
    source.height = 90;
    source.rate = {25, 1};
    const std::unique_ptr<LivePictures> pictures = MakeTestPictures(source);
    EXPECT_EQ(pictures->Format().CalculateBufferSize(1), 160 * 90 * 3 / 2);
    tnStreamBuffer buffer;
    ASSERT_EQ(buffer.Create(160 * 90 * 3 / 2, nullptr), 0);
    for (int number = 0; number < 300; ++number) {
        ASSERT_TRUE(pictures->Next(number % 3 == 1 ? nullptr : &buffer));
        if (number % 3 == 1) continue;
        const auto* const row = static_cast<unsigned char*>(buffer.GetPointer()) + 160 * 88;
        int read = 0;
        for (int bit = 0; bit < kFrameNumberBits; ++bit)
            read = read * 2 + (row[bit * 10 + 5] > 128);
        ASSERT_EQ(read, number);
    }
}

}  // namespace
