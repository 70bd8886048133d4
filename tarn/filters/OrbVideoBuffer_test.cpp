#include "tarn/filters/OrbVideoBuffer.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "spar/zBuffer.h"
#include "spar/zString.h"

#include "tests/support/orbCompressorKit.h"

using namespace orbCompressorKit;

namespace {

class EncodedVideoBuffer : public testing::Test {
protected:
    EncodedVideoBuffer() {
        fEncoder->fOutput = AvcOutput();
        fCompressor.SafeAcquire(fEncoder);
        fDescription.SetAndCopyData("avcC", 4, 0);
    }

    /// The test owns the creation reference.
    std::shared_ptr<OrbVideoBuffer> buffer_of(RObject<CVideoSample> sample, long long time = 0) {
        return {new OrbVideoBuffer(sample, fCompressor, fDescription, time),
                [](OrbVideoBuffer* buffer) { buffer->Release(); }};
    }

    std::vector<unsigned char> bytes_of(OrbVideoBuffer& buffer) {
        const unsigned char* data = buffer.Data();
        return data ? std::vector<unsigned char>(data, data + buffer.DataSize())
                    : std::vector<unsigned char>();
    }

    RObject<Encoder> fEncoder{new Encoder('test')};
    RObject<CVideoCompressor> fCompressor;
    zBuffer fDescription;
};

TEST_F(EncodedVideoBuffer, SaysWhatItsPictureIsToOthers) {
    const struct {
        int type;
        bool key;
        bool drop;
    } rows[] = {{0, true, false}, {1, false, false}, {2, false, true}, {3, false, false}};
    for (const auto& row : rows) {
        const auto buffer = buffer_of(AvcSample(100, row.type));
        EXPECT_EQ(buffer->IsKeyFrame(), row.key) << row.type;
        EXPECT_EQ(buffer->CanDropBuffer(), row.drop) << row.type;
    }
}

TEST_F(EncodedVideoBuffer, AnswersForItselfBeforeDelivery) {
    const auto buffer = buffer_of(AvcSample(100));
    EXPECT_EQ(buffer->fSyncTime, -1);
    EXPECT_EQ(buffer->DataSize(), 0u);
    EXPECT_EQ(buffer->CompressedDataSize(), 0u);
    EXPECT_EQ(buffer->DataAsByteArray(), nullptr);
    EXPECT_EQ(buffer->VideoCodecFormat(), 7);
    EXPECT_EQ(buffer->FrameMetaData(), nullptr);
    EXPECT_EQ(buffer->BufferTimeInMilliseconds(), 0.0);
    buffer->Print();
    zString text("as it was");
    buffer->GetDescription(text);
    EXPECT_STREQ(text.CString(), "as it was");
    zBuffer description;
    EXPECT_EQ(buffer->GetDecoderDescription(description), 0);
    EXPECT_EQ(description.Data(), fDescription.Data()) << "no copy";
    EXPECT_EQ(description.Size(), 4u);
    EXPECT_FALSE(description.IsOwner());
}

TEST_F(EncodedVideoBuffer, AnOffsetBelowZeroIsShownBeforeItsTime) {
    RObject<CVideoSample> sample = AvcSample(100, 2, -1001);
    Buffer::gLiving = 1;
    auto* made = new Buffer(sample, fCompressor, fDescription, 2002);
    EXPECT_EQ(made->fTime, 2002);
    EXPECT_EQ(made->fCompositionTime, 1001);
    made->Release();
    EXPECT_EQ(Buffer::gLiving, 0);
}

//     a unit of 100 bytes          pad 0   pad 99  pad 100   pad 105   pad 106   pad 300
//     filler that it gets              0        0        0    none *         6       200
//     * a filler NAL unit takes six bytes at least
TEST_F(EncodedVideoBuffer, IsFilledUpToItsPadAndNoFurther) {
    const struct {
        unsigned int pad;
        unsigned int size;
    } rows[] = {{0, 100}, {99, 100}, {100, 100}, {105, 100}, {106, 106}, {300, 300}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pad);
        const auto buffer = buffer_of(AvcSample(100));
        EXPECT_EQ(buffer->InitializeData(row.pad), 0);
        EXPECT_EQ(buffer->DataSize(), row.size);
        EXPECT_EQ(buffer->CompressedDataSize(), row.size);
        const std::vector<unsigned char> bytes = bytes_of(*buffer);
        ASSERT_EQ(bytes.size(), row.size) << "the bytes hold the filler";
        EXPECT_EQ(bytes[3], 96) << "behind a length field";
        if (row.size > 100) {
            EXPECT_EQ(bytes[104] & 31, CMpeg4AvcAccessUnit::kNalFiller);
        }
    }
}

// The same picture behind a length field of two bytes, which is what counts then.
//
//     a unit of 98 bytes           pad 98    pad 101   pad 102   pad 300
//     filler that it gets               0     none *         4       202
//     * a filler NAL unit takes four bytes at least
TEST_F(EncodedVideoBuffer, IsAsLongAsItsLengthFieldsMakeIt) {
    fEncoder->fOutput = AvcOutput(2);
    const struct {
        unsigned int pad;
        unsigned int size;
    } rows[] = {{0, 98}, {98, 98}, {101, 98}, {102, 102}, {300, 300}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pad);
        const auto buffer = buffer_of(AvcSample(98, 1, 0, 2));
        EXPECT_EQ(buffer->InitializeData(row.pad), 0);
        EXPECT_EQ(buffer->DataSize(), row.size);
        const std::vector<unsigned char> bytes = bytes_of(*buffer);
        ASSERT_EQ(bytes.size(), row.size);
        EXPECT_EQ(bytes[1], 96) << "behind a length field";
    }
}

