// The end of a movie file writer's recording: tracks that are slow or stuck, and what is reported
// of the bytes on the way there.

#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <utility>

#include "orb/testSupport.h"
#include "spar/zTraceManager.h"

#include "tests/support/WriterFixture.h"
#include "tests/support/writerWaits.h"

using namespace writerFixture;
using writerWaits::Waits;

namespace {

constexpr const char* kTimeout = "tnWriteORB2::CloseStreams - timeout\n";

/// Keeps what is traced, and does something at the note of a close that has waited long enough.
class AtTimeout final : public TraceCatcher {
public:
    explicit AtTimeout(std::function<void()> action) : fAction(std::move(action)) {}

    void TraceMessage(int level, const std::string& text) override {
        TraceCatcher::TraceMessage(level, text);
        if (text == kTimeout) fAction();
    }

private:
    const std::function<void()> fAction;
};

class ThrowingSink final : public zTraceManager {
public:
    ThrowingSink() : fBefore(zTraceManager::SetDefault(this)) {}
    ~ThrowingSink() override { zTraceManager::SetDefault(fBefore); }

    void TraceMessage(int, const std::string&) override {
        ++fCalls;
        if (fAction) fAction();
        throw std::runtime_error("the log is gone");
    }

    int fCalls = 0;
    std::function<void()> fAction;

private:
    zTraceManager* const fBefore;
};

TEST_F(Writer, ATrackThatIsNotReadyInTimeStandsAsItWas) {
    set_up_both();
    const int frames = fill_pictures();
    TraceCatcher trace;
    EXPECT_EQ(fWriter->CloseStreams(0), -14) << "the held frame leaves without a wait";
    EXPECT_EQ(trace.Lines(), std::vector<std::string>{kTimeout});
    EXPECT_FALSE(fWriter->IsVideoReady());
    EXPECT_TRUE(fWriter->IsAudioReady());

    // Both tracks take more: no end of stream was given. This frame is held, the one before it
    // went.
    Frame late(frames * 1001, 1001);
    EXPECT_EQ(fWriter->WriteVideo(late), 0);
    EXPECT_EQ(late.written, 0);
    Packet packet;
    const unsigned char block[400] = {};
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), 0);

    fScript.stuck = false;
    EXPECT_EQ(fWriter->CloseStreams(10'000'000), 0);
    EXPECT_EQ(trace.Count(), 1);
    fWriter->Close();
    int pictures = 0;
    int blocks = 0;
    for (const auto& sample : fFile.samples) ++(sample.track == 0 ? pictures : blocks);
    EXPECT_EQ(pictures, frames + 1);
    EXPECT_EQ(blocks, 1);
}

//  frames in the track's queue: one; sound: full, and its file stands still
TEST_F(Writer, TheHeldFrameLeavesBeforeACloseThatTimesOut) {
    fFile.stuck = true;
    set_up_both();
    Frame first(0, 1001);
    ASSERT_EQ(fWriter->WriteVideo(first), 0);
    const unsigned char block[64] = {};
    Packet packet;
    while (fWriter->IsAudioReady()) {
        ASSERT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 64), 0);
    }
    EXPECT_EQ(fWriter->CloseStreams(0), -14);
    // Nothing is held any more: this frame is, and the one before it does not leave twice.
    Frame second(1001, 1001);
    ASSERT_EQ(fWriter->WriteVideo(second), 0);
    EXPECT_EQ(second.written, 0);
    fFile.stuck = false;
    fWriter->Close();
    int pictures = 0;
    for (const auto& sample : fFile.samples) pictures += sample.track == 0 ? 1 : 0;
    EXPECT_EQ(pictures, 2);
}

TEST_F(Writer, ACloseWaitsInTenthsOfASecondUntilItsLimit) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    fill_pictures();
    const std::pair<long long, int> kCases[] = {{-1, 0},      {0, 0},       {1, 1},
                                                {100'000, 1}, {250'000, 3}, {1'000'000, 10}};
    for (const auto& [limit, expected] : kCases) {
        const Waits waits;
        EXPECT_EQ(fWriter->CloseStreams(limit), -14) << limit;
        EXPECT_EQ(waits.fWaits, expected) << limit;
    }
}

