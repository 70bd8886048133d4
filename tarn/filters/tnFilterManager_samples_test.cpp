// Frames and sound on their way through the manager: to the encoders, and back to who listens.

#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <thread>

#include "tests/support/filterManagerFixture.h"

using namespace filterDoubles;

namespace {

//  written at   1000  1040  1080   (sync time)
//  buffer time   200   240   280   (first buffer fixes the distance)
//  fSyncTime    1000  1040  1080
TEST_F(FilterManager, PutsTheFirstBufferAtTheFirstWritesSyncTime) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    write_video(1000, 200);
    write_video(5000, 240);
    write_video(7000, 280);
    EXPECT_EQ(fHeard.syncTimes, (std::vector<long long>{1000, 1040, 1080}));
}

// Whichever output's buffer comes first, its distance is the whole source's. Encoder B holds its
// first frame back, so its first buffer comes late; C joins later still.
//
//     written at   1000    1040    1080    1120
//     time          200     240     280     320
//     A            1000    1040    1080    1120
//     B               -    1040    1080    1120
//     C               -       -       -    1120
TEST_F(FilterManager, OneDistanceHoldsForAllOutputsOfASource) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    tnMediaRecord second = VideoFormat("codec");
    second.SetInt32('mtbr', 9);
    observe_video(fOther, second, fHeardByOther);
    ASSERT_EQ(fVideo.size(), 2u);
    const auto deliver = fVideo[1]->fOnEncodedBuffer;
    fVideo[1]->fOnEncodedBuffer = {};
    write_video(1000, 200);
    fVideo[1]->fOnEncodedBuffer = deliver;
    write_video(1040, 240);
    write_video(1080, 280);
    const auto late = std::make_shared<zObject>();
    Heard heardLate;
    tnMediaRecord third = VideoFormat("codec");
    third.SetInt32('mtbr', 10);
    observe_video(late, third, heardLate);
    write_video(1120, 320);
    EXPECT_EQ(fHeard.syncTimes, (std::vector<long long>{1000, 1040, 1080, 1120}));
    EXPECT_EQ(fHeardByOther.syncTimes, (std::vector<long long>{1040, 1080, 1120}));
    EXPECT_EQ(heardLate.syncTimes, std::vector<long long>{1120});
}

// Each buffer's time loses its fraction, towards zero, before the distance is taken.
//
//     buffer time   -0.9   33.4   66.7   100.1
//     truncated        0     33     66     100
//     fSyncTime     5000   5033   5066    5100
TEST_F(FilterManager, TimesOfBuffersLoseTheirFraction) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    const auto deliver = fVideo[0]->fOnEncodedBuffer;
    fVideo[0]->fOnEncodedBuffer = {};
    write_video(5000, 0);
    for (const double time : {-0.9, 33.4, 66.7, 100.1}) {
        deliver(std::shared_ptr<tnVideoCompressor::EncodedBuffer>(
            new Picture(time, true), [](tnVideoCompressor::EncodedBuffer* b) { b->Release(); }));
    }
    EXPECT_EQ(fHeard.syncTimes, (std::vector<long long>{5000, 5033, 5066, 5100}));
}

// A buffer that a filter gives after its output has gone reaches nobody, and makes the entry anew.
TEST_F(FilterManager, ABufferOfAFilterThatHasGoneReachesNobody) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    write_video(0, 0);
    const auto deliver = fVideo[0]->fOnEncodedBuffer;
    fManager->StopObservingFilter(kSource, fOwner);
    deliver(std::shared_ptr<tnVideoCompressor::EncodedBuffer>(
        new Picture(40, true), [](tnVideoCompressor::EncodedBuffer* b) { b->Release(); }));
    EXPECT_EQ(fHeard.syncTimes.size(), 1u);
}

// A source that ends takes its time line with it.
TEST_F(FilterManager, ASourceThatBeginsAnewHasANewTimeLine) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    write_video(1000, 0);
    fManager->StopObservingFilter(kSource, fOwner);
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    write_video(7000, 500);
    write_video(7001, 540);
    EXPECT_EQ(fHeard.syncTimes, (std::vector<long long>{1000, 7000, 7040}));
}

TEST_F(FilterManager, OutputsAndObserversAreServedInTheOrderOfTheirComing) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    std::vector<int> order;
    std::vector<std::shared_ptr<zObject>> owners;
    for (const int rate : {0, 9}) {
        for (const char* codec : {"codec", "x"}) {
            tnMediaRecord wish = VideoFormat(codec);
            wish.SetInt32('mtbr', rate);
            owners.push_back(std::make_shared<zObject>());
            const int number = static_cast<int>(owners.size());
            fManager->ObserveVideoFilter(
                kSource, owners.back(), wish, {},
                [&order, number](const std::shared_ptr<tnVideoCompressor::EncodedBuffer>&) {
                    order.push_back(number);
                });
        }
    }
    write_video(0, 0);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(fBuffer->AddWritingRef(), 2) << "each output gave its reference back";
}

