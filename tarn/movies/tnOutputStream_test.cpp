#include "tarn/movies/tnOutputStream.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "spar/zTraceManager.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/movies/tnStreamBufferGroup.h"
#include "tarn/movies/tnWriteAlign.h"

#include "tests/support/TraceKeeper.h"
#include "tests/support/filterDoubles.h"

using namespace filterDoubles;

namespace {

constexpr int kSource = 1;

class Sink final : public tnEncodedSink {
public:
    void WriteVideo(std::shared_ptr<tnFilter> filter,
                    std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) override {
        filters.push_back(filter.get());
        times.push_back(buffer->fSyncTime);
    }
    void WriteAudio(std::shared_ptr<tnFilter>,
                    std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) override {
        times.push_back(buffer->fTimestamps[0]);
    }

    std::vector<tnFilter*> filters;
    std::vector<long long> times;
};

class OutputStream : public testing::Test {
protected:
    OutputStream() {
        tnFilterManager::Startup();
        tnFilterManager::Default()->RegisterFactory("video", [this] {
            fVideo = new VideoCompressor();
            fVideo->fGroup = 3;
            return std::shared_ptr<tnFilter>(fVideo, [](tnFilter* filter) { filter->Release(); });
        });
        tnFilterManager::Default()->RegisterFactory("audio", [] {
            return std::shared_ptr<tnFilter>(new AudioCompressor(),
                                             [](tnFilter* filter) { filter->Release(); });
        });
        fGroup.CreateBuffers(1, 16, false);
        fGroup.GetBuffer(&fBuffer, false);
        fBuffer->AddWritingRef();
    }
    ~OutputStream() override { tnFilterManager::Shutdown(); }

    std::shared_ptr<tnOutputStream> stream(const tnMediaRecord& format,
                                           const std::shared_ptr<Sink>& sink) {
        std::shared_ptr<tnOutputStream> made(new tnOutputStream(kSource, format, fSync),
                                             [](tnOutputStream* s) { s->Release(); });
        fSync->AddStream(made.get());
        made->SetSink(sink);
        return made;
    }
    void write_video(long long time) {
        tnFilterManager::Default()->WriteVideoSample(kSource, time, time, *fBuffer,
                                                     VideoFormat(nullptr));
    }

