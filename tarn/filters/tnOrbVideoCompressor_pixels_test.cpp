// A frame's pixels on their way into samples, and into the references of subclasses.

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

#include "orb/CPixelBufferDataReference.h"

#include "tests/support/orbCompressorKit.h"
#include "tests/support/orbDoubles.h"

using namespace orbCompressorKit;

namespace {

constexpr int kWidth = 16;
constexpr int kHeight = 8;
constexpr int kSize = kWidth * kHeight * 2;
constexpr unsigned char kGuard = 0xEE;

tnMediaRecord frame_of(unsigned int raster, int width = kWidth, int height = kHeight,
                       int bytesPerRow = 0) {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.fWidth.SetInt32(width);
    record.fHeight.SetInt32(height);
    record.fColourspace.SetInt32(static_cast<int>(raster));
    if (bytesPerRow > 0) record.fBytesPerRow.SetInt32(bytesPerRow);
    return record;
}

tnMediaRecord plain_frame() {
    return frame_of('2vuy', kWidth, kHeight, kWidth * 2);
}

class SampleInMemory : public testing::Test {
protected:
    void begin(const tnMediaRecord& input = plain_frame()) {
        tnMediaRecord output(TN_MEDIA_VIDEO);
        output.SetInt64('tmsc', 30000);
        output.SetFloat('mfps', 29.97f);
        ASSERT_EQ(fCompressor->Create(output, output, nullptr), 0);
        fCompressor->SetInputFormat(input);
        ASSERT_EQ(fCompressor->fConfigureError, 0);
    }
    int encode(long long time) {
        fFrame->AddWritingRef();
        return fCompressor->EncodeFrame(*fFrame, plain_frame(), time, false, nullptr, nullptr);
    }
    Encoder& component() { return fCompressor->Component(); }

    struct Shape {
        int width = 0;
        int height = 0;
        int stride = 0;
        int length = 0;
        bool same = false;  ///< as the stream buffer has it
        bool own = false;   ///< and no part of it
    };

    std::optional<Shape> shape_of(const tnMediaRecord& format) {
        RObject<CVideoSample> sample;
        if (fCompressor->create_cpu_uncompressed_videosample(*fFrame, format, sample) != 0) {
            return {};
        }
        const RObject<CPixelDataReference> pixels(sample->GetDataReference<CPixelDataReference>());
        EXPECT_TRUE(pixels);
        pixels->Lock(1);
        Shape shape{pixels->GetWidth(), pixels->GetHeight(), pixels->GetStride(),
                    pixels->GetLength()};
        const auto* from = static_cast<const unsigned char*>(fFrame->GetPointer());
        shape.own = pixels->GetData() != from;
        shape.same = std::equal(from, from + shape.length, pixels->GetData());
        EXPECT_EQ(sample->GetDuration(), 77);
        pixels->Unlock();
        return shape;
    }

    std::unique_ptr<tnStreamBuffer> fFrame = StreamBufferOf(kSize);
    std::optional<Compressor> fCompressor{std::in_place};
};

TEST_F(SampleInMemory, IsOneCopyOfTheFrame) {
    const struct {
        unsigned int raster;
        int width;
        int height;
        int bytesPerRow;
        int stride;
        int length;
    } rows[] = {
        {'2vuy', 16, 8, 32, 32, 256},     {'2vuy', 16, 8, 48, 48, 384},
        {'rgb ', 16, 8, 64, 64, 512},     {'I420', 16, 8, 0, 16, 16 * 12},
        {'I420', 16, 8, 99, 16, 16 * 12},  // the record's rows do not count
        {'NV12', 16, 8, 99, 16, 16 * 12}, {'I420', 16, 9, 0, 16, 16 * 13},  // 9 * 3 / 2 = 13
        {'2vuy', 16, 8, 0, 0, 0},  // but elsewhere nothing else tells them
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.raster << " " << row.bytesPerRow);
        fFrame = StreamBufferOf(1024);
        fFrame->SetDurationForData(77);
        const auto shape = shape_of(frame_of(row.raster, row.width, row.height, row.bytesPerRow));
        ASSERT_TRUE(shape);
        EXPECT_EQ(shape->width, row.width);
        EXPECT_EQ(shape->height, row.height);
        EXPECT_EQ(shape->stride, row.stride);
        EXPECT_EQ(shape->length, row.length);
        EXPECT_TRUE(shape->same);
        EXPECT_TRUE(shape->own);
    }
}

TEST_F(SampleInMemory, IsNotMadeOfMoreThanThereIs) {
    fFrame = StreamBufferOf(256);
    fFrame->SetDurationForData(77);
    EXPECT_TRUE(shape_of(frame_of('2vuy', 16, 8, 32)));
    EXPECT_FALSE(shape_of(frame_of('2vuy', 16, 8, 33)));
    EXPECT_FALSE(shape_of(frame_of('I420', 16, 12)));
    EXPECT_FALSE(shape_of(frame_of('2vuy', 16, -1, 32)));
    EXPECT_FALSE(shape_of(frame_of('2vuy', 16, 0x10000, 0x10000)));
}

