// A show whose outputs and observers come and go from several threads at once: real encoders, real
// output add-ons. Short here, a minute and more in script/soak; it is the thread sanitizer's to
// find what is wrong beyond what the sinks see.

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "spar/jigManager.h"
#include "spar/zBoot.h"
#include "spar/zMutex.h"
#include "spar/zTime.h"
#include "tarn/filters/tnCodecFilters.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/movies/tnEncodedSink.h"
#include "tarn/movies/tnFiles.h"
#include "tarn/movies/tnOutputStream.h"
#include "tarn/movies/tnSharedEncoders.h"

#include "LiveShow.h"
#include "LiveSource.h"
#include "LiveTrace.h"
#include "tests/support/TestFolder.h"

namespace {

constexpr int kDefaultSeconds = 2;
constexpr int kObservers = 3;
constexpr long long kPatienceUs = 5'000'000;
constexpr long long kMostMoreUs = 60'000'000;

/// Hears one stream and looks that nothing comes twice or out of order.
class ListeningSink final : public tnEncodedSink {
public:
    void WriteVideo(std::shared_ptr<tnFilter>,
                    std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) override {
        hear(buffer->fSyncTime);
    }
    void WriteAudio(std::shared_ptr<tnFilter>,
                    std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) override {
        // Not the stamps: those of a later output shift when an earlier one goes.
        hear(std::llround(buffer->Timestamp(0)));
    }

    /// Waits for that many buffers, but not for ever: an encoder may have nothing to give yet.
    void WaitFor(int count, const std::atomic<bool>& end) {
        const long long until = zTime::MicroNow() + kPatienceUs;
        const zMutexLock lock(fLock);
        while (fHeard < count && !end && zTime::MicroNow() < until) fChanged.WaitFor(fLock, 50'000);
    }
    int Heard() {
        const zMutexLock lock(fLock);
        return fHeard;
    }

private:
    void hear(long long time) {
        const zMutexLock lock(fLock);
        EXPECT_GT(time, fLast) << "a buffer came twice, or late";
        fLast = time;
        ++fHeard;
        fChanged.WakeAll();
    }

    zMutex fLock;
    zCondition fChanged;
    int fHeard SPAR_GUARDED_BY(fLock) = 0;
    long long fLast SPAR_GUARDED_BY(fLock) = -1;
};

struct ReleaseStream {
    void operator()(tnStream* stream) const { stream->Release(); }
};

tnMediaRecord random_track(const LiveSource& source, std::mt19937& random) {
    tnMediaRecord wish;
    switch (random() % 4) {
        case 0:
            wish.SetCString('mcon', tnCodecFilters::kPcm);
            return source.AudioTrack(wish);
        case 1:
            wish.SetCString('mcon', tnCodecFilters::kAac);
            return source.AudioTrack(wish);
        case 2:
            wish.SetCString('mcon', tnCodecFilters::kMotionJpeg);
            return source.VideoTrack(wish);
        default:
            wish.SetCString('mcon', tnCodecFilters::kX264);
            wish.SetInt32('mtbr', random() % 2 == 0 ? 200 : 300);
            wish.SetInt32("key_frame_rate", 10);
            wish.SetInt32("encoder_threads", 1);
            return source.VideoTrack(wish);
    }
}

/// Joins the source's encoders, listens a little and leaves, until `end`. Adds to `heard` how many
/// buffers that gave.
void observe_at_random(const LiveSource& source, unsigned int seed, const std::atomic<bool>& end,
                       std::atomic<int>& heard) {
    std::mt19937 random(seed);
    while (!end) {
        const auto sink = std::make_shared<ListeningSink>();
        const auto sync = std::make_shared<tnOutputStreamSync>();
        const tnMediaRecord track = random_track(source, random);
        const std::unique_ptr<tnOutputStream, ReleaseStream> stream(
            new tnOutputStream(track.AsInt32("source_id", 0), track, sync));
        stream->SetSink(sink);
        sync->AddStream(stream.get());
        EXPECT_EQ(tnSharedEncoders::Join(*stream), 0);
        sink->WaitFor(static_cast<int>(random() % 8), end);
        tnSharedEncoders::Leave(*stream);
        heard += sink->Heard();
    }
}

class LiveUnderLoad : public testing::Test {
protected:
    LiveUnderLoad() : fShow(4.0) {
        LiveTrace::Install(false);
        zBoot::StartAll();
        tnCodecFilters::Register(*tnFilterManager::Default());
        fAddons.LoadFolder(TARN_ADDONS);
        tnFiles::LoadAddons(fAddons);
    }
    ~LiveUnderLoad() override {
        zBoot::StopAll();
        LiveTrace::Remove();
    }