    std::shared_ptr<tnOutputStreamSync> fSync = std::make_shared<tnOutputStreamSync>();
    std::shared_ptr<Sink> fSink = std::make_shared<Sink>();
    VideoCompressor* fVideo = nullptr;
    tnStreamBufferGroup fGroup;
    tnStreamBuffer* fBuffer = nullptr;
};

TEST_F(OutputStream, TakesItsSourcesBuffersToItsSink) {
    const auto video = stream(VideoFormat("video"), fSink);
    tnFilterManager::Default()->SetInputFormat(kSource, VideoFormat(nullptr));
    video->CreateFilters();
    write_video(100);
    write_video(140);
    EXPECT_EQ(fSink->times, (std::vector<long long>{100, 140}));
    EXPECT_EQ(fSink->filters[0], fVideo);
    video->DestroyFilters();
    write_video(180);
    EXPECT_EQ(fSink->times.size(), 2u);
}

//  video   K100   140   180   K220   260          (a group of three)
//  sound          130   170          230
//  start                      220
TEST_F(OutputStream, HoldsItsBuffersUntilTheMovieStartsAndDropsNone) {
    const auto sound = std::make_shared<Sink>();
    const auto video = stream(VideoFormat("video"), fSink);
    const auto audio = stream(AudioFormat("audio"), sound);
    video->CreateFilters();
    audio->CreateFilters();
    tnFilterManager::Default()->SetInputFormat(kSource, VideoFormat(nullptr));
    write_video(100);
    EXPECT_FALSE(fSync->CanSendFrame(audio.get(), 130, false));
    write_video(140);
    write_video(180);
    EXPECT_TRUE(fSink->times.empty());
    write_video(220);
    EXPECT_EQ(fSink->times, (std::vector<long long>{100, 140, 180, 220}));
    EXPECT_FALSE(fSync->CanSendFrame(audio.get(), 219, false));
    EXPECT_TRUE(fSync->CanSendFrame(audio.get(), 220, false));
    write_video(260);
    EXPECT_EQ(fSink->times.back(), 260);
    video->DestroyFilters();
    audio->DestroyFilters();
}

//  sound    100   110 | 120   130              130 is the first that passes
//  picture              K125
TEST_F(OutputStream, HoldsItsSoundUntilTheMovieStartsAndDropsNone) {
    constexpr int kSound = kSource + 1;
    const auto sound = std::make_shared<Sink>();
    const auto video = stream(VideoFormat("video"), fSink);
    const std::shared_ptr<tnOutputStream> audio(
        new tnOutputStream(kSound, AudioFormat("audio"), fSync),
        [](tnOutputStream* s) { s->Release(); });
    fSync->AddStream(audio.get());
    audio->SetSink(sound);
    tnFilterManager::Default()->SetInputFormat(kSource, VideoFormat(nullptr));
    tnFilterManager::Default()->SetInputFormat(kSound, AudioFormat(nullptr));
    video->CreateFilters();
    audio->CreateFilters();
    const auto write_audio = [&](long long time) {
        const char block[4] = {};
        tnFilterManager::Default()->WriteAudioSamples(kSound, time, block, 32, 0, 0, 0);
    };
    write_audio(100);
    write_audio(110);
    EXPECT_TRUE(sound->times.empty());
    write_video(125);
    EXPECT_EQ(fSink->times, std::vector<long long>{125});
    write_audio(120);
    EXPECT_TRUE(sound->times.empty()) << "before the start";
    write_audio(130);
    EXPECT_EQ(sound->times, (std::vector<long long>{100, 110, 120, 130}));
    write_audio(140);
    EXPECT_EQ(sound->times.back(), 140);
    video->DestroyFilters();
    audio->DestroyFilters();
}

// What was pending when a stream stopped comes out when it has started again.
TEST_F(OutputStream, StaleBuffersWaitForTheNextStart) {
    const auto video = stream(VideoFormat("video"), fSink);
    const auto other = stream(VideoFormat("video"), std::make_shared<Sink>());
    tnFilterManager::Default()->SetInputFormat(kSource, VideoFormat(nullptr));
    video->CreateFilters();
    write_video(100);
    video->DestroyFilters();
    EXPECT_TRUE(fSink->times.empty());
    EXPECT_FALSE(fSync->CanSendFrame(other.get(), 150, false));
    tnFilterManager::Default()->SetInputFormat(kSource, VideoFormat(nullptr));
    video->CreateFilters();
    write_video(200);
    EXPECT_EQ(fSink->times, (std::vector<long long>{100, 200}));
    EXPECT_EQ(fSink->filters, (std::vector<tnFilter*>{fVideo, fVideo})) << "the filter of now";
    video->DestroyFilters();
}

// A sync time of -1 is none: the buffer's own time counts.
TEST_F(OutputStream, WithoutASyncTimeTheDecodeTimeCounts) {
    const auto video = stream(VideoFormat("video"), fSink);
    tnFilterManager::Default()->SetInputFormat(kSource, VideoFormat(nullptr));
    video->CreateFilters();
    tnFilterManager::Default()->WriteVideoSample(kSource, -1, 640, *fBuffer, VideoFormat(nullptr));
    EXPECT_EQ(fSink->times, std::vector<long long>{-1});
    EXPECT_FALSE(fSync->CanSendFrame(video.get(), 639, true));
    EXPECT_TRUE(fSync->CanSendFrame(video.get(), 640, false));
    video->DestroyFilters();
}

// Whole milliseconds, and never later than the buffer itself.
TEST_F(OutputStream, AFractionOfADecodeTimeIsCutOff) {
    const auto video = stream(VideoFormat("video"), fSink);
    tnFilterManager::Default()->SetInputFormat(kSource, VideoFormat(nullptr));
    video->CreateFilters();
    fVideo->fOnEncodedBuffer({new Picture(640.75, true), [](Picture* one) { one->Release(); }});
    EXPECT_EQ(fSink->times, std::vector<long long>{-1});
    EXPECT_FALSE(fSync->CanSendFrame(video.get(), 639, true));
    EXPECT_TRUE(fSync->CanSendFrame(video.get(), 640, false));
    video->DestroyFilters();
}

/// Gives its packets a time past what came in.
class LateAudioCompressor final : public AudioCompressor {
public:
    int EncodeFrame(EncodedBuffer** out, double timeMs, void*, unsigned int) override {
        *out = new Sound(1, 10, timeMs + 0.75);
        return 0;
    }
};

TEST_F(OutputStream, AFractionOfAPacketsTimeIsCutOff) {
    tnFilterManager::Default()->RegisterFactory("late", [] {
        return std::shared_ptr<tnFilter>(new LateAudioCompressor(),
                                         [](tnFilter* filter) { filter->Release(); });
    });
    const auto audio = stream(AudioFormat("late"), fSink);
    audio->CreateFilters();
    tnFilterManager::Default()->SetInputFormat(kSource, AudioFormat(nullptr));
    const char block[4] = {};
    tnFilterManager::Default()->WriteAudioSamples(kSource, -1, block, 32, 48000, 0, 0);
    EXPECT_EQ(fSink->times, std::vector<long long>{-1});
    EXPECT_FALSE(fSync->CanSendFrame(audio.get(), 999, false));
    EXPECT_TRUE(fSync->CanSendFrame(audio.get(), 1000, false));
    audio->DestroyFilters();
}

/// Shows what subclasses see.
class OpenStream final : public tnOutputStream {
public:
    using tnOutputStream::tnOutputStream;
    bool HasFilter() const { return fHasFilter; }
    const tnFilter* Filter() const { return fFilter.get(); }
};

TEST_F(OutputStream, TellsItsSubclassWhenTheFilterHasCome) {
    const std::shared_ptr<OpenStream> video(new OpenStream(kSource, VideoFormat("video"), fSync),
                                            [](tnOutputStream* s) { s->Release(); });
    EXPECT_FALSE(video->HasFilter());
    video->CreateFilters();
    EXPECT_FALSE(video->HasFilter()) << "it waits for the source's format";
    EXPECT_EQ(video->Filter(), nullptr);
    tnFilterManager::Default()->SetInputFormat(kSource, VideoFormat(nullptr));
    EXPECT_TRUE(video->HasFilter());
    EXPECT_EQ(video->Filter(), fVideo);
    video->DestroyFilters();
    EXPECT_TRUE(video->HasFilter()) << "both stay as they are";
    EXPECT_EQ(video->Filter(), fVideo);
}

TEST_F(OutputStream, SoundTakesItsTimeFromItsStampOrElseFromTheFilter) {
    const auto audio = stream(AudioFormat("audio"), fSink);
    audio->CreateFilters();
    tnFilterManager::Default()->SetInputFormat(kSource, AudioFormat(nullptr));
    const char block[4] = {};
    tnFilterManager::Default()->WriteAudioSamples(kSource, -1, block, 32, 48000, 0, 0);
    EXPECT_EQ(fSink->times, std::vector<long long>{-1});
    EXPECT_FALSE(fSync->CanSendFrame(audio.get(), 999, false))
        << "the start is the filter's time, 1000 ms";
    EXPECT_TRUE(fSync->CanSendFrame(audio.get(), 1000, false));
    audio->DestroyFilters();
}

TEST_F(OutputStream, OutsideTheLibrarysLifeItHearsNothing) {
    const auto video = stream(VideoFormat("video"), fSink);
    video->CreateFilters();
    tnFilterManager::Shutdown();
    video->DestroyFilters();
    video->CreateFilters();
    tnFilterManager::Startup();
    write_video(0);
    EXPECT_TRUE(fSink->times.empty());
}

TEST_F(OutputStream, RefusesOnlyOneRasterType) {
    const auto video = stream(VideoFormat("video"), fSink);
    tnMediaRecord grgb = VideoFormat(nullptr);
    grgb.fColourspace.SetInt32('Grgb');
    tnMediaRecord plain = VideoFormat(nullptr);
    tnMediaRecord sound = AudioFormat(nullptr);
    sound.fColourspace.SetInt32('Grgb');
    EXPECT_EQ(video->CanOutputFormat(grgb, false), -1);
    EXPECT_EQ(video->CanOutputFormat(plain, false), 0);
    EXPECT_EQ(video->CanOutputFormat(sound, false), 0);
}

TEST_F(OutputStream, ReportsWhatItsSinkSays) {
    const auto video = stream(VideoFormat("video"), fSink);
    tn_output_statistics statistics;
    EXPECT_EQ(video->GetOutputStatistics(statistics), 0);
    EXPECT_EQ(statistics.fState, 0);
    video->SetStatus(5, 77);
    EXPECT_EQ(video->GetOutputStatistics(statistics), 0);
    EXPECT_EQ(statistics.fState, 2);
    EXPECT_EQ(statistics.fStatus, 5);
    EXPECT_EQ(statistics.fStatusValue, 77);
}

TEST_F(OutputStream, AcceptsAndDiscardsSamples) {
    const auto video = stream(VideoFormat("video"), fSink);
    zRecord info;
    EXPECT_EQ(video->WriteSample(nullptr, 0, 0, 0, 0, info), 0);
    EXPECT_EQ(video->WriteSample(*fBuffer, 0, info, 0), 0);
    tnStreamBuffer* again = nullptr;
    EXPECT_EQ(fGroup.GetBuffer(&again, false), 0);
    EXPECT_EQ(again, fBuffer);
}

TEST_F(OutputStream, AnotherDisplayFormatLeavesTheFilterAlone) {
    const auto video = stream(VideoFormat("video"), fSink);
    video->CreateFilters();
    tnMediaRecord wide = VideoFormat(nullptr);
    wide.fWidth.SetInt32(1234);
    EXPECT_EQ(video->SetFormat(wide), 0);
    EXPECT_EQ(video->DisplayFormat().fWidth.AsInt32(0), 1234);
    EXPECT_EQ(video->EncodedFormat().fWidth.AsInt32(0), 64);
    EXPECT_EQ(fVideo->fOutput.fWidth.AsInt32(0), 64);
    video->DestroyFilters();
}

class Stands {
public:
    tnOutputStream* first = reinterpret_cast<tnOutputStream*>(&fPlaces[0]);
    tnOutputStream* second = reinterpret_cast<tnOutputStream*>(&fPlaces[1]);

private:
    int fPlaces[2] = {};  // identities alone; nobody looks into them
};

TEST(OutputStreamSync, StartsAtTheFirstKeyFrameOnceAllHaveReported) {
    const Stands stands;
    tests::TraceKeeper trace;
    tnOutputStreamSync sync;
    sync.AddStream(stands.first);
    sync.AddStream(stands.second);
    EXPECT_FALSE(sync.CanSendFrame(stands.first, 1000, false));
    EXPECT_TRUE(sync.CanSendFrame(stands.second, 1040, true));
    EXPECT_EQ(trace.fText, "Stream Sync: 40ms 0.04s\n");
    EXPECT_FALSE(sync.CanSendFrame(stands.first, 1020, false));
    EXPECT_TRUE(sync.CanSendFrame(stands.first, 1040, false));
    EXPECT_FALSE(sync.CanSendFrame(stands.second, 1039, true));
}

/// Fails at the first message, with what it is told to.
class BrokenTrace final : public zTraceManager {
public:
    explicit BrokenTrace(bool runtimeError)
        : fBefore(SetDefault(this)), fRuntimeError(runtimeError) {}
    ~BrokenTrace() override { SetDefault(fBefore); }
    void TraceMessage(int, const std::string& text) override {
        if (text.starts_with("Stream Sync")) {
            if (fRuntimeError) throw std::runtime_error("no room");
            throw 7;
        }
        traced += text;
    }

