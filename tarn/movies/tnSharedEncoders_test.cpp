// Streams that share encoders: every sink gets each frame once, of its own codec, whoever joins and
// leaves meanwhile. TARN_SOAK_ROUNDS makes the part with threads longer.
#include "tarn/movies/tnSharedEncoders.h"

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "spar/zTraceManager.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/movies/tnOutputStream.h"
#include "tarn/movies/tnStreamBufferGroup.h"

#include "tests/support/filterDoubles.h"

using namespace filterDoubles;

namespace {

int rounds() {
    const char* wish = std::getenv("TARN_SOAK_ROUNDS");
    return wish ? std::atoi(wish) : 2000;
}

/// Looks at each buffer as it comes: the frames are numbered by their times, one number a frame, so
/// a sink must hear of consecutive numbers from the first on.
class CountingSink final : public tnEncodedSink {
public:
    void WriteVideo(std::shared_ptr<tnFilter> filter,
                    std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) override {
        if (filter) fCodec = filter->OutputFormat().AsString('mcon', "");
        note(static_cast<long long>(buffer->BufferTimeInMilliseconds()));
    }
    void WriteAudio(std::shared_ptr<tnFilter>,
                    std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) override {
        note(static_cast<long long>(buffer->Timestamp(0)));
    }

    int Count() const { return fCount; }
    int Odd() const { return fOdd; }

    std::string fCodec;  ///< the writer's thread alone

private:
    void note(long long number) {
        if (fCount > 0 && number != fLast + 1) ++fOdd;
        fLast = number;
        ++fCount;
    }

    long long fLast = 0;
    std::atomic<int> fCount{0};
    std::atomic<int> fOdd{0};
};

struct Guest {
    std::shared_ptr<CountingSink> sink = std::make_shared<CountingSink>();
    std::shared_ptr<tnOutputStream> stream;

    Guest(int source, const tnMediaRecord& format) {
        const auto sync = std::make_shared<tnOutputStreamSync>();
        stream = std::shared_ptr<tnOutputStream>(new tnOutputStream(source, format, sync),
                                                 [](tnOutputStream* one) { one->Release(); });
        sync->AddStream(stream.get());
        stream->SetSink(sink);
    }
};

std::shared_ptr<tnFilter> held(tnFilter* filter) {
    return {filter, [](tnFilter* one) { one->Release(); }};
}

class SharedEncoders : public testing::Test {
protected:
    static constexpr int kSource = 5;

    SharedEncoders() {
        zTraceManager::SetDefault(nullptr);
        tnFilterManager::Startup();
        fManager = tnFilterManager::Default();
        for (const char* codec : {"one", "two"}) {
            fManager->RegisterFactory(codec, [this] {
                ++fMade;
                return held(new VideoCompressor());
            });
        }
        fManager->RegisterFactory("sound", [] { return held(new AudioCompressor()); });
        fGroup.CreateBuffers(1, 64, false);
        fGroup.GetBuffer(&fFrame, false);
        fFrame->AddWritingRef();
    }
    ~SharedEncoders() override {
        tnFilterManager::Shutdown();
        zTraceManager::SetDefault(fTrace);
    }

    void write(int frames = 1) {
        for (int i = 0; i < frames; ++i, ++fNumber) {
            fManager->WriteVideoSample(kSource, fNumber, fNumber, *fFrame, VideoFormat(nullptr));
        }
    }

    zTraceManager* const fTrace = zTraceManager::Default();
    std::shared_ptr<tnFilterManager> fManager;
    std::atomic<int> fMade{0};
    long long fNumber = 0;
    tnStreamBufferGroup fGroup;
    tnStreamBuffer* fFrame = nullptr;
};

TEST_F(SharedEncoders, LikeWishesShareOneEncoderAndHearEachFrameOnce) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    std::vector<std::unique_ptr<Guest>> guests;
    for (int i = 0; i < 4; ++i) {
        guests.push_back(std::make_unique<Guest>(kSource, VideoFormat("one")));
        EXPECT_EQ(tnSharedEncoders::Join(*guests.back()->stream), 0);
        EXPECT_EQ(tnSharedEncoders::CountUsers(kSource, VideoFormat("one")), i + 1);
    }
    EXPECT_EQ(fMade, 1);
    write(10);
    for (const auto& guest : guests) {
        EXPECT_EQ(guest->sink->Count(), 10);
        EXPECT_EQ(guest->sink->Odd(), 0);
        EXPECT_EQ(guest->sink->fCodec, "one");
        tnSharedEncoders::Leave(*guest->stream);
    }
    EXPECT_EQ(tnSharedEncoders::CountUsers(kSource, VideoFormat("one")), 0);
}

