#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

#include "spar/zRecord.h"

#include "tests/support/orbCompressorKit.h"

using namespace orbCompressorKit;

namespace {

constexpr int kWidth = 16;
constexpr int kHeight = 8;
constexpr int kSize = kWidth * kHeight * 2;

tnMediaRecord plain_frame() {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.fWidth.SetInt32(kWidth);
    record.fHeight.SetInt32(kHeight);
    record.fColourspace.SetInt32('2vuy');
    record.fBytesPerRow.SetInt32(kWidth * 2);
    return record;
}

class VideoCompressorRoad : public testing::Test {
protected:
    VideoCompressorRoad() {
        fOutput.fType.SetInt32(TN_MEDIA_VIDEO);
        fOutput.SetInt64('tmsc', 30000);
        fOutput.SetFloat('mfps', 29.97f);
        fOutput.SetCString('mcon', "x264");
        component().fOutput = AvcOutput();
        fCompressor->fOnEncodedBuffer = [this](const auto& buffer) { take(buffer); };
    }
    ~VideoCompressorRoad() override {
        fBuffers.clear();
        fCompressor.reset();
        EXPECT_EQ(Buffer::gLiving, 0) << "buffers are left over";
    }

    void take(const std::shared_ptr<tnVideoCompressor::EncodedBuffer>& buffer) {
        fBuffers.push_back(buffer);
        fDelivered.push_back({buffer->BufferTimeInMilliseconds(), buffer->Duration(),
                              buffer->DisplayOffsetRelativeToDuration(),
                              buffer->DisplayOffsetInMilliseconds(),
                              dynamic_cast<Buffer&>(*buffer).fIrregularTiming});
    }

    void begin() {
        ASSERT_EQ(fCompressor->Create(fOutput, fOutput, &fUserData), 0);
        fCompressor->SetInputFormat(plain_frame());
        ASSERT_EQ(fCompressor->fConfigureError, 0);
    }
    int encode(long long time, const zRecord* metaData = nullptr, bool keyFrame = false,
               tnOrbVideoCompressor::Callback callback = nullptr) {
        fFrame->AddWritingRef();
        const int result =
            fCompressor->EncodeFrame(*fFrame, plain_frame(), time, keyFrame, callback, metaData);
        EXPECT_EQ(fFrame->AddWritingRef(), 2) << "the writing reference came back";
        fFrame->ReleaseWriting();
        return result;
    }
    void encode_all(const std::vector<long long>& times) {
        for (const long long time : times) EXPECT_EQ(encode(time), 0);
    }
    Encoder& component() { return fCompressor->Component(); }

