#include "addons/support/MovieOutput.h"

#include <cmath>
#include <gtest/gtest.h>
#include <new>

#include "orb/testSupport.h"
#include "tarn/writers/writerErrors.h"

#include "addons/support/OutputFan.h"
#include "addons/support/SoundLine.h"
#include "tests/support/NoThreads.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/filterDoubles.h"

using filterDoubles::Picture;
using filterDoubles::Sound;

namespace {

std::shared_ptr<tnVideoCompressor::EncodedBuffer> picture(double ms, bool key = true) {
    return {new Picture(ms, key), [](tnVideoCompressor::EncodedBuffer* one) { one->Release(); }};
}

std::shared_ptr<tnAudioCompressor::EncodedBuffer> sound(int packets) {
    return {new Sound(packets, 20, 0),
            [](tnAudioCompressor::EncodedBuffer* one) { one->Release(); }};
}

/// Holds its thread back at a gate, and counts.
class GatedOutput final : public MovieOutput {
public:
    GatedOutput(const Settings& settings, Room room) : MovieOutput(settings, room) {}

    int Open() override { return 0; }
    long long BytesWritten(bool) const override { return fWritten; }
    void OpenGate(bool open) {
        const zMutexLock lock(fGateLock);
        fGateOpen = open;
        fGate.WakeAll();
    }
    void LetOnePass() {
        const zMutexLock lock(fGateLock);
        ++fPasses;
        fGate.WakeAll();
    }
    bool WaitUntilWritten(int count) {
        return tests::WaitUntil([&] { return fWritten >= count; }, std::chrono::milliseconds(1));
    }
    void WaitUntilAtGate() {
        const zMutexLock lock(fGateLock);
        while (!fAtGate) fGate.Wait(fGateLock);
    }
    void WaitUntilFinished() {
        const zMutexLock lock(fGateLock);
        while (!fFinished) fGate.Wait(fGateLock);
    }

