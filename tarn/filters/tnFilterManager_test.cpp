#include "tarn/filters/tnFilterManager.h"

#include <functional>
#include <gtest/gtest.h>
#include <thread>

#include "tests/support/filterManagerFixture.h"

using namespace filterDoubles;

namespace {

TEST(FilterManagerSingleton, LivesBetweenStartupAndShutdown) {
    tnFilterManager::Shutdown();
    EXPECT_EQ(tnFilterManager::Default(), nullptr);
    tnFilterManager::Startup();
    const auto first = tnFilterManager::Default();
    ASSERT_NE(first, nullptr);
    tnFilterManager::Startup();
    EXPECT_NE(tnFilterManager::Default(), first);
    tnFilterManager::Shutdown();
    EXPECT_EQ(tnFilterManager::Default(), nullptr);
}

TEST_F(FilterManager, ConfiguresAFilterWhenObserverAndFormatAreThereInEitherOrder) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    ASSERT_EQ(fVideo.size(), 1u);
    EXPECT_EQ(fVideo[0]->fCreated, 1);
    EXPECT_EQ(fHeard.filters, std::vector<tnFilter*>{fVideo[0]});

    fManager->StopObservingFilter(kSource, fOwner);
    observe_video(fOwner, VideoFormat("codec"), fHeardByOther);
    EXPECT_TRUE(fHeardByOther.filters.empty()) << "the format went with the source";
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    EXPECT_EQ(fHeardByOther.filters.size(), 1u);
    EXPECT_EQ(fVideo[1]->fConfigured, 1);
}

TEST_F(FilterManager, KeepsTheFirstInputFormat) {
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    tnMediaRecord first = VideoFormat(nullptr);
    first.fWidth.SetInt32(111);
    fManager->SetInputFormat(kSource, first);
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    EXPECT_EQ(fVideo[0]->fInput.fWidth.AsInt32(0), 111);
    EXPECT_EQ(fHeard.filters.size(), 1u);
    EXPECT_EQ(fVideo[0]->fCreated, 1);
}

TEST_F(FilterManager, FillsInTimescaleAndRateFromTheWish) {
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    tnMediaRecord bare(TN_MEDIA_VIDEO);
    fManager->SetInputFormat(kSource, bare);
    EXPECT_EQ(fVideo[0]->fInput.AsInt64('tmsc', 0), 30000);
    EXPECT_FLOAT_EQ(fVideo[0]->fInput.AsFloat('mfps', 0), 29.97f);
}

TEST_F(FilterManager, WhatSaysNothingOfTimesIsFilledInToo) {
    const struct {
        long long timescale;
        float rate;
        long long timescaleThen;
        float rateThen;
    } rows[] = {{1000, 25.0f, 1000, 25.0f},
                {1, 0.001f, 1, 0.001f},
                {0, 0.0f, 30000, 29.97f},
                {-1, -1.0f, 30000, 29.97f},
                {1000, __builtin_nanf(""), 1000, 29.97f}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.timescale << ", " << row.rate);
        observe_video(fOwner, VideoFormat("codec"), fHeard);
        tnMediaRecord input(TN_MEDIA_VIDEO);
        input.SetInt64('tmsc', row.timescale);
        input.SetFloat('mfps', row.rate);
        fManager->SetInputFormat(kSource, input);
        EXPECT_EQ(fVideo.back()->fInput.AsInt64('tmsc', 0), row.timescaleThen);
        EXPECT_EQ(fVideo.back()->fInput.AsFloat('mfps', 0), row.rateThen);
        fManager->StopObservingFilter(kSource, fOwner);
    }
}

TEST_F(FilterManager, AnEqualWishWithAFactoryHearsTheSharedFilterAndOneOfItsOwn) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    observe_video(fOther, VideoFormat("codec"), fHeardByOther);
    ASSERT_EQ(fVideo.size(), 2u);
    EXPECT_EQ(fHeardByOther.filters, (std::vector<tnFilter*>{fVideo[0], fVideo[1]}));
    write_video(0, 0);
    EXPECT_EQ(fHeard.syncTimes.size(), 1u);
    EXPECT_EQ(fHeardByOther.syncTimes.size(), 2u);
}