TEST_F(EncodedVideoBuffer, OtherCodecsAreNeverFilled) {
    const auto buffer = buffer_of(PlainSample(50));
    EXPECT_EQ(buffer->InitializeData(400), 0);
    EXPECT_EQ(buffer->DataSize(), 50u);
    EXPECT_EQ(bytes_of(*buffer), std::vector<unsigned char>(50, 0x77));
}

TEST_F(EncodedVideoBuffer, WithoutBytesThereIsNothing) {
    const auto buffer = buffer_of(RObject<CVideoSample>(new CVideoSample(nullptr)));
    EXPECT_EQ(buffer->InitializeData(0), -1);
    EXPECT_EQ(buffer->DataSize(), 0u);
    EXPECT_EQ(buffer->Data(), nullptr);

    const auto empty = buffer_of(PlainSample(0));
    EXPECT_EQ(empty->InitializeData(0), -1);
    EXPECT_EQ(empty->Data(), nullptr);
}

// A stream without its properties has nothing to render, which is no failure.
TEST_F(EncodedVideoBuffer, AUnitWithoutPropertiesHasNoSize) {
    fEncoder->fOutput = RObject<CVideoProperties>(new CVideoProperties(nullptr));
    const auto buffer = buffer_of(AvcSample(100));
    EXPECT_EQ(buffer->InitializeData(300), 0);
    EXPECT_EQ(buffer->DataSize(), 0u);
    EXPECT_EQ(buffer->Data(), nullptr);

    fEncoder->fOutput->SetExtension('h264',
                                    RObject<CMpeg4AvcProperties>(new CMpeg4AvcProperties()).Get());
    const auto lost = buffer_of(AvcSample(100));
    EXPECT_EQ(lost->InitializeData(0), -1) << "no configuration: the rendering fails";
    EXPECT_EQ(lost->Data(), nullptr);
}

// Rendered well, into no bytes at all.
TEST_F(EncodedVideoBuffer, AnEmptyUnitHasNoSizeAndIsNoFailure) {
    RObject<CVideoSample> sample(new CVideoSample(1, 0, 0));
    const RObject<CMpeg4AvcAccessUnit> unit(new CMpeg4AvcAccessUnit());
    const RObject<CMpeg4AvcDataReference> data(new CMpeg4AvcDataReference(unit.Get()));
    sample->SetDataReference(data.Get());
    const auto buffer = buffer_of(sample);
    EXPECT_EQ(buffer->InitializeData(300), 0);
    EXPECT_EQ(buffer->DataSize(), 0u);
    EXPECT_EQ(buffer->Data(), nullptr);
}

TEST_F(EncodedVideoBuffer, DataAloneSetsTheSize) {
    const auto buffer = buffer_of(AvcSample(100));
    EXPECT_EQ(buffer->DataSize(), 0u);
    ASSERT_NE(buffer->Data(), nullptr);
    EXPECT_EQ(buffer->DataSize(), 100u);
}

TEST_F(EncodedVideoBuffer, ThreadsThatAskAtOnceGetTheOneRendering) {
    for (int round = 0; round < 50; ++round) {
        const auto buffer = buffer_of(AvcSample(5000));
        buffer->InitializeData(0);
        std::atomic<int> waiting{4};
        std::vector<const unsigned char*> seen(4);
        std::vector<std::thread> threads;
        for (auto& one : seen) {
            threads.emplace_back([&] {
                --waiting;
                while (waiting > 0) std::this_thread::yield();
                one = buffer->Data();
                EXPECT_EQ(buffer->DataSize(), 5000u);
            });
        }
        for (std::thread& thread : threads) thread.join();
        ASSERT_NE(seen[0], nullptr);
        for (const unsigned char* one : seen) EXPECT_EQ(one, seen[0]);
        // A second rendering would be other bytes, now that the unit has changed.
        const RObject<CVideoSample> sample(buffer->OrbVideoSample());
        const RObject<CMpeg4AvcDataReference> avc(
            sample->GetDataReference<CMpeg4AvcDataReference>());
        RObject<CMpeg4AvcAccessUnit>(avc->GetAccessUnit())->AddFillerData(100);
        EXPECT_EQ(buffer->Data(), seen[0]);
        EXPECT_EQ(buffer->DataSize(), 5000u);
    }
}

TEST_F(EncodedVideoBuffer, HandsOutSampleAndPropertiesWithAReference) {
    RObject<CVideoSample> sample = AvcSample(100);
    auto buffer = buffer_of(sample);
    RObject<CVideoSample> handed(buffer->OrbVideoSample());
    EXPECT_EQ(handed, sample);
    const RObject<CVideoProperties> properties(buffer->OrbVideoProperties());
    EXPECT_EQ(properties, fEncoder->fOutput);
    buffer.reset();
    sample.Clear();
    EXPECT_FALSE(handed->IsShared()) << "the buffer let go of its own";
    EXPECT_TRUE(handed->HasDataReference());
}

TEST_F(EncodedVideoBuffer, WithoutAnEncoderThereAreNoProperties) {
    RObject<CVideoCompressor> none;
    RObject<CVideoSample> sample = AvcSample(100);
    auto* buffer = new OrbVideoBuffer(sample, none, fDescription, 0);
    EXPECT_EQ(buffer->OrbVideoProperties(), nullptr);
    EXPECT_EQ(buffer->InitializeData(0), 0);
    EXPECT_EQ(buffer->DataSize(), 0u);
    EXPECT_EQ(buffer->Data(), nullptr);
    buffer->Release();
}

TEST_F(EncodedVideoBuffer, OutlivesItsEncodersOwner) {
    const auto buffer = buffer_of(AvcSample(100));
    fCompressor.Clear();
    fEncoder.Clear();
    EXPECT_EQ(bytes_of(*buffer).size(), 100u);
}

}  // namespace