TEST_F(Writer, ACloseThatFindsItsTracksReadyDoesNotWait) {
    set_up_both();
    const Waits waits;
    EXPECT_EQ(fWriter->CloseStreams(0), 0);
    EXPECT_EQ(waits.fWaits, 0);
}

TEST_F(Writer, CloseHasAMinutesPatienceAndThenCompletesTheFile) {
    set_up_both();
    const int frames = fill_pictures();
    Waits waits;
    waits.fOnWait = [&] {
        if (waits.fWaits > 1000) fScript.stuck = false;  // else a close without a limit hangs
    };
    int waited = 0;
    AtTimeout trace([&] {
        waited = waits.fWaits;
        EXPECT_FALSE(fFile.finished);
        fScript.stuck = false;  // the file's own end waits for the encoder, too
    });
    fWriter->Close();
    EXPECT_EQ(trace.Lines(), std::vector<std::string>{kTimeout});
    EXPECT_EQ(waited, 600);
    EXPECT_TRUE(fFile.finished);
    EXPECT_EQ(static_cast<int>(fFile.samples.size()), frames);
}

TEST_F(Writer, ASinkThatThrowsStopsNoClose) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    fill_pictures();
    const Waits waits;
    ThrowingSink sink;
    EXPECT_EQ(fWriter->CloseStreams(0), -14);
    const int before = sink.fCalls;
    EXPECT_GE(before, 1);
    sink.fAction = [this] { fScript.stuck = false; };
    std::exchange(fWriter, nullptr)->Release();
    EXPECT_GT(sink.fCalls, before);
    EXPECT_TRUE(fFile.finished);
}

TEST_F(Writer, ClosedStreamsCloseAgainAtOnce) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    Frame frame(0, 1001);
    EXPECT_EQ(fWriter->WriteVideo(frame), 0);
    EXPECT_EQ(fWriter->CloseStreams(1'000'000), 0);
    EXPECT_EQ(fWriter->CloseStreams(0), 0);
    EXPECT_EQ(fWriter->WriteVideo(frame), -1006) << "the tracks are gone";
    fWriter->Close();
    EXPECT_EQ(fFile.samples.size(), 1u) << "the held frame left with the close";
}

/// The code of the first picture that is not taken.
int write_until_refused(tnWriteORB2& writer) {
    int code = 0;
    for (int i = 0; code == 0; ++i) {
        Frame frame(i * 1001, 1001);
        code = writer.WriteVideo(frame);
    }
    return code;
}

TEST_F(Writer, TellsOfAFileThatFailedWhileItRunsAndOnceItIsClosed) {
    EXPECT_FALSE(fWriter->HasFailed()) << "there is none";
    fFile.failAtSample = 1;
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    EXPECT_FALSE(fWriter->HasFailed());
    EXPECT_EQ(write_until_refused(*fWriter), -1052);
    EXPECT_TRUE(fWriter->HasFailed());
    EXPECT_EQ(fWriter->CloseStreams(1'000'000), 0);
    EXPECT_TRUE(fWriter->HasFailed());
    fWriter->Close();
    EXPECT_TRUE(fWriter->HasFailed());
    fFile.failAtSample = -1;
    open();
    EXPECT_FALSE(fWriter->HasFailed()) << "another file";
    fWriter->Close();
    EXPECT_FALSE(fWriter->HasFailed());
}

TEST_F(Writer, TellsOfAFileThatFailedAsItWasClosed) {
    fFile.failAtSample = 0;
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    Frame frame(0, 1001);
    EXPECT_EQ(fWriter->WriteVideo(frame), 0) << "the file gets it when it is closed";
    EXPECT_FALSE(fWriter->HasFailed());
    fWriter->Close();
    EXPECT_TRUE(fWriter->HasFailed());
    EXPECT_TRUE(fFile.finished);
}

TEST_F(Writer, APictureThatFailsAloneIsNoFailureOfTheFile) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    fScript.failSample = true;
    EXPECT_EQ(write_until_refused(*fWriter), -1052);
    EXPECT_FALSE(fWriter->HasFailed());
    fWriter->Close();
    EXPECT_FALSE(fWriter->HasFailed());
}