TEST_F(FilterManager, AnEqualWishWithoutAFactoryShares) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    observe_video(fOther, VideoFormat("another"), fHeardByOther);
    ASSERT_EQ(fVideo.size(), 1u);
    EXPECT_EQ(fHeardByOther.filters, std::vector<tnFilter*>{fVideo[0]});
    EXPECT_EQ(fVideo[0]->fCreated, 1) << "joining leaves the encoder alone";
    write_video(0, 0);
    EXPECT_EQ(fHeard.syncTimes, fHeardByOther.syncTimes);
    EXPECT_EQ(fVideo[0]->fTimes.size(), 1u);
    EXPECT_EQ(fVideo[0]->fKeyRequests, 0);
}

TEST_F(FilterManager, AnUnknownCodecWithoutAnEqualOutputIsNothing) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("another"), fHeard);
    write_video(0, 0);
    EXPECT_TRUE(fHeard.filters.empty());
    EXPECT_TRUE(fHeard.syncTimes.empty());
}

TEST_F(FilterManager, AnEmptyFactoryNameMatchesAMissingCodecName) {
    fManager->RegisterFactory("", [this] { return make_video(); });
    observe_video(fOwner, VideoFormat(nullptr), fHeard);
    EXPECT_EQ(fVideo.size(), 1u);
}

TEST_F(FilterManager, AFactoryThatGivesNothingLeavesTheJoining) {
    fManager->RegisterFactory("none", [] { return std::shared_ptr<tnFilter>(); });
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("none"), fHeard);
    EXPECT_TRUE(fHeard.filters.empty());
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    observe_video(fOther, VideoFormat("none"), fHeardByOther);
    EXPECT_EQ(fHeardByOther.filters, std::vector<tnFilter*>{fVideo[0]});
}

TEST_F(FilterManager, AnEmptyFactoryThrowsAndLeavesTheManagerFree) {
    fManager->RegisterFactory("empty", {});
    EXPECT_THROW(observe_video(fOwner, VideoFormat("empty"), fHeard), std::bad_function_call);
    std::thread other([&] { fManager->HasEqualOutput(kSource, VideoFormat(nullptr)); });
    other.join();  // it would wait for ever for a lock that was left behind
}

// Configured, and its buffers listened to, before anybody hears that it is there.
TEST_F(FilterManager, AFilterIsReadyWhenItsObserverHearsOfIt) {
    const auto init = [&](const std::shared_ptr<tnFilter>& filter) {
        const auto& video = dynamic_cast<VideoCompressor&>(*filter);
        EXPECT_EQ(video.fConfigured, 1);
        EXPECT_TRUE(static_cast<bool>(video.fOnEncodedBuffer));
        fHeard.filters.push_back(filter.get());
        // It may call back, and is not called again for what it does.
        observe_video(fOther, VideoFormat("x"), fHeardByOther);
        fManager->StopObservingFilter(kSource, fOwner);
    };
    fManager->ObserveVideoFilter(kSource, fOwner, VideoFormat("codec"), init, {});
    EXPECT_TRUE(fHeard.filters.empty()) << "it waits for the source's format";
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    EXPECT_EQ(fHeard.filters, std::vector<tnFilter*>{fVideo[0]});
    EXPECT_EQ(fHeardByOther.filters, std::vector<tnFilter*>{fVideo[0]});
    write_video(0, 0);
    EXPECT_EQ(fHeardByOther.syncTimes.size(), 1u) << "the filter stays for who has joined";
}

TEST_F(FilterManager, AFilterOfTheOtherKindIsOfferedNothingAndGetsNothing) {
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    observe_audio(fOther, AudioFormat("sound"), fHeardByOther);
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    EXPECT_EQ(fHeardByOther.filters, std::vector<tnFilter*>{fAudio[0]}) << "it counts as ready";
    EXPECT_EQ(fAudio[0]->fInput.fType.AsInt32(0), 0);
    write_video(0, 0);
    EXPECT_TRUE(fAudio[0]->fTimes.empty());
    write_audio(0);
    EXPECT_EQ(fAudio[0]->fTimes.size(), 1u);
    EXPECT_EQ(fVideo[0]->fTimes.size(), 1u);
}