TEST_F(FilterManager, ASyncTimeOfMinusOneSetsNothing) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    write_video(-1, 200);
    write_video(50, 240);
    EXPECT_EQ(fHeard.syncTimes, (std::vector<long long>{-1, 50}));
}

TEST_F(FilterManager, AnUnknownSourceKeepsTheTimeOfItsFirstWriteForWhoJoins) {
    write_video(700, 0);
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    write_video(900, 40);
    EXPECT_EQ(fHeard.syncTimes, std::vector<long long>{700});
}

TEST_F(FilterManager, AFrameBeforeTheInputFormatFailsAndGivesItsBufferBack) {
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    write_video(0, 0);
    EXPECT_EQ(fVideo[0]->fTimes.size(), 1u);
    EXPECT_TRUE(fHeard.syncTimes.empty());
    EXPECT_EQ(fBuffer->AddWritingRef(), 2) << "the writer's own reference alone was left";
}

TEST_F(FilterManager, ADeadOwnerHearsNoVideo) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    fOwner.reset();
    write_video(0, 0);
    EXPECT_TRUE(fHeard.syncTimes.empty());
}

TEST_F(FilterManager, AnObserverMayJoinAndLeaveInsideADelivery) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    int delivered = 0;
    fManager->ObserveVideoFilter(kSource, fOwner, VideoFormat("codec"), {},
                                 [&](const std::shared_ptr<tnVideoCompressor::EncodedBuffer>&) {
                                     ++delivered;
                                     observe_video(fOther, VideoFormat("x"), fHeardByOther);
                                     fManager->StopObservingFilter(kSource, fOwner);
                                 });
    write_video(0, 0);
    EXPECT_EQ(delivered, 1);
    EXPECT_TRUE(fHeardByOther.syncTimes.empty());
    write_video(40, 40);
    EXPECT_EQ(delivered, 1);
    EXPECT_EQ(fHeardByOther.syncTimes.size(), 1u);
}

TEST_F(FilterManager, WhoIsRemovedInsideADeliveryStillHearsThatBuffer) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    fManager->ObserveVideoFilter(kSource, fOwner, VideoFormat("codec"), {},
                                 [&](const std::shared_ptr<tnVideoCompressor::EncodedBuffer>&) {
                                     fManager->StopObservingFilter(kSource, fOther);
                                 });
    observe_video(fOther, VideoFormat("x"), fHeardByOther);
    write_video(0, 0);
    EXPECT_EQ(fHeardByOther.syncTimes, std::vector<long long>{0});
    write_video(40, 40);
    EXPECT_EQ(fHeardByOther.syncTimes.size(), 1u);
}

TEST_F(FilterManager, SoundBeforeTheInputFormatIsNotEncoded) {
    observe_audio(fOwner, AudioFormat("sound"), fHeard);
    write_audio(100);
    EXPECT_TRUE(fAudio[0]->fTimes.empty());
    fManager->SetInputFormat(kSource, AudioFormat(nullptr));
    write_audio(100, 48);
    EXPECT_EQ(fAudio[0]->fTimes, std::vector<double>{1.0});
    EXPECT_EQ(fAudio[0]->fCounts, std::vector<unsigned int>{8});
}

TEST_F(FilterManager, ATimeOfZeroIsStampedOneAndCountsAsZero) {
    fManager->SetInputFormat(kSource, AudioFormat(nullptr));
    observe_audio(fOwner, AudioFormat("sound"), fHeard);
    fAudio[0]->fPackets = 2;
    write_audio(0);
    EXPECT_EQ(fHeard.stamps[0][0], 1);
    EXPECT_EQ(fHeard.stamps[0][1], 10);
    EXPECT_EQ(fHeard.stamps[0][2], -1);
}

TEST_F(FilterManager, StampsStopAtThirtyTwoAndTimeRunsOn) {
    fManager->SetInputFormat(kSource, AudioFormat(nullptr));
    observe_audio(fOwner, AudioFormat("sound"), fHeard);
    tnMediaRecord second = AudioFormat("sound");
    second.fSampleRate.SetInt32(32000);
    observe_audio(fOther, second, fHeardByOther);
    fAudio[0]->fPackets = 40;
    write_audio(1000);
    ASSERT_EQ(fHeard.stamps[0].size(), 32u);
    EXPECT_EQ(fHeard.stamps[0][31], 1310);
    EXPECT_EQ(fHeardByOther.stamps[0][0], 1400)
        << "the later output goes on from the earlier one's end";
}

TEST_F(FilterManager, ALaterOutputIsStampedByTruncatedSteps) {
    fManager->SetInputFormat(kSource, AudioFormat(nullptr));
    fAudioMilliseconds = 33.333333333333336;
    observe_audio(fOwner, AudioFormat("sound"), fHeard);
    tnMediaRecord second = AudioFormat("sound");
    second.fSampleRate.SetInt32(32000);
    observe_audio(fOther, second, fHeardByOther);
    fAudio[0]->fPackets = 3;
    write_audio(1);
    EXPECT_EQ(fHeardByOther.stamps[0][0], 1 + 33 * 3);
}