class ConvertedSample : public SampleInMemory {
protected:
    ConvertedSample() { component().fInputFormats = {'NV12'}; }

    orbDoubles::Script fScript;
    orbDoubles::Registered<CVideoConverter, orbDoubles::Converter> fConverters{'vfc ', fScript};
};

TEST_F(ConvertedSample, ComesFromTheConverterWithoutACopyBefore) {
    begin();
    ASSERT_TRUE(fCompressor->fNeedsConversion);
    fFrame->SetDurationForData(77);
    const auto shape = shape_of(plain_frame());
    ASSERT_TRUE(shape);
    EXPECT_FALSE(shape->own) << "this converter hands its input on";
    EXPECT_EQ(shape->length, kSize);
}

TEST_F(ConvertedSample, FailsWithItsConverter) {
    begin();
    fScript.failSample = true;
    EXPECT_EQ(encode(0), -1);
    fScript.failSample = false;
    fCompressor->fConverter.Clear();
    EXPECT_EQ(encode(0), -1);
}

TEST_F(ConvertedSample, IsNoSampleWhileTheConverterGivesNone) {
    begin();
    fScript.giveNothing = true;
    EXPECT_EQ(encode(0), -1046);
}

// Pixels for subclasses.

RObject<CPixelDataReference> target_of(int width, int height, int stride, int rows) {
    const RObject<CByteArray> bytes(new CByteArray(stride * rows, 1));
    std::fill_n(bytes->GetData(), stride * rows, kGuard);
    return RObject<CPixelDataReference>(
        new CPixelBufferDataReference(bytes.Get(), width, height, stride));
}

/// How many of the target's first rows are `rowBytes` of the source, in order and with the rest of
/// each row left alone.
int rows_copied(CPixelDataReference& target, const unsigned char* source, int sourceStride,
                int rowBytes, int rows) {
    target.Lock(1);
    int copied = 0;
    for (; copied < rows; ++copied) {
        const unsigned char* row = target.GetData() + copied * target.GetStride();
        if (!std::equal(row, row + rowBytes, source + copied * sourceStride)) break;
        if (!std::all_of(row + rowBytes, row + target.GetStride(),
                         [](unsigned char byte) { return byte == kGuard; })) {
            break;
        }
    }
    target.Unlock();
    return copied;
}

TEST_F(SampleInMemory, PixelsAreCopiedRowByRow) {
    const struct {
        unsigned int raster;
        int sourceStride;
        int rowBytes;
        int rows;  ///< that arrive, of 12
    } rows[] = {
        {'I420', 16, 16, 12}, {'NV12', 16, 16, 12}, {'rgb ', 72, 64, 8},
        {'2vuy', 32, 32, 0},  {'rgba', 64, 64, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.raster);
        fFrame = StreamBufferOf(72 * 16);
        RObject<CPixelDataReference> target = target_of(16, 8, 80, 12);
        EXPECT_EQ(fCompressor->copy_buffer(target, *fFrame,
                                           frame_of(row.raster, 16, 8, row.sourceStride)),
                  0);
        const auto* from = static_cast<const unsigned char*>(fFrame->GetPointer());
        EXPECT_EQ(rows_copied(*target, from, row.sourceStride, row.rowBytes, 12), row.rows);
    }
}

/// As those that bring memory of their own and do not tell how much.
class FrameOfNoSize final : public tnStreamBuffer {
public:
    int GetDataSize() const override { return 0; }
};

TEST_F(SampleInMemory, PixelsThatAreNotThereAreNotCopied) {
    const struct {
        unsigned int raster;
        int stride;
        int needed;  ///< bytes of the frame
    } rows[] = {{'I420', 16, 16 * 12}, {'NV12', 16, 16 * 12}, {'rgb ', 72, 72 * 7 + 64}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.raster);
        const tnMediaRecord format = frame_of(row.raster, 16, 8, row.stride);
        RObject<CPixelDataReference> target = target_of(16, 8, 80, 12);
        fFrame = StreamBufferOf(row.needed - 1);
        EXPECT_EQ(fCompressor->copy_buffer(target, *fFrame, format), -1);
        const std::vector<unsigned char> guards(80, kGuard);
        EXPECT_EQ(rows_copied(*target, guards.data(), 0, 80, 12), 12) << "left untouched";
        fFrame = StreamBufferOf(row.needed);
        EXPECT_EQ(fCompressor->copy_buffer(target, *fFrame, format), 0);

        FrameOfNoSize unknown;
        unknown.Create(row.needed, nullptr);
        EXPECT_EQ(fCompressor->copy_buffer(target, unknown, format), 0);
    }
}