TEST_F(FilterManager, AnInputThatIsNeitherPictureNorSoundMakesNothingReady) {
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    tnMediaRecord text;
    text.fType.SetInt32('text');
    fManager->SetInputFormat(kSource, text);
    EXPECT_TRUE(fHeard.filters.empty());
    EXPECT_EQ(fVideo[0]->fCreated, 0);
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    EXPECT_TRUE(fHeard.filters.empty()) << "the first format holds, whatever it is";
}

// A lock of its own that what an observer holds takes in its end, and that another thread holds
// while it calls the manager.
TEST_F(FilterManager, WhatAnObserverHoldsEndsWithoutTheLock) {
    struct Kept {
        std::shared_ptr<tnFilterManager> manager;
        bool* ended;
        ~Kept() {
            std::thread other([this] { manager->HasEqualOutput(kSource, tnMediaRecord()); });
            other.join();
            *ended = true;
        }
    };
    bool ended = false;
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    {
        const auto kept = std::make_shared<Kept>(Kept{fManager, &ended});
        ended = false;
        fManager->ObserveVideoFilter(
            kSource, fOwner, VideoFormat("codec"), [kept](const std::shared_ptr<tnFilter>&) {},
            [kept](const std::shared_ptr<tnVideoCompressor::EncodedBuffer>&) {});
    }
    write_video(0, 0);
    write_video(40, 40);
    EXPECT_FALSE(ended);
    fManager->StopObservingFilter(kSource, fOwner);
    EXPECT_TRUE(ended);
}

/// Needs the manager's lock on another thread to end.
class EndsElsewhere {
public:
    explicit EndsElsewhere(bool& ended) : fEnded(ended) {}
    ~EndsElsewhere() {
        std::thread other([] { tnFilterManager::Default(); });
        other.join();
        fEnded = true;
    }
    EndsElsewhere(const EndsElsewhere&) = delete;
    EndsElsewhere& operator=(const EndsElsewhere&) = delete;

private:
    bool& fEnded;
};

TEST_F(FilterManager, WhatAnObserverHoldsThatIsInNoOutputEndsWithoutTheLock) {
    fManager->RegisterFactory("none", [] { return std::shared_ptr<tnFilter>(); });
    fManager->RegisterFactory("empty", {});
    fManager->RegisterFactory("throws", []() -> std::shared_ptr<tnFilter> { throw 5; });
    for (const char* codec : {"unknown", "none", "empty", "throws"}) {
        SCOPED_TRACE(codec);
        bool ended = false;
        try {
            fManager->ObserveVideoFilter(
                kSource, fOwner, VideoFormat(codec), {},
                [kept = std::make_shared<EndsElsewhere>(ended)](
                    const std::shared_ptr<tnVideoCompressor::EncodedBuffer>&) {});
        } catch (...) {  // two of the factories do not even give nothing
        }
        EXPECT_TRUE(ended);
    }
}

TEST(FilterManagerSingleton, TheManagerEndsWithoutTheLockAndItsObserversWithIt) {
    const auto owner = std::make_shared<zObject>();
    const auto observe = [&](bool& ended) {
        tnFilterManager& manager = *tnFilterManager::Default();
        manager.RegisterFactory("codec", [] {
            return std::shared_ptr<tnFilter>(new VideoCompressor(),
                                             [](tnFilter* filter) { filter->Release(); });
        });
        manager.ObserveVideoFilter(
            kSource, owner, VideoFormat("codec"), {},
            [kept = std::make_shared<EndsElsewhere>(ended)](
                const std::shared_ptr<tnVideoCompressor::EncodedBuffer>&) {});
    };
    bool endedByStartup = false;
    bool endedByShutdown = false;
    tnFilterManager::Startup();
    observe(endedByStartup);
    tnFilterManager::Startup();
    EXPECT_TRUE(endedByStartup);
    observe(endedByShutdown);
    tnFilterManager::Shutdown();
    EXPECT_TRUE(endedByShutdown);
}

