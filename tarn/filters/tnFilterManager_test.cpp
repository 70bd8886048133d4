#include "tarn/filters/tnFilterManager.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

#include "tarn/movies/tnStreamBufferGroup.h"

#include "tests/support/filterDoubles.h"

using namespace filterDoubles;

namespace {

constexpr int kSource = 3;

class FilterManager : public testing::Test {
protected:
    FilterManager() {
        fManager->RegisterFactory("codec", [this] { return make_video(); });
        fManager->RegisterFactory("codec", [] { return std::shared_ptr<tnFilter>(); });
        fManager->RegisterFactory("sound", [this] { return make_audio(); });
        fGroup.CreateBuffers(2, 64, false);
        fGroup.GetBuffer(&fBuffer, false);
        fBuffer->AddWritingRef();
    }

    std::shared_ptr<tnFilter> make_video() {
        auto* made = new VideoCompressor();
        fVideo.push_back(made);
        return std::shared_ptr<tnFilter>(made, [](tnFilter* filter) { filter->Release(); });
    }

    std::shared_ptr<tnFilter> make_audio() {
        auto* made = new AudioCompressor();
        made->fMilliseconds = fAudioMilliseconds;
        fAudio.push_back(made);
        return std::shared_ptr<tnFilter>(made, [](tnFilter* filter) { filter->Release(); });
    }

    /// What one observer was told.
    struct Heard {
        std::vector<tnFilter*> filters;
        std::vector<long long> syncTimes;
        std::vector<std::vector<long long>> stamps;
    };

    void observe_video(const std::shared_ptr<zObject>& owner, const tnMediaRecord& format,
                       Heard& heard) {
        fManager->ObserveVideoFilter(
            kSource, owner, format,
            [&heard](const std::shared_ptr<tnFilter>& filter) {
                heard.filters.push_back(filter.get());
            },
            [&heard](const std::shared_ptr<tnVideoCompressor::EncodedBuffer>& buffer) {
                heard.syncTimes.push_back(buffer->fSyncTime);
            });
    }

    void observe_audio(const std::shared_ptr<zObject>& owner, const tnMediaRecord& format,
                       Heard& heard) {
        fManager->ObserveAudioFilter(
            kSource, owner, format,
            [&heard](const std::shared_ptr<tnFilter>& filter) {
                heard.filters.push_back(filter.get());
            },
            [&heard](const std::shared_ptr<tnAudioCompressor::EncodedBuffer>& buffer) {
                heard.stamps.push_back(buffer->fTimestamps);
            });
    }

    void write_video(long long syncTime, long long time) {
        fManager->WriteVideoSample(kSource, syncTime, time, *fBuffer, VideoFormat(nullptr));
    }

    void write_audio(long long time, long long position = 0) {
        const char block[8] = {};
        fManager->WriteAudioSamples(kSource, time, block, sizeof block * 8, position, 0, 0);
    }

    std::shared_ptr<tnFilterManager> fManager = std::make_shared<tnFilterManager>();
    std::vector<VideoCompressor*> fVideo;
    std::vector<AudioCompressor*> fAudio;
    double fAudioMilliseconds = 10.0;
    tnStreamBufferGroup fGroup;
    tnStreamBuffer* fBuffer = nullptr;
    std::shared_ptr<zObject> fOwner = std::make_shared<zObject>();
    std::shared_ptr<zObject> fOther = std::make_shared<zObject>();
    Heard fHeard;
    Heard fHeardByOther;
};

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
    const tnMediaRecord typeless;
    EXPECT_FALSE(tnFilterManager::FormatsAreEqual(typeless, typeless));
    tnMediaRecord notANumber = VideoFormat("a");
    notANumber.SetFloat('mfps', __builtin_nanf(""));
    EXPECT_FALSE(tnFilterManager::FormatsAreEqual(notANumber, notANumber));
}

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

// The first buffer of any output fixes the distance for all of the source. Encoder B holds its
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