// The manager compares shapes and rates alone. Asked plainly, the second would hear both encoders.
TEST_F(SharedEncoders, AnotherCodecOfTheSameShapeIsNotMixedIn) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    tnMediaRecord sharp = VideoFormat("one");
    sharp.SetCString("codec_quality", "sharp");
    Guest one(kSource, VideoFormat("one"));
    Guest two(kSource, VideoFormat("two"));
    Guest other(kSource, sharp);
    for (Guest* guest : {&one, &two, &other}) EXPECT_EQ(tnSharedEncoders::Join(*guest->stream), 0);
    EXPECT_EQ(fMade, 3);
    write(5);
    for (Guest* guest : {&one, &two, &other}) {
        EXPECT_EQ(guest->sink->Count(), 5);
        EXPECT_EQ(guest->sink->Odd(), 0);
    }
    EXPECT_EQ(one.sink->fCodec, "one");
    EXPECT_EQ(two.sink->fCodec, "two");
    for (Guest* guest : {&one, &two, &other}) tnSharedEncoders::Leave(*guest->stream);
}

//             frames  0   1   2   3   4   5   6   7   8   9
//     first           join        leave
//     second                  join                leave
//     third                           join                        the encoder of the first goes on
TEST_F(SharedEncoders, TheEncoderOutlivesWhoeverBroughtIt) {
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    Guest first(kSource, VideoFormat("one"));
    Guest second(kSource, VideoFormat("one"));
    Guest third(kSource, VideoFormat("one"));
    tnSharedEncoders::Join(*first.stream);
    write(2);
    tnSharedEncoders::Join(*second.stream);
    write(1);
    tnSharedEncoders::Leave(*first.stream);
    write(1);
    tnSharedEncoders::Join(*third.stream);
    write(3);
    tnSharedEncoders::Leave(*second.stream);
    write(3);
    EXPECT_EQ(fMade, 1);
    EXPECT_EQ(first.sink->Count(), 3);
    EXPECT_EQ(second.sink->Count(), 5);
    EXPECT_EQ(third.sink->Count(), 6);
    for (const Guest* guest : {&first, &second, &third}) EXPECT_EQ(guest->sink->Odd(), 0);
    tnSharedEncoders::Leave(*third.stream);
    Guest again(kSource, VideoFormat("one"));
    tnSharedEncoders::Join(*again.stream);
    EXPECT_EQ(fMade, 2) << "it went with its last user";
    tnSharedEncoders::Leave(*again.stream);
}

// A source that has been given its format and no output yet would end, format and all, with any
// stop.
TEST_F(SharedEncoders, AWishThatNobodyServesChangesNothing) {
    fManager->RegisterFactory("none", [] { return std::shared_ptr<tnFilter>(); });
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    tnMediaRecord unsteady = VideoFormat("one");
    unsteady.SetFloat('mfps', std::nanf(""));
    tnMediaRecord text = VideoFormat("one");
    text.fType.SetInt32('text');
    for (const tnMediaRecord& wish : {VideoFormat("three"), VideoFormat("none"), unsteady, text}) {
        for (const int source : {kSource, kSource + 1}) {
            Guest refused(source, wish);
            EXPECT_EQ(tnSharedEncoders::Join(*refused.stream), -1041);
            EXPECT_EQ(tnSharedEncoders::CountUsers(source, wish), 0);
            EXPECT_EQ(refused.stream->AddRef(), 2) << "nothing holds it";
            refused.stream->Release();
            EXPECT_EQ(tnSharedEncoders::Join(*refused.stream), -1041) << "it has not started";
        }
    }
    EXPECT_EQ(fMade, 0);
    Guest guest(kSource, VideoFormat("one"));
    EXPECT_EQ(tnSharedEncoders::Join(*guest.stream), 0);
    write(3);
    EXPECT_EQ(guest.sink->Count(), 3) << "the source still knows its format";
    tnSharedEncoders::Leave(*guest.stream);
}

TEST_F(SharedEncoders, SayWhatCannotBe) {
    Guest unknown(kSource, VideoFormat("three"));
    EXPECT_EQ(tnSharedEncoders::Join(*unknown.stream), -1041);
    EXPECT_EQ(tnSharedEncoders::CountUsers(kSource, VideoFormat("three")), 0);
    Guest guest(kSource, VideoFormat("one"));
    EXPECT_EQ(tnSharedEncoders::Join(*guest.stream), 0);
    EXPECT_EQ(tnSharedEncoders::Join(*guest.stream), -22);
    tnSharedEncoders::Leave(*guest.stream);
    tnSharedEncoders::Leave(*guest.stream);
    tnFilterManager::Shutdown();
    EXPECT_EQ(tnSharedEncoders::Join(*guest.stream), -1041);
}