/// Bytes that a reference is told of in part: what lies behind is nobody's to write.
struct Guarded {
    Guarded(int stride, int rows) : bytes(static_cast<std::size_t>(stride * rows + 256), kGuard) {
        const RObject<CByteArray> told(new CByteArray(stride * rows, bytes.data(), nullptr));
        target = RObject<CPixelDataReference>(
            new CPixelBufferDataReference(told.Get(), kWidth, kHeight, stride));
    }
    bool IsIntact() const {
        return std::all_of(bytes.end() - 256, bytes.end(),
                           [](unsigned char byte) { return byte == kGuard; });
    }
    std::vector<unsigned char> bytes;
    RObject<CPixelDataReference> target;
};

TEST_F(SampleInMemory, RowsForWhichATargetHasNoRoomAreLeftOut) {
    fFrame = StreamBufferOf(1024);
    const auto* from = static_cast<const unsigned char*>(fFrame->GetPointer());
    Guarded copied(80, 8);
    EXPECT_EQ(fCompressor->copy_buffer(copied.target, *fFrame, frame_of('I420')), 0);
    EXPECT_EQ(rows_copied(*copied.target, from, 16, 16, 8), 8);
    EXPECT_TRUE(copied.IsIntact());

    Guarded converted(80, 8);
    EXPECT_EQ(fCompressor->convert_buffer(converted.target, *fFrame, frame_of('I420')), 0);
    EXPECT_EQ(rows_copied(*converted.target, from, 16, 16, 8), 8);
    EXPECT_TRUE(converted.IsIntact());
}

// Twelve rows of 4:2:0 come in, and eight of packed 4:2:2 leave the converter.
TEST_F(SampleInMemory, PlanesThatBecamePackedAreFewerRows) {
    component().fInputFormats = {'UYVY'};
    const tnMediaRecord format = frame_of('I420');
    begin(format);
    ASSERT_TRUE(fCompressor->fNeedsConversion);
    RObject<CVideoSample> sample;
    ASSERT_EQ(fCompressor->create_cpu_uncompressed_videosample(*fFrame, format, sample), 0);
    const RObject<CPixelDataReference> packed(sample->GetDataReference<CPixelDataReference>());
    packed->Lock(1);
    const int stride = packed->GetStride();
    ASSERT_EQ(packed->GetLength(), stride * kHeight);

    Guarded tight(kWidth * 2, kHeight);
    EXPECT_EQ(fCompressor->convert_buffer(tight.target, *fFrame, format), 0);
    EXPECT_EQ(rows_copied(*tight.target, packed->GetData(), stride, kWidth, kHeight), kHeight);
    EXPECT_TRUE(tight.IsIntact());

    RObject<CPixelDataReference> roomy = target_of(kWidth, kHeight, 80, 12);
    EXPECT_EQ(fCompressor->convert_buffer(roomy, *fFrame, format), 0);
    EXPECT_EQ(rows_copied(*roomy, packed->GetData(), stride, kWidth, kHeight), kHeight);
    EXPECT_TRUE(std::all_of(roomy->GetData() + 80 * kHeight, roomy->GetData() + 80 * 12,
                            [](unsigned char byte) { return byte == kGuard; }))
        << "from behind the converter's pixels";
    packed->Unlock();
}

TEST_F(SampleInMemory, PixelsGoThroughTheSampleOnTheirWayToTheTarget) {
    fFrame = StreamBufferOf(1024);
    const auto* from = static_cast<const unsigned char*>(fFrame->GetPointer());
    RObject<CPixelDataReference> wide = target_of(16, 8, 80, 12);
    EXPECT_EQ(fCompressor->convert_buffer(wide, *fFrame, frame_of('I420')), 0);
    EXPECT_EQ(rows_copied(*wide, from, 16, 16, 12), 12);

    RObject<CPixelDataReference> narrow = target_of(16, 8, 24, 8);
    EXPECT_EQ(fCompressor->convert_buffer(narrow, *fFrame, frame_of('2vuy', 16, 8, 32)), 0);
    EXPECT_EQ(rows_copied(*narrow, from, 32, 24, 8), 8) << "the smaller of the two strides";

    fFrame = StreamBufferOf(10);
    EXPECT_EQ(fCompressor->convert_buffer(narrow, *fFrame, frame_of('2vuy', 16, 8, 32)), -1);
}

TEST_F(ConvertedSample, WithoutPixelsNothingIsCopied) {
    begin();
    RObject<CPixelDataReference> target = target_of(16, 8, 32, 8);
    EXPECT_EQ(fCompressor->convert_buffer(target, *fFrame, plain_frame()), 0);
    fScript.giveNothing = true;
    EXPECT_EQ(fCompressor->convert_buffer(target, *fFrame, plain_frame()), -1);
}

}  // namespace