TEST_F(FilterManager, AFilterThatFailsToConfigureStaysAndAnswersFramesItself) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    fManager->RegisterFactory("broken", [this] {
        auto filter = make_video();
        fVideo.back()->fCreateResult = -1030;
        return filter;
    });
    observe_video(fOwner, VideoFormat("broken"), fHeard);
    EXPECT_EQ(fVideo[0]->fConfigured, 0);
    EXPECT_EQ(fHeard.filters.size(), 1u);
    write_video(0, 0);
    EXPECT_EQ(fVideo[0]->fTimes.size(), 1u);
}

TEST_F(FilterManager, StoppingEndsOutputsAndEverySourceThatIsLeftEmpty) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    fManager->SetInputFormat(kSource + 1, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    fManager->StopObservingFilter(99, fOwner);
    observe_video(fOther, VideoFormat("other"), fHeardByOther);
    EXPECT_EQ(fHeardByOther.filters.size(), 1u) << "the source with an output stays";
    // The source that was only given a format has gone with the call above: a new format counts.
    fManager->StopObservingFilter(kSource, fOwner);
    fManager->StopObservingFilter(kSource, fOther);
    write_video(0, 0);
    EXPECT_TRUE(fHeard.syncTimes.empty());
}

TEST_F(FilterManager, ASourceWithoutOutputsLosesItsFormatAtAnyStop) {
    tnMediaRecord wide = VideoFormat(nullptr);
    wide.fWidth.SetInt32(500);
    fManager->SetInputFormat(kSource, wide);
    fManager->StopObservingFilter(99, fOwner);
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    EXPECT_EQ(fVideo[0]->fInput.fWidth.AsInt32(0), 64);
}

TEST_F(FilterManager, ANullOwnerRemovesTheDeadAndOnlyThem) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    observe_video(fOther, VideoFormat("x"), fHeardByOther);
    fOther.reset();
    std::shared_ptr<tnFilter> filter(fVideo[0], [](tnFilter*) {});
    fVideo[0]->AddRef();
    const std::shared_ptr<tnFilter> same(fVideo[0], [](tnFilter* f) { f->Release(); });
    EXPECT_EQ(fManager->ObserversForFilter(kSource, same).size(), 2u);
    fManager->StopObservingFilter(kSource, nullptr);
    EXPECT_EQ(fManager->ObserversForFilter(kSource, same).size(), 1u);
    write_video(0, 0);
    EXPECT_EQ(fHeard.syncTimes.size(), 1u);
}

TEST_F(FilterManager, AnOwnerThatDiesBetweenReadinessAndCallIsPassedOver) {
    std::shared_ptr<zObject> dying = std::make_shared<zObject>();
    fManager->ObserveVideoFilter(kSource, fOwner, VideoFormat("codec"),
                                 [&](const std::shared_ptr<tnFilter>&) { dying.reset(); }, {});
    observe_video(dying, VideoFormat("x"), fHeardByOther);
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    EXPECT_TRUE(fHeardByOther.filters.empty());
}

// Nobody is there to hear, so the call is not spent: it stays with the observer in the output.
TEST_F(FilterManager, AnOwnerThatIsDeadAtReadinessStaysWithItsCall) {
    observe_video(fOwner, VideoFormat("codec"), fHeard);
    observe_video(fOther, VideoFormat("x"), fHeardByOther);
    fOther.reset();
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    EXPECT_EQ(fHeard.filters.size(), 1u);
    EXPECT_TRUE(fHeardByOther.filters.empty());
    fVideo[0]->AddRef();
    const std::shared_ptr<tnFilter> filter(fVideo[0], [](tnFilter* f) { f->Release(); });
    const auto observers = fManager->ObserversForFilter(kSource, filter);
    ASSERT_EQ(observers.size(), 2u);
    EXPECT_FALSE(static_cast<bool>(observers[0].fInitialize)) << "called, and gone";
    EXPECT_TRUE(static_cast<bool>(observers[1].fInitialize));
}