TEST_F(FilterManager, ADeadOwnerStillHearsItsSound) {
    fManager->SetInputFormat(kSource, AudioFormat(nullptr));
    observe_audio(fOwner, AudioFormat("sound"), fHeard);
    fOwner.reset();
    write_audio(5);
    EXPECT_EQ(fHeard.stamps.size(), 1u);
}

TEST_F(FilterManager, WhoJoinsAmidstABlockOfSoundHearsTheNext) {
    fManager->SetInputFormat(kSource, AudioFormat(nullptr));
    int delivered = 0;
    fManager->ObserveAudioFilter(kSource, fOwner, AudioFormat("sound"), {},
                                 [&](const std::shared_ptr<tnAudioCompressor::EncodedBuffer>&) {
                                     if (++delivered > 1) return;
                                     observe_audio(fOther, AudioFormat("x"), fHeardByOther);
                                 });
    write_audio(5);
    EXPECT_TRUE(fHeardByOther.stamps.empty());
    write_audio(15);
    ASSERT_EQ(fHeardByOther.stamps.size(), 1u);
    EXPECT_EQ(fHeardByOther.stamps[0][0], 15);
    EXPECT_EQ(delivered, 2);
}

// 1000 / 44100 milliseconds a sample frame, rounded down to whole ones; a rate of 0 is not special.
TEST_F(FilterManager, TheFiltersTimeComesFromThePosition) {
    const struct {
        int rate;
        long long position;
        double time;
    } rows[] = {{44100, 0, 0},
                {44100, 44, 0},
                {44100, 45, 1},
                {44100, 44100, 1000},
                {48000, 1600, 33},
                {48000, -1, -1},
                {48000, 48000LL * 86400 * 365, 1000.0 * 86400 * 365}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.rate << " " << row.position);
        fManager = std::make_shared<tnFilterManager>();
        fManager->RegisterFactory("sound", [this] { return make_audio(); });
        tnMediaRecord input = AudioFormat(nullptr);
        input.fSampleRate.SetInt32(row.rate);
        fManager->SetInputFormat(kSource, input);
        observe_audio(fOwner, AudioFormat("sound"), fHeard);
        write_audio(1, row.position);
        EXPECT_EQ(fAudio.back()->fTimes, std::vector<double>{row.time});
    }
    tnMediaRecord rateless = AudioFormat(nullptr);
    rateless.fSampleRate.SetInt32(0);
    fManager = std::make_shared<tnFilterManager>();
    fManager->RegisterFactory("sound", [this] { return make_audio(); });
    fManager->SetInputFormat(kSource, rateless);
    observe_audio(fOwner, AudioFormat("sound"), fHeard);
    write_audio(1, 48);
    ASSERT_EQ(fAudio.back()->fTimes.size(), 1u);
    EXPECT_TRUE(std::isinf(fAudio.back()->fTimes[0]));
}

TEST_F(FilterManager, AnErrorOfTheSoundFilterDeliversNothing) {
    fManager->SetInputFormat(kSource, AudioFormat(nullptr));
    observe_audio(fOwner, AudioFormat("sound"), fHeard);
    fAudio[0]->fResult = -1;
    write_audio(5);
    fAudio[0]->fResult = 0;
    fAudio[0]->fPackets = 0;
    write_audio(5);
    EXPECT_TRUE(fHeard.stamps.empty());
}

TEST_F(FilterManager, ABlockThatComesWithAnErrorIsReleasedAndNotDelivered) {
    fManager->SetInputFormat(kSource, AudioFormat(nullptr));
    observe_audio(fOwner, AudioFormat("sound"), fHeard);
    const int before = Sound::gLiving;
    fAudio[0]->fGivesAlways = true;
    for (const int result : {-1, 1}) {
        fAudio[0]->fResult = result;
        write_audio(5);
    }
    EXPECT_EQ(fAudio[0]->fTimes.size(), 2u);
    EXPECT_TRUE(fHeard.stamps.empty());
    EXPECT_EQ(Sound::gLiving, before);
}

// One writer, and observers that join and leave from other threads meanwhile.
TEST_F(FilterManager, ObserversComeAndGoWhileFramesFlow) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    std::atomic<bool> done{false};
    auto comeAndGo = [&] {
        while (!done) {
            const auto owner = std::make_shared<zObject>();
            auto count = std::make_shared<std::atomic<int>>(0);
            fManager->ObserveVideoFilter(kSource, owner, VideoFormat("x"), {},
                                         [count](const auto&) { ++*count; });
            std::this_thread::yield();
            fManager->StopObservingFilter(kSource, owner);
        }
    };
    std::thread first(comeAndGo);
    std::thread second(comeAndGo);
    for (int frame = 0; frame < 2000; ++frame) write_video(frame * 40, frame * 40);
    done = true;
    first.join();
    second.join();
    EXPECT_EQ(fHeard.syncTimes.size(), 2000u);
}

}  // namespace
