#include "addons/support/MovieOutput.h"

#include <gtest/gtest.h>

#include "addons/support/OutputFan.h"
#include "addons/support/SoundLine.h"
#include "tests/support/NoThreads.h"
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
    void WaitUntilAtGate() {
        const zMutexLock lock(fGateLock);
        while (!fAtGate) fGate.Wait(fGateLock);
    }
    void WaitUntilFinished() {
        const zMutexLock lock(fGateLock);
        while (!fFinished) fGate.Wait(fGateLock);
    }

    std::atomic<int> fWritten{0};
    int fWriteCode = 0;
    int fFinishCode = 0;

protected:
    int begin_file(const MovieStart&) override { return 0; }
    int write_picture(const MediaItem&) override {
        const zMutexLock lock(fGateLock);
        fAtGate = true;
        fGate.WakeAll();
        while (!fGateOpen) fGate.Wait(fGateLock);
        ++fWritten;
        return fWriteCode;
    }
    int write_sound(const MediaItem&) override { return 0; }
    int finish_file() override {
        const zMutexLock lock(fGateLock);
        fFinished = true;
        fGate.WakeAll();
        return fFinishCode;
    }

private:
    zMutex fGateLock;
    zCondition fGate;
    bool fGateOpen SPAR_GUARDED_BY(fGateLock) = true;
    bool fAtGate SPAR_GUARDED_BY(fGateLock) = false;
    bool fFinished SPAR_GUARDED_BY(fGateLock) = false;
};

class Outputs : public testing::Test {
protected:
    std::shared_ptr<GatedOutput> make(MovieOutput::Room room, double stopSeconds = 75) {
        MovieOutput::Settings settings;
        settings.where = "a test";
        settings.hasPictures = true;
        settings.stopSeconds = stopSeconds;
        auto output = std::make_shared<GatedOutput>(settings, room);
        output->Start([this](int code) {
            ++fReports;
            fCode = code;
        });
        return output;
    }

    std::atomic<int> fReports{0};
    std::atomic<int> fCode{0};
};

TEST_F(Outputs, EverythingThatWaitsIsWrittenBeforeTheEnd) {
    const auto output = make({100, 1 << 20, false});
    for (int i = 0; i < 50; ++i) output->WriteVideo(nullptr, picture(i));
    output->Stop();
    EXPECT_EQ(output->fWritten, 50);
    EXPECT_EQ(output->PicturesWritten(), 50);
    EXPECT_EQ(fReports, 0);
    output->WriteVideo(nullptr, picture(50));  // too late, and no harm
    EXPECT_EQ(output->fWritten, 50);
}

TEST_F(Outputs, WithoutAThreadThereIsNone) {
    const auto output = std::make_shared<GatedOutput>(MovieOutput::Settings{}, MovieOutput::Room{});
    {
        const tests::NoThreads none;
        EXPECT_EQ(output->Start([this](int) { ++fReports; }), MovieOutput::kNoThread);
    }
    output->Stop();
    EXPECT_EQ(fReports, 0);
    EXPECT_EQ(output.use_count(), 1) << "nothing keeps it";
}

TEST_F(Outputs, AFullQueueThatDoesNotWaitIsAFailureToldOnce) {
    const auto output = make({4, 1 << 20, false});
    output->OpenGate(false);
    output->WriteVideo(nullptr, picture(0));
    output->WaitUntilAtGate();
    for (int i = 1; i < 20; ++i) output->WriteVideo(nullptr, picture(i));
    EXPECT_EQ(fReports, 1);
    EXPECT_EQ(fCode, MovieOutput::kTooSlow);
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
    EXPECT_EQ(fReports, 0);
    output->WriteVideo(nullptr, picture(5));
    EXPECT_EQ(fReports, 1);
    output->OpenGate(true);
    output->Stop();
}

TEST_F(Outputs, AFullQueueThatWaitsLosesNothingWhileItMoves) {
    const auto output = make({2, 1 << 20, true});
    for (int i = 0; i < 300; ++i) output->WriteVideo(nullptr, picture(i));
    output->Stop();
    EXPECT_EQ(output->fWritten, 300);
    EXPECT_EQ(fReports, 0);
}

// Waits for real: the two seconds after which an output that takes nothing is given up.
TEST_F(Outputs, AFullQueueThatDoesNotMoveIsGivenUp) {
    const auto output = make({2, 1 << 20, true});
    output->OpenGate(false);
    for (int i = 0; i < 5; ++i) output->WriteVideo(nullptr, picture(i));
    EXPECT_EQ(fReports, 1);
    EXPECT_EQ(fCode, MovieOutput::kTooSlow);
    output->OpenGate(true);
    output->Stop();
}

TEST_F(Outputs, AFailedWriteIsToldOnceAndEndsTheFile) {
    const auto output = make({100, 1 << 20, false});
    output->fWriteCode = -1052;
    output->fFinishCode = -1006;
    for (int i = 0; i < 10; ++i) output->WriteVideo(nullptr, picture(i));
    output->WaitUntilFinished();
    output->Stop();
    EXPECT_EQ(fReports, 1);
    EXPECT_EQ(fCode, -1052);
    EXPECT_EQ(output->fWritten, 1);
    EXPECT_EQ(output->PicturesWritten(), 0);
}

// Waits for real: a tenth of a second for an output that would never end.
TEST_F(Outputs, AnOutputThatHangsIsLeftBehind) {
    const auto output = make({100, 1 << 20, false}, 0.1);
    output->OpenGate(false);
    output->WriteVideo(nullptr, picture(0));
    output->WaitUntilAtGate();
    output->Stop();
    EXPECT_EQ(fReports, 1);
    EXPECT_EQ(fCode, MovieOutput::kTooSlow);
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
    fan.Add(a);
    fan.WriteVideo(nullptr, picture(0));
    fan.Add(b);
    fan.WriteVideo(nullptr, picture(40));
    fan.Remove(a);
    fan.WriteVideo(nullptr, picture(80));
    a->Stop();
    b->Stop();
    EXPECT_EQ(a->fWritten, 2);
    EXPECT_EQ(b->fWritten, 2);
}

TEST(SoundLine, FindsHolesAndNoJitter) {
    SoundLine line;
    EXPECT_EQ(line.MissingBefore(500), 0);  // nothing came before
    line.Follow(500, 20);
    EXPECT_EQ(line.MissingBefore(520), 0);
    EXPECT_EQ(line.MissingBefore(539), 0);
    EXPECT_EQ(line.MissingBefore(600), 80);
    EXPECT_EQ(line.MissingBefore(100), 0);         // it comes again
    EXPECT_EQ(line.MissingBefore(5000000000), 0);  // another origin
    for (int i = 0; i < 1000; ++i) line.Follow(520 + 20 * i + (i % 2 == 0 ? 0.6 : -0.6), 20);
    EXPECT_EQ(line.MissingBefore(520 + 20 * 1000 + 21), 21);
    line.Follow(100000, 20);
    EXPECT_EQ(line.MissingBefore(100100), 80);
}

}  // namespace