TEST_F(Writer, AFileThatDidNotBeginMayStillDoSo) {
    fFile.failBegin = true;
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1006);
    EXPECT_FALSE(fWriter->HasFailed());
    fFile.failBegin = false;
    EXPECT_EQ(fWriter->CompleteInitialization(), 0);
    EXPECT_FALSE(fWriter->HasFailed());
}

// A file that is opened after another one begins with what the formats of that one needed.
TEST_F(Writer, ConvertersStayFromFileToFileUntilTheyAreReplaced) {
    int converted = 0;
    fConverterScript.look = [&](const CVideoSample&) { ++converted; };
    fScript.inputFormats = {'NV12'};
    const unsigned char block[400] = {};
    Packet packet;
    const int stereo = 2;
    const int mono = 1;
    for (int file = 1; file <= 3; ++file) {
        const bool first = file == 1;
        open();
        fWriter->SetSourceVideoFormat(raw_video());
        fWriter->SetEncodedVideoFormat(encoded_video("MJPEG"));
        fWriter->SetSourceAudioFormat(pcm(48000, first ? stereo : mono));
        fWriter->SetEncodedAudioFormat(encoded_audio(nullptr, 48000, mono));
        if (!first) fScript.inputFormats = {'UYVY'};
        fFile.samples.clear();
        Frame frame(0, 1001);
        ASSERT_EQ(fWriter->WriteVideo(frame), 0);
        ASSERT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), 0);
        fWriter->Close();
        EXPECT_EQ(fConverter.Made(), 1);
        EXPECT_EQ(converted, file);
        long long packets = 0;
        for (const auto& sample : fFile.samples) packets += sample.track == 1 ? sample.packets : 0;
        EXPECT_EQ(packets, 100) << "taken for stereo";
    }
    EXPECT_EQ(fConverterScript.ended, 0);
    std::exchange(fWriter, nullptr)->Release();
    EXPECT_EQ(fConverterScript.ended, 1);
}

TEST_F(Writer, TellsABufferWhatTheFileTookWhileItWasWritten) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    fScript.stuck = true;
    Frame held(0, 1001);
    Frame queued(1001, 1001);
    Frame told(2002, 1001);
    ASSERT_EQ(fWriter->WriteVideo(held), 0);
    ASSERT_EQ(fWriter->WriteVideo(queued), 0);
    EXPECT_EQ(queued.written, 0);
    Waits waits;
    waits.fOnByteCount = [&] {
        fScript.stuck = false;
        while (waits.BytesWritten() == 0) std::this_thread::yield();
    };
    ASSERT_EQ(fWriter->WriteVideo(told), 0);
    EXPECT_GE(told.written, 10);
    EXPECT_EQ(told.written % 10, 0);
}

TEST_F(Writer, TellsABlockWhatTheFileTookWhileItWasWritten) {
    open();
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    fFile.stuck = true;
    const unsigned char block[400] = {};
    Packet first;
    Packet second;
    ASSERT_EQ(fWriter->WriteAudioPacket(&first, 0, 0, block, 400), 0);
    EXPECT_EQ(first.written, 0);
    Waits waits;
    waits.fOnByteCount = [&] {
        fFile.stuck = false;
        while (waits.BytesWritten() == 0) std::this_thread::yield();
    };
    ASSERT_EQ(fWriter->WriteAudioPacket(&second, 0, 0, block, 400), 0);
    EXPECT_GE(second.written, 400);
    EXPECT_EQ(second.written % 400, 0);
}

// Few rounds meet the moment in which two of them are about to complete the file.
TEST_F(Writer, MayBeClosedFromSeveralThreads) {
    for (int round = 0; round < 2000; ++round) {
        open();
        fWriter->SetSourceAudioFormat(pcm());
        fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
        Packet packet;
        const unsigned char block[400] = {};
        ASSERT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), 0);
        std::atomic<int> waiting{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                ++waiting;
                while (waiting < 4) std::this_thread::yield();
                fWriter->Close();
            });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(fWriter->CloseStreams(0), 0);
    }
}

}  // namespace