    std::string traced;

private:
    zTraceManager* fBefore;
    const bool fRuntimeError;
};

TEST(OutputStreamSync, TracingNeverStopsTheStart) {
    for (const bool runtimeError : {true, false}) {
        const Stands stands;
        BrokenTrace trace(runtimeError);
        tnOutputStreamSync sync;
        sync.AddStream(stands.first);
        EXPECT_TRUE(sync.CanSendFrame(stands.first, 10, false));
        EXPECT_TRUE(sync.CanSendFrame(stands.first, 10, false));
        EXPECT_EQ(trace.traced, runtimeError ? "zTrace 'no room'\n" : "zTrace Unknown Assertion\n");
    }
}

// The span is that of all first times and the start, whichever of them is the earliest.
TEST(OutputStreamSync, TellsHowFarApartTheStreamsBegan) {
    struct Case {
        std::vector<long long> pictures;
        std::vector<long long> sound;
        long long start;
        const char* traced;
    };
    const Case cases[] = {
        {{5000}, {100}, 5040, "Stream Sync: 4940ms 4.94s\n"},
        {{5000}, {100, 300, 20}, 5040, "Stream Sync: 4940ms 4.94s\n"},  // the first of each counts
        {{}, {1000}, 960, "Stream Sync: 40ms 0.04s\n"},
        {{1000}, {1010}, 960, "Stream Sync: 50ms 0.05s\n"},
    };
    for (const Case& c : cases) {
        const Stands stands;
        tests::TraceKeeper trace;
        tnOutputStreamSync sync;
        sync.AddStream(stands.first);
        sync.AddStream(stands.second);
        for (const long long time : c.pictures) {
            EXPECT_FALSE(sync.CanSendFrame(stands.first, time, true));
        }
        for (const long long time : c.sound) {
            EXPECT_FALSE(sync.CanSendFrame(stands.second, time, false));
        }
        EXPECT_TRUE(sync.CanSendFrame(stands.first, c.start, true));
        EXPECT_EQ(trace.fText, c.traced);
    }
}

// Whoever asks after the start, on any thread, is answered by the one time.
TEST(OutputStreamSync, StreamsOnThreadsStartOnce) {
    for (int round = 0; round < 50; ++round) {
        const Stands stands;
        tests::TraceKeeper trace;
        tnOutputStreamSync sync;
        sync.AddStream(stands.first);
        sync.AddStream(stands.second);
        std::atomic<long long> first{-1};
        std::thread pictures([&] {
            for (long long time = 0; first < 0; time += 40) {
                if (sync.CanSendFrame(stands.first, time, true)) first = time;
            }
        });
        std::thread sound([&] {
            for (long long time = 0; first < 0; time += 10) {
                sync.CanSendFrame(stands.second, time, false);
            }
        });
        pictures.join();
        sound.join();
        EXPECT_TRUE(sync.CanSendFrame(stands.second, first, false));
        EXPECT_FALSE(sync.CanSendFrame(stands.second, first - 1, false));
        EXPECT_TRUE(trace.fText.starts_with("Stream Sync: "));
        EXPECT_EQ(std::count(trace.fText.begin(), trace.fText.end(), '\n'), 1);
    }
}

TEST(OutputStreamSync, VideoFirstWaitsForTheNextKeyFrameAfterSound) {
    const Stands stands;
    tnOutputStreamSync sync;
    sync.AddStream(stands.first);
    sync.AddStream(stands.second);
    EXPECT_FALSE(sync.CanSendFrame(stands.first, 0, true));
    EXPECT_FALSE(sync.CanSendFrame(stands.second, 10, false));
    EXPECT_FALSE(sync.CanSendFrame(stands.first, 40, false));
    EXPECT_TRUE(sync.CanSendFrame(stands.first, 80, true));
}

TEST(OutputStreamSync, OneStreamStartsAtItsFirstBuffer) {
    const Stands stands;
    tnOutputStreamSync sync;
    sync.AddStream(stands.first);
    EXPECT_TRUE(sync.CanSendFrame(stands.first, 500, false));
    EXPECT_FALSE(sync.CanSendFrame(stands.first, 499, false));
    EXPECT_TRUE(sync.CanSendFrame(stands.first, 500, false));
}

TEST(OutputStreamSync, AForgottenStreamKeepsTheMovieFromStarting) {
    const Stands stands;
    tnOutputStreamSync sync;
    sync.AddStream(stands.first);
    EXPECT_FALSE(sync.CanSendFrame(stands.second, 5, true));
    EXPECT_FALSE(sync.CanSendFrame(stands.first, 5, true));
    EXPECT_FALSE(sync.CanSendFrame(stands.first, 9, true));
}

TEST(WriteAlign, WithOneStreamLetsEverythingThrough) {
    tnWriteAlign* align = new tnWriteAlign();
    align->IncrementStreamCount();
    EXPECT_EQ(align->StreamCount(), 1);
    EXPECT_TRUE(align->CanOutputAudioFrame(0));
    EXPECT_TRUE(align->CanOutputVideoFrame(-5));
    EXPECT_FALSE(align->ShouldRequestVideoKeyframe(100));
    align->Release();
}

TEST(WriteAlign, AsksOnceForAKeyFrameWhenSoundHasStarted) {
    tnWriteAlign* align = new tnWriteAlign();
    align->IncrementStreamCount();
    align->IncrementStreamCount();
    EXPECT_FALSE(align->ShouldRequestVideoKeyframe(10));
    EXPECT_FALSE(align->CanOutputVideoFrame(10));
    EXPECT_FALSE(align->CanOutputAudioFrame(20));
    EXPECT_FALSE(align->ShouldRequestVideoKeyframe(19));
    EXPECT_FALSE(align->CanOutputVideoFrame(20)) << "no first picture yet";
    EXPECT_TRUE(align->ShouldRequestVideoKeyframe(60));
    EXPECT_FALSE(align->ShouldRequestVideoKeyframe(100));
    EXPECT_EQ(align->FirstVideoFrameTime(), 60);
    EXPECT_FALSE(align->CanOutputVideoFrame(59));
    EXPECT_TRUE(align->CanOutputVideoFrame(60));
    align->Release();
}

TEST(WriteAlign, LetsSoundOutFromOneGapBeforeThePicture) {
    tnWriteAlign* align = new tnWriteAlign();
    align->IncrementStreamCount();
    align->IncrementStreamCount();
    align->CanOutputAudioFrame(0);
    EXPECT_TRUE(align->ShouldRequestVideoKeyframe(100));
    EXPECT_TRUE(align->CanOutputAudioFrame(65));
    EXPECT_FALSE(align->CanOutputAudioFrame(64.5));
    EXPECT_TRUE(align->CanOutputAudioFrame(100));
    align->FindClosestAudioFrame(110);
    align->FindClosestAudioFrame(70);
    EXPECT_TRUE(align->CanOutputAudioFrame(89));
    EXPECT_FALSE(align->CanOutputAudioFrame(88.5));
    align->Release();
}

}  // namespace