struct Difference {
    const char* name;
    void (*apply)(tnMediaRecord&);
    bool equal;
};

TEST(FormatsAreEqual, AsksForShapeRateTimescaleAndBitRateAndNothingElse) {
    const Difference video[] = {
        {"width", [](tnMediaRecord& r) { r.fWidth.SetInt32(1); }, false},
        {"height", [](tnMediaRecord& r) { r.fHeight.SetInt32(1); }, false},
        {"raster", [](tnMediaRecord& r) { r.fColourspace.SetInt32('I420'); }, false},
        {"matrix", [](tnMediaRecord& r) { r.fColorSpace.SetInt32('r709'); }, false},
        {"fields", [](tnMediaRecord& r) { r.fFieldOrder.SetInt32(2); }, false},
        {"fps by an ulp or so", [](tnMediaRecord& r) { r.SetFloat('mfps', 29.970003f); }, false},
        {"fps not a number", [](tnMediaRecord& r) { r.SetFloat('mfps', __builtin_nanf("")); },
         false},
        {"timescale", [](tnMediaRecord& r) { r.SetInt64('tmsc', 60000); }, false},
        {"bit rate", [](tnMediaRecord& r) { r.SetInt32('mtbr', 1); }, false},
        {"type", [](tnMediaRecord& r) { r.fType.SetInt32(TN_MEDIA_AUDIO); }, false},
        {"codec", [](tnMediaRecord& r) { r.SetCString('mcon', "b"); }, true},
        {"limit", [](tnMediaRecord& r) { r.SetInt32('mlbr', 9); }, true},
        {"profile", [](tnMediaRecord& r) { r.SetUInt32('mpro', 'high'); }, true},
        {"range", [](tnMediaRecord& r) { r.fNominalRange.SetInt32('full'); }, true},
        {"pitch", [](tnMediaRecord& r) { r.fBytesPerRow.SetInt32(999); }, true},
        {"add-on key", [](tnMediaRecord& r) { r.SetInt32("my_key", 1); }, true},
    };
    for (const Difference& difference : video) {
        tnMediaRecord changed = VideoFormat("a");
        difference.apply(changed);
        EXPECT_EQ(tnFilterManager::FormatsAreEqual(VideoFormat("a"), changed), difference.equal)
            << difference.name;
    }
    const Difference audio[] = {
        {"rate", [](tnMediaRecord& r) { r.fSampleRate.SetInt32(44100); }, false},
        {"channels", [](tnMediaRecord& r) { r.fChannels.SetInt32(1); }, false},
        {"bits", [](tnMediaRecord& r) { r.fBitsPerSample.SetInt32(32); }, false},
        {"sample format", [](tnMediaRecord& r) { r.fAudioFormat.SetInt32('fl32'); }, true},
        {"busses", [](tnMediaRecord& r) { r.fBusses.SetInt32(4); }, true},
    };
    for (const Difference& difference : audio) {
        tnMediaRecord changed = AudioFormat("a");
        difference.apply(changed);
        EXPECT_EQ(tnFilterManager::FormatsAreEqual(AudioFormat("a"), changed), difference.equal)
            << difference.name;
    }
    // An absent sample size is the value of its own key, whoever wrote that.
    tnMediaRecord absent = AudioFormat("a");
    absent.RemoveID('mbps');
    tnMediaRecord written = AudioFormat("a");
    written.fBitsPerSample.SetInt32('mbps');
    EXPECT_TRUE(tnFilterManager::FormatsAreEqual(absent, written));
    written.fBitsPerSample.SetInt32(0);
    EXPECT_FALSE(tnFilterManager::FormatsAreEqual(absent, written));
    const tnMediaRecord typeless;
    EXPECT_FALSE(tnFilterManager::FormatsAreEqual(typeless, typeless));
    tnMediaRecord notANumber = VideoFormat("a");
    notANumber.SetFloat('mfps', __builtin_nanf(""));
    EXPECT_FALSE(tnFilterManager::FormatsAreEqual(notANumber, notANumber));
}

}  // namespace