    tnMediaRecord fOutput;
    int fUserData = 0;
    std::unique_ptr<tnStreamBuffer> fFrame = StreamBufferOf(kSize);
    std::optional<Compressor> fCompressor{std::in_place};
    std::vector<Delivered> fDelivered;
    std::vector<std::shared_ptr<tnVideoCompressor::EncodedBuffer>> fBuffers;
};

double ms(long long ticks) {
    return 1000.0 / 30000.0 * static_cast<double>(ticks);
}

// Times.

TEST_F(VideoCompressorRoad, ABufferWaitsForItsSuccessor) {
    begin();
    encode(5000);
    EXPECT_TRUE(fDelivered.empty());
    encode(7500);
    EXPECT_EQ(fDelivered, (std::vector<Delivered>{{ms(5000), 2500, 0, 0, false}}));
    EXPECT_EQ(fCompressor->fFramesSubmitted, 2);
}

//     frame               0       1       2       3
//     time                0    1001    4004    5005       a gap of two frames behind frame 1
//     duration         1001    3003    1001               what the successor says
TEST_F(VideoCompressorRoad, DurationsAreDistances) {
    begin();
    encode_all({0, 1001, 4004, 5005});
    EXPECT_EQ(fDelivered, (std::vector<Delivered>{{ms(0), 1001, 0, 0, false},
                                                  {ms(1001), 3003, 0, 0, false},
                                                  {ms(4004), 1001, 0, 0, false}}));
}

// The nominal duration is 30000 / 29.97 = 1001.001, rounded down. N is the running decode time
// before the buffer; a buffer is regular when its time is not below N and its successor is later.
//
//     time        0    1001    1001    5005    3003    6006    7007
//     N           0    1001    2002    3003    4004    5005
//     next     1001    1001    5005    3003    6006    7007
//     distance 1001       0    4004   -2002    3003    1001
//     regular   yes      no      no      no      no     yes
//                      dist.   < N    dist.     < N
//     duration 1001    1001    1001    1001    1001    1001
//     offset      0       0   -1001    2002   -1001    1001     time - N
TEST_F(VideoCompressorRoad, IrregularTimesGetTheNominalDuration) {
    begin();
    encode_all({0, 1001, 1001, 5005, 3003, 6006, 7007});
    EXPECT_EQ(fDelivered, (std::vector<Delivered>{{ms(0), 1001, 0, 0, false},
                                                  {ms(1001), 1001, 0, 0, true},
                                                  {ms(1001), 1001, -1001, 0, true},
                                                  {ms(5005), 1001, 2002, 0, true},
                                                  {ms(3003), 1001, -1001, 0, true},
                                                  {ms(6006), 1001, 1001, 0, false}}));
    EXPECT_EQ(fCompressor->fNextDecodeTime, 6006);
}

// A jump back: the sum of the durations goes on rising until the times have caught up with it.
//
//     time    90000   91001     500    1501    2502
//     N       90000   91001   92002   93003
//     regular   yes      no      no      no
TEST_F(VideoCompressorRoad, TheRunningTimeNeverGoesBack) {
    begin();
    encode_all({90000, 91001, 500, 1501, 2502});
    EXPECT_EQ(fDelivered, (std::vector<Delivered>{{ms(90000), 1001, 0, 0, false},
                                                  {ms(91001), 1001, 0, 0, true},
                                                  {ms(500), 1001, -91502, 0, true},
                                                  {ms(1501), 1001, -91502, 0, true}}));
    EXPECT_EQ(fCompressor->fNextDecodeTime, 94004);
}

// Two B-frames between anchors; the encoder holds frames back and tells the display order by the
// composition offset alone.
//
//     in     I0       B1          B2             P3            -                    4 frames
//     out                                        I0 P3         B1 B2                as it goes
//     time   0        1001        2002           3003          4004                 of the queue
//     offset                                     0  +2002      -1001 -1001
TEST_F(VideoCompressorRoad, ReorderedPicturesTakeTheTimesInDecodeOrder) {
    component().fGives = {{},
                          {},
                          {},
                          {AvcSample(50, 0, 0), AvcSample(40, 1, 2002)},
                          {AvcSample(30, 2, -1001), AvcSample(30, 2, -1001)},
                          {AvcSample(50, 0, 0)}};
    begin();
    encode_all({0, 1001, 2002, 3003, 4004, 5005});
    EXPECT_EQ(fDelivered, (std::vector<Delivered>{{ms(0), 1001, 0, 0, false},
                                                  {ms(1001), 1001, 2002, 66, false},
                                                  {ms(2002), 1001, -1001, -33, false},
                                                  {ms(3003), 1001, -1001, -33, false}}));
    ASSERT_EQ(fBuffers.size(), 4u);
    EXPECT_TRUE(fBuffers[0]->IsKeyFrame());
    EXPECT_FALSE(fBuffers[1]->IsKeyFrame());
    EXPECT_FALSE(fBuffers[1]->CanDropBuffer());
    EXPECT_TRUE(fBuffers[2]->CanDropBuffer());
    EXPECT_EQ(fBuffers[1]->DataSize(), 40u);
}

TEST_F(VideoCompressorRoad, OffsetsAreOf32Bits) {
    constexpr long long kFar = 0x100000005;
    component().fGives = {{AvcSample(50, 0, kFar)}, {AvcSample(50, 0, 0)}};
    begin();
    encode_all({0, 1001});
    EXPECT_EQ(fDelivered, (std::vector<Delivered>{{ms(0), 1001, 5, 0, false}}));
    EXPECT_EQ(dynamic_cast<Buffer&>(*fBuffers[0]).fCompositionTime, kFar);
}

TEST_F(VideoCompressorRoad, ADistanceOfMoreThan32BitsIsIrregular) {
    begin();
    encode_all({0, 0x80000000LL, 0x80000000LL + 1001});
    EXPECT_EQ(fDelivered[0], (Delivered{0.0, 1001, 0, 0, true}));
}

TEST_F(VideoCompressorRoad, WithoutARateTheNominalDurationIsNothing) {
    fOutput.RemoveID('mfps');
    begin();
    encode_all({7, 7, 7});
    EXPECT_EQ(fDelivered, (std::vector<Delivered>{{ms(7), 0, 0, 0, true}, {ms(7), 0, 0, 0, true}}));
}

// 1000 / 23.976 = 41.708, and 41 is what is left of it.
TEST_F(VideoCompressorRoad, TheNominalDurationLosesItsFraction) {
    fOutput.SetInt64('tmsc', 1000);
    fOutput.SetFloat('mfps', 23.976f);
    begin();
    encode_all({7, 7, 7});
    EXPECT_EQ(fDelivered, (std::vector<Delivered>{{7.0, 41, 0, 0, true}, {7.0, 41, -41, 0, true}}));
}

TEST_F(VideoCompressorRoad, WithoutATimescaleFramesStillGoThrough) {
    fOutput.RemoveID('tmsc');
    begin();
    encode_all({0, 1, 2});
    ASSERT_EQ(fDelivered.size(), 2u);
    EXPECT_EQ(fDelivered[1].duration, 1u);
}

// Places in the queue.

//     in        0    1001*   2002   3003        * refused
//     queue     0    1001    2002   3003
//     out       A      -       B      C         take 0, 1001, 2002
TEST_F(VideoCompressorRoad, ARefusedFrameLeavesItsTimeToTheNext) {
    begin();
    encode(0);
    component().fRefuseFrames = true;
    EXPECT_EQ(encode(1001), 0) << "the host does not hear of it";
    component().fRefuseFrames = false;
    encode_all({2002, 3003, 4004});
    ASSERT_EQ(fDelivered.size(), 3u);
    EXPECT_EQ(fDelivered[1].timeMs, ms(1001));
    EXPECT_EQ(fDelivered[2].timeMs, ms(2002));
    EXPECT_EQ(fCompressor->fFramesSubmitted, 4);
}

TEST_F(VideoCompressorRoad, AnEncoderThatFailsToGiveIsNotReported) {
    begin();
    component().fFailReceive = true;
    EXPECT_EQ(encode(0), 0);
    EXPECT_EQ(fCompressor->fFramesSubmitted, 0);
    component().fFailReceive = false;
    encode_all({1001, 2002});
    ASSERT_EQ(fDelivered.size(), 2u) << "what waited comes with the next";
    EXPECT_EQ(fDelivered[1].timeMs, ms(1001));
}

TEST_F(VideoCompressorRoad, SamplesThatNeverWentInAreDropped) {
    component().fGives = {{PlainSample(10), PlainSample(11), PlainSample(12)}, {PlainSample(20)}};
    begin();
    encode_all({0, 1001, 2002});
    ASSERT_EQ(fBuffers.size(), 2u);
    EXPECT_EQ(fBuffers[0]->DataSize(), 10u);
    EXPECT_EQ(fBuffers[1]->DataSize(), 20u);
    EXPECT_EQ(fDelivered[1].timeMs, ms(1001));
}

TEST_F(VideoCompressorRoad, ASampleWithoutDataUsesUpNoTime) {
    component().fGives = {{RObject<CVideoSample>(new CVideoSample(nullptr)), PlainSample(10)}};
    begin();
    encode_all({0, 1001});
    ASSERT_EQ(fDelivered.size(), 1u);
    EXPECT_EQ(fBuffers[0]->DataSize(), 10u);
    EXPECT_EQ(fDelivered[0].timeMs, 0.0);
}

TEST_F(VideoCompressorRoad, ABufferThatASubclassDoesNotMakeUsesUpItsTime) {
    begin();
    fCompressor->fDropBuffers = true;
    encode(0);
    fCompressor->fDropBuffers = false;
    encode_all({1001, 2002});
    EXPECT_EQ(fDelivered, (std::vector<Delivered>{{ms(1001), 1001, 0, 0, false}}));
}

// What comes along.

TEST_F(VideoCompressorRoad, KeyFrameRequestsReachTheEncoder) {
    begin();
    encode(0, nullptr, false);
    encode(1001, nullptr, true);
    ASSERT_EQ(component().fFrames.size(), 2u);
    EXPECT_EQ(component().fFrames[0]->GetHint(), 0);
    EXPECT_EQ(component().fFrames[1]->GetHint(), 1);
    EXPECT_EQ(component().fFrames[1]->GetTime(), 1001);
}

// Metadata goes with the place in the queue, which with B-frames is another picture's.
TEST_F(VideoCompressorRoad, MetaDataGoesWithTheTime) {
    component().fGives = {{}, {AvcSample(50, 0), AvcSample(40, 1, 1001)}};
    begin();
    zRecord first;
    first.SetInt32("number", 1);
    zRecord third;
    third.SetInt32("number", 3);
    encode(0, &first);
    encode(1001);
    encode(2002, &third);
    encode(3003);
    first.SetInt32("number", 99);
    ASSERT_EQ(fBuffers.size(), 3u);
    ASSERT_NE(fBuffers[0]->FrameMetaData(), nullptr);
    EXPECT_EQ(fBuffers[0]->FrameMetaData()->AsInt32("number", 0), 1) << "a copy";
    EXPECT_EQ(fBuffers[1]->FrameMetaData(), nullptr);
    ASSERT_NE(fBuffers[2]->FrameMetaData(), nullptr);
    EXPECT_EQ(fBuffers[2]->FrameMetaData()->AsInt32("number", 0), 3);
}

TEST_F(VideoCompressorRoad, OfTwoFramesOfOneTimeTheLaterMetaDataStays) {
    component().fGives = {{}};
    begin();
    zRecord meta;
    meta.SetInt32("number", 1);
    encode(500, &meta);
    meta.SetInt32("number", 2);
    encode(500, &meta);
    encode_all({1501, 2502});
    ASSERT_EQ(fBuffers.size(), 2u);
    ASSERT_NE(fBuffers[0]->FrameMetaData(), nullptr);
    EXPECT_EQ(fBuffers[0]->FrameMetaData()->AsInt32("number", 0), 2);
    EXPECT_EQ(fBuffers[1]->FrameMetaData(), nullptr);
}

TEST_F(VideoCompressorRoad, MetaDataOfFramesThatNeverComeOutEndsWithTheCompressor) {
    component().fGives = {{}, {}};
    begin();
    zRecord meta;
    encode(0, &meta);
    encode(1001, &meta);
    fCompressor->flush_encoder();
    fCompressor.reset();  // the leak checker watches
}

namespace {
struct Heard {
    std::vector<void*> userData;
    std::vector<int> referencesLeft;
};
Heard gHeard;

int note(tnVideoCompressor::EncodedBuffer* buffer, void* userData) {
    buffer->AddRef();
    gHeard.referencesLeft.push_back(buffer->Release());
    gHeard.userData.push_back(userData);
    return -5;
}
}  // namespace

TEST_F(VideoCompressorRoad, TheCallbackHearsAfterTheObserversAndItsResultIsIgnored) {
    gHeard = {};
    begin();
    EXPECT_EQ(encode(0, nullptr, false, note), 0);
    EXPECT_TRUE(gHeard.userData.empty());
    EXPECT_EQ(encode(1001, nullptr, false, note), 0);
    EXPECT_EQ(gHeard.userData, (std::vector<void*>{&fUserData}));
    EXPECT_EQ(gHeard.referencesLeft, (std::vector<int>{2})) << "the observer's and the delivery's";
    EXPECT_EQ(fBuffers.size(), 1u);

    fCompressor->fOnEncodedBuffer = {};
    EXPECT_EQ(encode(2002, nullptr, false, note), 0);
    EXPECT_EQ(gHeard.userData.size(), 2u);
    EXPECT_EQ(encode(3003), 0) << "nobody listens";
}

// Ends.

TEST_F(VideoCompressorRoad, NothingThatWaitsIsDeliveredAtTheEnd) {
    begin();
    encode_all({0, 1001});
    const RObject<Encoder> encoder = fCompressor->fComponent;
    fCompressor.reset();
    EXPECT_EQ(fDelivered.size(), 1u);
    EXPECT_EQ(encoder->fEnded, 1);
    EXPECT_EQ(Buffer::gLiving, 1) << "the one that the test holds";
}

TEST_F(VideoCompressorRoad, AFlushForgetsTimesAndFinishedBuffers) {
    component().fGives = {{}, {}, {}, {AvcSample(50)}};
    begin();
    encode_all({0, 1001, 2002});
    RObject<CVideoSample> sample = AvcSample(60);
    RObject<CVideoCompressor> encoder(fCompressor->fEncoder);
    ++Buffer::gLiving;
    fCompressor->PostBuffer(*new Buffer(sample, encoder, *fCompressor->fDecoderDescription, 7));
    fCompressor->flush_encoder();
    EXPECT_EQ(Buffer::gLiving, 0);
    EXPECT_FALSE(fCompressor->pop_encoded_buffers(nullptr));
    encode_all({3003, 4004});
    EXPECT_EQ(fDelivered, (std::vector<Delivered>{{ms(3003), 1001, 0, 0, false}}))
        << "the encoder's first sample takes the first time after the flush";
}

// The one that waits for its successor has left the list, and the first after the flush is that.
//
//     in     0    1001    flush    5005
//     out    A       B                C
//     waits       A: 1001             B: 4004
TEST_F(VideoCompressorRoad, AFlushLeavesTheBufferThatWaitsForItsSuccessor) {
    begin();
    encode_all({0, 1001});
    fCompressor->flush_encoder();
    EXPECT_EQ(Buffer::gLiving, 2) << "the delivered one, which the test holds, and the waiting one";
    encode(5005);
    EXPECT_EQ(fDelivered,
              (std::vector<Delivered>{{ms(0), 1001, 0, 0, false}, {ms(1001), 4004, 0, 0, false}}));
}

TEST_F(VideoCompressorRoad, WithNothingWaitingThereIsNothingToPop) {
    EXPECT_FALSE(fCompressor->pop_encoded_buffers(nullptr));
    begin();
    EXPECT_FALSE(fCompressor->pop_encoded_buffers(nullptr));
    RObject<CVideoSample> none;
    EXPECT_FALSE(fCompressor->compress_h264(none));
}

TEST_F(VideoCompressorRoad, BuffersMayBePostedFromAnotherThread) {
    begin();
    RObject<CVideoSample> sample = AvcSample(60);
    RObject<CVideoCompressor> encoder(fCompressor->fEncoder);
    constexpr int kCount = 200;
    std::thread poster([&] {
        for (int i = 0; i < kCount; ++i) {
            fCompressor->PostBuffer(
                *new OrbVideoBuffer(sample, encoder, *fCompressor->fDecoderDescription, i * 1001));
        }
    });
    fCompressor->fOnEncodedBuffer = [this](const auto& buffer) { fBuffers.push_back(buffer); };
    while (fBuffers.size() + 1 < kCount) fCompressor->pop_encoded_buffers(nullptr);
    poster.join();
    for (int i = 0; i + 1 < kCount; ++i) {
        EXPECT_EQ(fBuffers[static_cast<std::size_t>(i)]->BufferTimeInMilliseconds(), ms(i * 1001));
    }
}

TEST_F(VideoCompressorRoad, FailuresOfTheSampleAreTheFramesAnswer) {
    begin();
    fCompressor->fSampleCode = -99;
    EXPECT_EQ(encode(0), -99);
    fCompressor->fSampleCode = 0;
    fCompressor->fGiveNoSample = true;
    EXPECT_EQ(encode(0), -1046);
    fCompressor->fGiveNoSample = false;
    EXPECT_EQ(encode(0), 0);
    fFrame = StreamBufferOf(kSize - 1);
    EXPECT_EQ(encode(1001), -1) << "shorter than the format says";
    EXPECT_EQ(component().fFrames.size(), 1u);
    fFrame = StreamBufferOf(kSize);
    encode(2002);
    ASSERT_EQ(fDelivered.size(), 1u);
    EXPECT_EQ(fDelivered[0].duration, 2002u) << "a frame that was no sample left no time";
}

// Nobody looks at the answers, and an output's statistics have to say more than -1.
TEST_F(VideoCompressorRoad, FramesThatAreNoSamplesAreToldOfWhileTheyLast) {
    begin();
    fFrame = StreamBufferOf(kSize - 1);
    for (int frame = 0; frame < 29; ++frame) EXPECT_EQ(encode(frame * 1001LL), -1);
    EXPECT_EQ(fCompressor->FrameError(), 0);
    EXPECT_EQ(encode(29 * 1001LL), -1);
    EXPECT_EQ(fCompressor->FrameError(), -1050);
    fFrame = StreamBufferOf(kSize);
    EXPECT_EQ(encode(30 * 1001LL), 0);
    EXPECT_EQ(fCompressor->FrameError(), 0);
}

// Strict constant rate.

// Two frames a second, and 250000 bytes for each second. The buffer before a second's end is filled
// up to what the second lacks.
//
//     time             0       1 |     2       3 |     4       5 |     6       7 |     8
//     unit        200000   30000 |260000     100 |249000     400 |249994       6 |    10
//     before           0  200000 |     0  260000 |     0  249000 |     0  249994 |
//     pad              -   50000 |     -       0 |     -    1000 |     -       6 |
//     size        200000   50000 |260000     100 |249000    1000 |249994       6 |
//     second              250000 |        260100 |        250000 |        250000 |
TEST_F(VideoCompressorRoad, TheLastBufferOfASecondReachesTheTarget) {
    component().fGives = {{AvcSample(200000, 0)}, {AvcSample(30000)},  {AvcSample(260000)},
                          {AvcSample(100)},       {AvcSample(249000)}, {AvcSample(400)},
                          {AvcSample(249994)},    {AvcSample(6)},      {AvcSample(10)}};
    fOutput.SetInt64('tmsc', 2);
    fOutput.SetFloat('mfps', 2.0f);
    fOutput.SetInt32('mtbr', 2000);
    fOutput.SetBool("strict_cbr", true);
    fCompressor->fCanPad = false;
    begin();
    std::vector<unsigned int> sizes;
    std::vector<unsigned int> counted;
    fCompressor->fOnEncodedBuffer = [&](const auto& buffer) {
        sizes.push_back(buffer->DataSize());
        counted.push_back(fCompressor->fBytesThisSecond);
        ASSERT_NE(buffer->Data(), nullptr);
        EXPECT_EQ(buffer->DataSize(), sizes.back()) << "the bytes have the filler";
    };
    encode_all({0, 1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(sizes,
              (std::vector<unsigned int>{200000, 50000, 260000, 100, 249000, 1000, 249994, 6}));
    EXPECT_EQ(counted, (std::vector<unsigned int>{200000, 0, 260000, 0, 249000, 0, 249994, 0}));
}

// A buffer whose successor stands seconds away closes its second all the same.
TEST_F(VideoCompressorRoad, AGapClosesTheSecondBeforeIt) {
    component().fGives = {{AvcSample(1000, 0)}, {AvcSample(1000)}, {AvcSample(1000)}};
    fOutput.SetInt64('tmsc', 10);
    fOutput.SetInt32('mtbr', 80);
    fOutput.SetBool("strict_cbr", true);
    fCompressor->fCanPad = false;
    begin();
    encode_all({0, 1, 50});
    ASSERT_EQ(fBuffers.size(), 2u);
    EXPECT_EQ(fBuffers[0]->DataSize(), 1000u);
    EXPECT_EQ(fBuffers[1]->DataSize(), 9000u) << "10000 bytes a second";
}

TEST_F(VideoCompressorRoad, AComponentThatPadsIsLeftAlone) {
    component().fGives = {{AvcSample(1000, 0)}, {AvcSample(1000)}, {AvcSample(1000)}};
    fOutput.SetInt64('tmsc', 2);
    fOutput.SetInt32('mtbr', 80);
    fOutput.SetBool("strict_cbr", true);
    begin();
    encode_all({0, 1, 2});
    ASSERT_EQ(fBuffers.size(), 2u);
    EXPECT_EQ(fBuffers[1]->DataSize(), 1000u);
    EXPECT_EQ(fCompressor->fBytesThisSecond, 0u);
}

}  // namespace