    std::string element(int number, const char* format, const char* extension, const char* tracks) {
        std::string name("o");
        name += std::to_string(number);
        return "<output source=\"bars\" output_enabled=\"true\" expected_seconds=\"60\" "
               "output_display_name=\"" +
               name + "\" format_name=\"" + format + "\" output_url=\"" +
               fFolder.File(name + extension) + "\">" + tracks + "</output>";
    }

    /// One change of the show's outputs.
    void change(std::mt19937& random) {
        constexpr const char* kH264 =
            R"(<video codecname="x264" target_bit_rate="200" key_frame_rate="10" )"
            R"(encoder_threads="1"/><audio codecname="MPEG-4 Audio"/>)";
        constexpr const char* kJpeg = R"(<video codecname="MJPEG"/><audio codecname="PCM"/>)";
        std::string error;
        const std::vector<LiveOutputEntry>& outputs = fShow.Outputs();
        const auto any = random();
        if (outputs.size() > 4 || (outputs.size() > 2 && any % 4 == 0)) {
            const std::string name = outputs[any % outputs.size()].description.name;
            EXPECT_TRUE(fShow.Enable(name, false, error)) << error;
            expect_no_code();
            EXPECT_TRUE(fShow.Remove(name, error)) << error;
        } else if (outputs.size() > 1 && any % 4 == 1) {
            const LiveOutputEntry& entry = outputs[any % outputs.size()];
            const bool on = entry.state != LiveState::kRunning;
            EXPECT_TRUE(fShow.Enable(entry.description.name, on, error)) << error;
        } else {
            const std::string text = any % 3 == 0   ? element(fNext, "QuickTime", ".mov", kJpeg)
                                     : any % 3 == 1 ? element(fNext, "Shared MPEG-4", ".mp4", kH264)
                                                    : element(fNext, "MPEG-TS", ".ts", kH264);
            EXPECT_TRUE(fShow.Add(text, error)) << error;
            ++fNext;
        }
    }

    /// An output that was there for too short a time for a picture has failed as well, without one.
    void expect_no_code() {
        for (const LiveOutputEntry& entry : fShow.Outputs()) {
            EXPECT_EQ(entry.figures.status, 0)
                << entry.description.name << ": " << entry.figures.text;
        }
    }

    jigManager fAddons;
    tests::TestFolder fFolder;
    LiveShow fShow;
    int fNext = 1;
};

TEST_F(LiveUnderLoad, OutputsAndObserversComeAndGoWhileItRuns) {
    const char* const asked = std::getenv("TARN_SOAK_SECONDS");
    const int seconds = asked ? std::atoi(asked) : kDefaultSeconds;
    Show show;
    std::string error;
    ASSERT_TRUE(
        ReadShowText(
            R"(<show><source name="bars" picture="bars" tn_width="64" tn_height="48" tone="500"/>)" +
                element(0, "QuickTime", ".mov", R"(<video codecname="MJPEG"/>)") + "</show>",
            "test", show, error) &&
        fShow.Prepare(show, error))
        << error;
    LiveSource& source = *fShow.Sources()[0];
    // The observers are no outputs of the show; they use the source all the same.
    source.BeginUse(true, true);
    ASSERT_TRUE(fShow.Start(error)) << error;

    std::atomic<bool> end{false};
    std::array<std::atomic<int>, kObservers> heard{};
    std::vector<std::thread> observers;
    for (unsigned int i = 0; i < kObservers; ++i) {
        observers.emplace_back([&, i] { observe_at_random(source, 7 + i, end, heard[i]); });
    }
    std::mt19937 random(3);
    const long long until = zTime::MicroNow() + seconds * 1'000'000LL;
    // An encoder looks far ahead, and a slow machine has few frames for it: longer until each of
    // the observers has heard something, but not for ever.
    const auto isOwed = [&] {
        return zTime::MicroNow() < until + kMostMoreUs &&
               std::find(heard.begin(), heard.end(), 0) != heard.end();
    };
    while (zTime::MicroNow() < until || isOwed()) {
        change(random);
        fShow.Poll();
        // A source that ran dry takes its format along; whoever observes anew finds it again.
        source.BeginUse(true, true);
        source.EndUse(true, true);
    }
    end = true;
    for (std::thread& observer : observers) observer.join();
    fShow.Stop();
    source.EndUse(true, true);
    expect_no_code();
    EXPECT_GT(source.Figures().frames, 0);
    for (const std::atomic<int>& count : heard) EXPECT_GT(count, 0);
}

}  // namespace