// A stream lives until no delivery to it can be under way any more.
TEST_F(SharedEncoders, AStreamMayLeaveAndBeReleasedInsideItsOwnDelivery) {
    class Leaver final : public tnEncodedSink {
    public:
        explicit Leaver(std::shared_ptr<tnOutputStream>& stream) : fStream(stream) {}
        void WriteVideo(std::shared_ptr<tnFilter>,
                        std::shared_ptr<tnVideoCompressor::EncodedBuffer>) override {
            ++fHeard;
            tnSharedEncoders::Leave(*fStream);
            fStream.reset();
        }
        void WriteAudio(std::shared_ptr<tnFilter>,
                        std::shared_ptr<tnAudioCompressor::EncodedBuffer>) override {}
        int fHeard = 0;

    private:
        std::shared_ptr<tnOutputStream>& fStream;
    };
    fManager->SetInputFormat(kSource, VideoFormat(nullptr));
    Guest guest(kSource, VideoFormat("one"));
    const auto sink = std::make_shared<Leaver>(guest.stream);
    guest.stream->SetSink(sink);
    ASSERT_EQ(tnSharedEncoders::Join(*guest.stream), 0);
    write(3);
    EXPECT_EQ(sink->fHeard, 1);
    EXPECT_EQ(sink.use_count(), 1) << "the stream has gone";
}

// Three sources, each written by its own thread, and guests that come and go on all of them.
//
//     source 0   pictures, one guest that stays: the input format holds
//     source 1   pictures, nobody stays: the source ends with its last guest and begins anew
//     source 2   sound
class RoadUnderLoad : public SharedEncoders {
protected:
    static constexpr int kSources = 3;

    static bool is_sound(int source) { return source == 2; }

    void write_source(int source) {
        tnStreamBufferGroup group;
        group.CreateBuffers(2, 64, false);
        const char block[64] = {};
        const tnMediaRecord format = is_sound(source) ? AudioFormat(nullptr) : VideoFormat(nullptr);
        for (long long number = 0; !fDone; ++number) {
            fManager->SetInputFormat(source, format);
            if (is_sound(source)) {
                // 48 frames a number, from amidst of one: the filter's time, rounded down, is the
                // number.
                fManager->WriteAudioSamples(source, number, block, 64 * 8, number * 48 + 10, 0, 0);
            } else {
                tnStreamBuffer* frame = nullptr;
                ASSERT_EQ(group.GetBuffer(&frame, false), 0) << "every reference comes back";
                frame->AddWritingRef();
                fManager->WriteVideoSample(source, number, number, *frame, format);
                frame->ReleaseWriting();
            }
            ++fWritten[source];
            std::this_thread::yield();
        }
    }

    static tnMediaRecord wish_of(int source, std::mt19937& random) {
        tnMediaRecord wish = is_sound(source) ? AudioFormat("sound")
                                              : VideoFormat(random() % 2 == 0 ? "one" : "two");
        if (random() % 3 == 0) wish.SetInt32('mtbr', 500);
        return wish;
    }

    /// One stream's visit: it stays for some frames, which it must all hear, each once.
    void visit(std::mt19937& random) {
        const int source = static_cast<int>(random() % kSources);
        const Guest guest(source, wish_of(source, random));
        ASSERT_EQ(tnSharedEncoders::Join(*guest.stream), 0);
        const int enough = static_cast<int>(random() % 6);
        while (guest.sink->Count() < enough) std::this_thread::yield();
        tnSharedEncoders::Leave(*guest.stream);
        EXPECT_EQ(guest.sink->Odd(), 0);
    }

    std::atomic<bool> fDone{false};
    std::atomic<long long> fWritten[kSources] = {};
};

TEST_F(RoadUnderLoad, EachFrameReachesEachSinkOnceWhoeverComesAndGoes) {
    Guest stays(0, VideoFormat("one"));
    ASSERT_EQ(tnSharedEncoders::Join(*stays.stream), 0);
    std::vector<std::thread> writers;
    for (int source = 0; source < kSources; ++source) {
        writers.emplace_back([this, source] { write_source(source); });
    }
    std::vector<std::thread> guests;
    for (unsigned int seed = 1; seed <= 4; ++seed) {
        guests.emplace_back([this, seed] {
            std::mt19937 random(seed);
            for (int round = 0; round < rounds(); ++round) visit(random);
        });
    }
    for (std::thread& guest : guests) guest.join();
    fDone = true;
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(stays.sink->Odd(), 0);
    EXPECT_EQ(stays.sink->Count(), fWritten[0]);
    tnSharedEncoders::Leave(*stays.stream);
}

}  // namespace