    std::atomic<int> fWritten{0};  // pictures
    std::atomic<int> fSoundWritten{0};
    int fWriteCode = 0;
    int fFinishCode = 0;
    bool fHasNoMemory = false;

protected:
    int begin_file(const MovieStart&) override { return 0; }
    int write_picture(const MediaItem&) override {
        const zMutexLock lock(fGateLock);
        fAtGate = true;
        fGate.WakeAll();
        while (!fGateOpen && fPasses == 0) fGate.Wait(fGateLock);
        if (!fGateOpen) --fPasses;
        fAtGate = false;
        ++fWritten;
        if (fHasNoMemory) throw std::bad_alloc();
        return fWriteCode;
    }
    int write_sound(const MediaItem&) override {
        ++fSoundWritten;
        return 0;
    }
    int finish_file() override {
        const zMutexLock lock(fGateLock);
        fFinished = true;
        fGate.WakeAll();
        if (fHasNoMemory) throw std::bad_alloc();
        return fFinishCode;
    }

private:
    zMutex fGateLock;
    zCondition fGate;
    bool fGateOpen SPAR_GUARDED_BY(fGateLock) = true;
    int fPasses SPAR_GUARDED_BY(fGateLock) = 0;
    bool fAtGate SPAR_GUARDED_BY(fGateLock) = false;
    bool fFinished SPAR_GUARDED_BY(fGateLock) = false;
};

class Outputs : public testing::Test {
protected:
    std::shared_ptr<GatedOutput> make(MovieOutput::Room room, double stopSeconds = 75,
                                      bool hasSound = false) {
        MovieOutput::Settings settings;
        settings.where = "a test";
        settings.hasPictures = true;
        settings.hasSound = hasSound;
        settings.stopSeconds = stopSeconds;
        auto output = std::make_shared<GatedOutput>(settings, room);
        EXPECT_EQ(output->Start(), 0);
        return output;
    }
};

TEST_F(Outputs, EverythingThatWaitsIsWrittenBeforeTheEnd) {
    const auto output = make({100, 1 << 20, false});
    for (int i = 0; i < 50; ++i) output->WriteVideo(nullptr, picture(i));
    output->Stop();
    EXPECT_EQ(output->fWritten, 50);
    EXPECT_EQ(output->PicturesWritten(), 50);
    EXPECT_EQ(output->Failure(), 0);
    output->WriteVideo(nullptr, picture(50));  // too late, and no harm
    EXPECT_EQ(output->fWritten, 50);
}

TEST_F(Outputs, WithoutAThreadThereIsNone) {
    const auto output = std::make_shared<GatedOutput>(MovieOutput::Settings{}, MovieOutput::Room{});
    {
        const tests::NoThreads none;
        EXPECT_EQ(output->Start(), MovieOutput::kNoThread);
    }
    output->Stop();
    EXPECT_EQ(output->Failure(), 0);
    EXPECT_EQ(output.use_count(), 1) << "nothing keeps it";
}

TEST_F(Outputs, AFullQueueThatDoesNotWaitIsAFailureToldOnce) {
    const auto output = make({4, 1 << 20, false});
    output->OpenGate(false);
    output->WriteVideo(nullptr, picture(0));
    output->WaitUntilAtGate();
    Quillon::Orb::TraceCatcher trace;
    for (int i = 1; i < 20; ++i) output->WriteVideo(nullptr, picture(i));
    EXPECT_EQ(output->Failure(), MovieOutput::kTooSlow);
    EXPECT_EQ(trace.Count(), 1);
    output->OpenGate(true);
    output->Stop();
    EXPECT_EQ(output->fWritten, 1);
}

TEST_F(Outputs, BytesFillAQueueToo) {
    const auto output = make({1000, 20, false});  // pictures of five bytes
    output->OpenGate(false);
    output->WriteVideo(nullptr, picture(0));
    output->WaitUntilAtGate();
    for (int i = 1; i <= 4; ++i) output->WriteVideo(nullptr, picture(i));
    EXPECT_EQ(output->Failure(), 0);
    output->WriteVideo(nullptr, picture(5));
    EXPECT_EQ(output->Failure(), MovieOutput::kTooSlow);
    output->OpenGate(true);
    output->Stop();
}

TEST_F(Outputs, AFullQueueThatWaitsLosesNothingWhileItMoves) {
    const auto output = make({2, 1 << 20, true});
    for (int i = 0; i < 300; ++i) output->WriteVideo(nullptr, picture(40 * i));
    output->Stop();
    EXPECT_EQ(output->fWritten, 300);
    EXPECT_EQ(output->Failure(), 0);
}

// Waits for real: what a WaitAllowance has, once.
TEST_F(Outputs, WhatHasNoRoomIsLeftOutUntilThereIsSome) {
    const auto output = make({2, 1 << 20, true});
    output->OpenGate(false);
    output->WriteVideo(nullptr, picture(0));
    output->WaitUntilAtGate();
    EXPECT_EQ(output->Trouble(true), 0);
    for (int i = 1; i < 300; ++i) output->WriteVideo(nullptr, picture(i));
    EXPECT_EQ(output->Trouble(true), kOutputLeavesOut);
    EXPECT_EQ(output->Trouble(false), 0);
    output->OpenGate(true);
    ASSERT_TRUE(output->WaitUntilWritten(3));
    output->WriteVideo(nullptr, picture(300));
    EXPECT_EQ(output->Trouble(true), 0);
    output->Stop();
    EXPECT_EQ(output->fWritten, 4);
    EXPECT_EQ(output->Failure(), 0);
}

// One picture is written where ten come: were a write to wait for that one, the next ten would
// never come.
TEST_F(Outputs, AnOutputThatMovesSlowlyHoldsNobodyUp) {
    const auto output = make({4, 1 << 20, true});
    output->OpenGate(false);
    for (int i = 0; i < 300; ++i) {
        output->WriteVideo(nullptr, picture(i));
        if (i % 10 != 9) continue;
        output->LetOnePass();
        ASSERT_TRUE(output->WaitUntilWritten(i / 10 + 1)) << i;
        output->WaitUntilAtGate();
    }
    EXPECT_EQ(output->Trouble(true), kOutputLeavesOut);
    EXPECT_EQ(output->Failure(), 0);
    output->OpenGate(true);
    output->Stop();
    EXPECT_EQ(output->fWritten, 34) << "30 passed, one at the gate, three behind it";
}

TEST_F(Outputs, SoundHasRoomWherePicturesHaveNone) {
    const auto output = make({2, 1 << 20, true}, 75, true);
    output->OpenGate(false);
    output->WriteAudio(nullptr, sound(1));
    output->WriteVideo(nullptr, picture(0));
    output->WaitUntilAtGate();
    for (int i = 1; i < 300; ++i) {
        output->WriteAudio(nullptr, sound(1));
        output->WriteVideo(nullptr, picture(i));
    }
    EXPECT_EQ(output->Trouble(true), kOutputLeavesOut);
    EXPECT_EQ(output->Trouble(false), 0);
    output->OpenGate(true);
    output->Stop();
    EXPECT_EQ(output->fSoundWritten, 300);
    EXPECT_EQ(output->fWritten, 3);
}

// Pictures of a millisecond, for a little more than ten seconds.
TEST_F(Outputs, ATrackThatGetsNothingIsToldUntilItDoes) {
    const auto output = make({1 << 20, 1 << 20, false}, 75, true);
    output->WriteAudio(nullptr, sound(1));
    for (int i = 0; i < 10000; ++i) output->WriteVideo(nullptr, picture(i));
    EXPECT_EQ(output->Trouble(false), 0);
    output->WriteVideo(nullptr, picture(10000));
    EXPECT_EQ(output->Trouble(false), kOutputGetsNothing);
    EXPECT_EQ(output->Trouble(true), 0);
    output->WriteAudio(nullptr, sound(1));
    EXPECT_EQ(output->Trouble(false), 0);
    for (int i = 0; i < 501; ++i) output->WriteAudio(nullptr, sound(1));  // of twenty each
    EXPECT_EQ(output->Trouble(true), kOutputGetsNothing);
    output->Stop();
    EXPECT_EQ(output->Failure(), 0);
}

TEST_F(Outputs, AMovieThatBeganWithoutSoundSaysSoToItsEnd) {
    const auto output = make({1 << 20, 1 << 20, false}, 75, true);
    for (int i = 0; i <= 10001; ++i) output->WriteVideo(nullptr, picture(i));
    ASSERT_TRUE(output->WaitUntilWritten(10002));
    output->WriteAudio(nullptr, sound(1));
    EXPECT_EQ(output->Trouble(false), kOutputGetsNothing);
    output->Stop();
    EXPECT_EQ(output->fSoundWritten, 0);
    EXPECT_EQ(output->Trouble(false), kOutputGetsNothing);
}

TEST(WaitAllowance, IsSpentByBeingLateAndNotByBeingEarly) {
    constexpr long long kMost = WaitAllowance::kMostUs;
    WaitAllowance allowance;
    allowance.Restore(1'000'000);
    EXPECT_EQ(allowance.From(1'000'000), kMost);
    allowance.Advance(200);  // milliseconds that are written at once
    EXPECT_EQ(allowance.From(1'000'000), kMost + 200'000);
    allowance.Spend(1'000'000, 1'150'000);
    EXPECT_EQ(allowance.From(1'150'000), kMost + 50'000);
    allowance.Spend(1'150'000, 1'300'000);
    EXPECT_EQ(allowance.From(1'300'000), kMost - 100'000);
    allowance.Spend(1'300'000, 9'000'000);
    EXPECT_EQ(allowance.From(9'000'000), 0);
    allowance.Advance(1000);  // a host that is late anyway
    EXPECT_EQ(allowance.From(9'000'000), 0);
    allowance.Advance(-1e9);
    EXPECT_EQ(allowance.From(9'000'000), 0);
    allowance.Restore(9'500'000);
    EXPECT_EQ(allowance.From(9'500'000), kMost);
}

TEST_F(Outputs, AFailedWriteIsToldOnceAndEndsTheFile) {
    const auto output = make({100, 1 << 20, false});
    output->fWriteCode = -1052;
    output->fFinishCode = -1006;
    for (int i = 0; i < 10; ++i) output->WriteVideo(nullptr, picture(i));
    output->WaitUntilFinished();
    output->Stop();
    EXPECT_EQ(output->Failure(), -1052);
    EXPECT_EQ(output->fWritten, 1);
    EXPECT_EQ(output->PicturesWritten(), 0);
}

TEST_F(Outputs, AnOutputWithoutMemoryEndsAlone) {
    const auto other = make({100, 1 << 20, false});
    const auto output = make({100, 1 << 20, false});
    output->fHasNoMemory = true;
    for (int i = 0; i < 10; ++i) output->WriteVideo(nullptr, picture(i));
    output->WaitUntilFinished();
    output->Stop();
    EXPECT_EQ(output->Failure(), MovieOutput::kNoMemory);
    EXPECT_EQ(output->fWritten, 1);
    other->WriteVideo(nullptr, picture(0));
    other->Stop();
    EXPECT_EQ(other->fWritten, 1);
}

// Waits for real: a tenth of a second for an output that would never end.
TEST_F(Outputs, AnOutputThatHangsIsLeftBehind) {
    const auto output = make({100, 1 << 20, false}, 0.1);
    output->OpenGate(false);
    output->WriteVideo(nullptr, picture(0));
    output->WaitUntilAtGate();
    output->Stop();
    EXPECT_EQ(output->Failure(), MovieOutput::kTooSlow);
    output->OpenGate(true);
    output->WaitUntilFinished();  // its thread ends when it may
}

TEST_F(Outputs, TakeWhatTheyHaveTracksFor) {
    const auto output = make({100, 1 << 20, false});
    output->WriteAudio(nullptr, sound(1));  // no sound track
    output->WriteVideo(nullptr, picture(0, false));
    output->WriteVideo(nullptr, picture(40));
    output->Stop();
    EXPECT_EQ(output->fWritten, 1);
}

TEST_F(Outputs, AFanReachesThoseThatAreThere) {
    const auto a = make({100, 1 << 20, false});
    const auto b = make({100, 1 << 20, false});
    OutputFan fan;
    const auto filter = std::make_shared<filterDoubles::VideoCompressor>();
    fan.Add(a);
    fan.WriteVideo(filter, picture(0));
    fan.Add(b);
    fan.WriteVideo(nullptr, picture(20));  // nobody can tell yet what it is
    fan.WriteVideo(filter, picture(40));
    fan.Remove(a);
    fan.WriteVideo(filter, picture(80));
    a->Stop();
    b->Stop();
    EXPECT_EQ(a->fWritten, 2);
    EXPECT_EQ(b->fWritten, 2);
}

TEST(SoundLine, FindsHolesAndNoJitter) {
    SoundLine line;
    EXPECT_EQ(line.MissingBefore(500, nullptr), 0);  // nothing came before
    line.Follow(500, 20, 0);
    EXPECT_EQ(line.MissingBefore(520, nullptr), 0);
    EXPECT_EQ(line.MissingBefore(539, nullptr), 0);
    EXPECT_EQ(line.MissingBefore(600, nullptr), 80);
    EXPECT_EQ(line.MissingBefore(100, nullptr), 0);         // it comes again
    EXPECT_EQ(line.MissingBefore(5000000000, nullptr), 0);  // another origin
    for (int i = 0; i < 1000; ++i) line.Follow(520 + 20 * i + (i % 2 == 0 ? 0.6 : -0.6), 20, 0);
    EXPECT_EQ(line.MissingBefore(520 + 20 * 1000 + 21, nullptr), 21);
    line.Follow(100000, 20, 0);
    EXPECT_EQ(line.MissingBefore(100100, nullptr), 80);
}

TEST(SoundLine, TakesBackTheSilenceOfAGapThatWasNone) {
    SoundLine line;
    line.Follow(0, 5, 0);
    EXPECT_EQ(line.MissingBefore(30, nullptr), 25);  // told late
    line.Follow(30, 5, 25);
    EXPECT_EQ(line.TakeBack(5), 0);
    double taken = 0;
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(line.MissingBefore(10 + 5 * i, nullptr), 0);
        line.Follow(10 + 5 * i, 5, 0);
        taken += line.TakeBack(5);
    }
    EXPECT_EQ(taken, 25);
    EXPECT_EQ(line.Place().endMs, 60);
    EXPECT_EQ(line.Place().cutMs, 0);
    EXPECT_EQ(line.MissingBefore(5060, nullptr), 5000);
    line.Follow(5060, 5, 5000);
    line.Follow(40, 5, 0);  // a line that began anew, as it does for pictures
    EXPECT_EQ(line.TakeBack(5), 0);
}

// Where the next piece stands in the movie, as a file lays it down.
struct LaidSound {
    /// Gives the place of the piece's end.
    double Write(double startMs, double lastsMs) {
        const double missing = line.MissingBefore(startMs, nullptr);
        line.Follow(startMs, lastsMs, missing);
        return endMs += missing + lastsMs - line.TakeBack(lastsMs);
    }
    SoundLine line;
    double endMs = 0;
};

// Positions come from the host's clock, and blocks from a device that is not as fast.
TEST(SoundLine, StaysBesideADeviceOfAnotherSpeed) {
    for (const double speed : {0.999, 0.99995, 1.00005, 1.001}) {
        SCOPED_TRACE(speed);
        LaidSound sound;
        double end = 0;
        for (int block = 0; block < 6 * 3600 * 100; ++block) {
            end = sound.Write(10.0 * block, 10.0 * speed);
            ASSERT_NEAR(end, 10.0 * (block + 1), SoundLine::kGapMs + 1) << block;
        }
    }
}

TEST(SoundLine, IsInItsPlaceAgainBehindABlockThatWasToldEarly) {
    LaidSound sound;
    for (int block = 0; block < 100; ++block) sound.Write(20.0 * block, 20);
    sound.Write(2000 - 25, 20);
    sound.Write(2020, 20);
    EXPECT_NEAR(sound.Write(2040, 20), 2060, 1e-6);
}

/// Both tracks of a movie that began at 1000 on both lines, ten seconds in.
struct TwoLines {
    TwoLines() {
        pictures.BeginAt(1000);
        sound.BeginAt(1000);
        for (int i = 0; i < 250; ++i) {
            Picture(1000 + 40 * i);
            Sound(1000 + 40 * i);
        }
    }
    /// The picture's time in the movie.
    double Picture(double ms) {
        const MoviePlace place = sound.Place();
        return ms - 1000 - pictures.Follow(ms, &place);
    }
    /// The sound's time in the movie.
    double Sound(double ms) {
        const MoviePlace place = pictures.Place();
        const double end = sound.Place().endMs;
        const double missing = sound.MissingBefore(ms, &place);
        sound.Follow(ms, 40, missing);
        return end + missing;
    }
    PictureLine pictures;
    SoundLine sound;
};

TEST(TwoLines, StayTogetherWhereBothJump) {
    for (const double jump : {300e3, 599e3, 601e3, 7200e3, 3e10, -5e3, -7200e3}) {
        for (const bool soundFirst : {false, true}) {
            SCOPED_TRACE(testing::Message() << jump << " ms, sound first " << soundFirst);
            TwoLines lines;
            double sound = soundFirst ? lines.Sound(11000 + jump) : 0;
            const double picture = lines.Picture(11000 + jump);
            if (!soundFirst) sound = lines.Sound(11000 + jump);
            EXPECT_NEAR(picture, sound, 1e-3);
            EXPECT_NEAR(picture, std::fabs(jump) < 600e3 && jump > 0 ? 10000 + jump : 10000, 1e-3);
            EXPECT_NEAR(lines.Picture(11040 + jump), picture + 40, 1e-3);
            EXPECT_NEAR(lines.Sound(11040 + jump), sound + 40, 1e-3);
        }
    }
}

// A clock that was set back a little: pictures are shown for no time, and sound is left out.
TEST(TwoLines, StayTogetherWhereBothStepBackALittle) {
    for (const double back : {50.0, 300.0, 900.0}) {
        SCOPED_TRACE(back);
        TwoLines lines;
        for (int i = 0; i < 100; ++i) {
            lines.Picture(11000 - back + 40 * i);
            lines.Sound(11000 - back + 40 * i);
        }
        EXPECT_NEAR(lines.Picture(15000 - back), 14000 - back, 1e-3);
        EXPECT_NEAR(lines.Sound(15000 - back), 14000 - back, 1e-3);
    }
}

// What the second one lost beside the jump is told from where the first one stands.
TEST(TwoLines, AreBesideEachOtherAlsoWhereOneComesBackLater) {
    const double jump = 7200e3;
    TwoLines first;
    EXPECT_NEAR(first.Sound(11000 + jump), 10000, 1e-3);
    EXPECT_NEAR(first.Picture(11300 + jump), 10300, 1e-3);
    TwoLines second;
    EXPECT_NEAR(second.Picture(11000 + jump), 10000, 1e-3);
    EXPECT_NEAR(second.Sound(11300 + jump), 10300, 1e-3);
}

TEST(TwoLines, TellALongPauseOfOneFromAnotherOrigin) {
    const int blocks = 700 * 25;  // 700 seconds
    TwoLines noPictures;
    for (int i = 0; i < blocks; ++i) noPictures.Sound(11000 + 40 * i);
    EXPECT_NEAR(noPictures.Picture(711000), 710000, 1e-3);
    TwoLines noSound;
    for (int i = 0; i < blocks; ++i) noSound.Picture(11000 + 40 * i);
    EXPECT_NEAR(noSound.Sound(711000), 710000, 1e-3);

    TwoLines otherPictures;
    EXPECT_NEAR(otherPictures.Picture(711000), 10000, 1e-3);
    EXPECT_NEAR(otherPictures.Sound(11000), 10000, 1e-3);
    TwoLines otherSound;
    EXPECT_NEAR(otherSound.Sound(711000), 10000, 1e-3);
    EXPECT_NEAR(otherSound.Picture(11000), 10000, 1e-3);
}

TEST(PictureLine, WithoutSoundEachLongStepIsAPause) {
    PictureLine line;
    EXPECT_EQ(line.Follow(0, nullptr), 0);
    EXPECT_EQ(line.Follow(7200e3, nullptr), 0);
    EXPECT_EQ(line.Follow(7200e3 - 500, nullptr), 0);     // counted unevenly
    EXPECT_EQ(line.Follow(0, nullptr), -(7200e3 - 500));  // anew
}

}  // namespace
