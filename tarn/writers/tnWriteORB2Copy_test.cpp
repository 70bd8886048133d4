// The private copy that a movie file writer makes of its pictures where a host reuses their memory.

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "orb/CPixelDataReference.h"
#include "orb/CVideoSample.h"

#include "tests/support/WriterFixture.h"

using namespace writerFixture;

namespace {

/// Rows of bytes of which no two are alike, in memory that is never read beyond.
class Pattern {
public:
    Pattern(int stride, int rows, int seed)
        : fStride(stride), fBytes(static_cast<std::size_t>(stride) * static_cast<unsigned>(rows)) {
        for (std::size_t i = 0; i < fBytes.size(); ++i)
            fBytes[i] = static_cast<unsigned char>((i * i + i / 7 + static_cast<unsigned>(seed)));
    }
    CPixelDataReference* NewReference() {
        const RObject<CByteArray> bytes(
            new CByteArray(static_cast<int>(fBytes.size()), fBytes.data(), nullptr));
        return new CPixelBufferDataReference(bytes.Get(), kWidth, kHeight, fStride);
    }
    const unsigned char* Data() const { return fBytes.data(); }
    void Clear() { fBytes.assign(fBytes.size(), 0); }

    const int fStride;

private:
    std::vector<unsigned char> fBytes;
};

/// The pixels that entered the compressor.
struct Entered {
    int stride = 0;
    std::vector<unsigned char> bytes;
};

class CopyingWriter : public Writer {
protected:
    void set_up_copies(unsigned int format, Entered& entered) {
        fScript.inputFormats = {format};
        fConverterScript.outputFormats = {format};
        fScript.look = [&entered](const CVideoSample& sample) {
            const RObject<CPixelDataReference> pixels(
                sample.GetDataReference<CPixelDataReference>());
            const RObject<CLockedDataReference> bytes(sample.GetLockedDataReference(1));
            entered.stride = pixels->GetStride();
            entered.bytes.assign(bytes->GetData(), bytes->GetData() + bytes->GetLength());
        };
        EXPECT_EQ(set_up(encoded_video("MJPEG")), 0);
        tnWriteORB2TestPeer::CopySamples(*fWriter);
    }
    /// Writes one frame whose pixels enter the compressor as `format`, and gives the code.
    int write(unsigned int format, Pattern& pattern, Entered& entered) {
        set_up_copies(format, entered);
        Frame frame(0, 1001);
        frame.pixels = pattern.NewReference();
        const int code = fWriter->WriteVideo(frame);
        fWriter->Close();
        return code;
    }
};

/// Rows of `bytes` each that are alike, from the first on.
int rows_alike(const unsigned char* a, int aStride, const unsigned char* b, int bStride, int bytes,
               int most) {
    for (int row = 0; row < most; ++row) {
        if (std::memcmp(a + row * aStride, b + row * bStride, static_cast<std::size_t>(bytes)) != 0)
            return row;
    }
    return most;
}

TEST_F(CopyingWriter, CopiesTheRowsOfTheFormatsThatItKnows) {
    struct Case {
        unsigned int format;
        int bytes;   // of a row
        int stride;  // of what arrives
        int rows;    // that are copied
        int stored;  // rows that the copy has
    };
    const Case cases[] = {
        {'UYVY', 32, 40, 8, 8}, {'YUYV', 32, 32, 8, 8},
        {'BGRA', 64, 72, 8, 8}, {'NV12', 16, 24, 5, 12},  // two thirds of the height, cut
        {'YV12', 16, 24, 8, 8},
    };
    int seed = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        Pattern pattern(c.stride, 2 * kHeight, seed += 37);
        Entered entered;
        ASSERT_EQ(write(c.format, pattern, entered), 0);
        ASSERT_EQ(entered.stride, c.bytes) << "the copy has no padding";
        EXPECT_EQ(rows_alike(entered.bytes.data(), entered.stride, pattern.Data(), c.stride,
                             c.bytes, c.stored),
                  c.rows);
    }
}

TEST_F(CopyingWriter, CopiesHalvedPlanesBehindTheLuma) {
    constexpr int kStride = 24;
    Pattern pattern(kStride, 2 * kHeight, 91);
    Entered entered;
    ASSERT_EQ(write('YV12', pattern, entered), 0);
    ASSERT_EQ(entered.bytes.size(), std::size_t{kWidth} * kHeight * 3 / 2);
    EXPECT_EQ(rows_alike(entered.bytes.data() + kWidth * kHeight, kWidth / 2,
                         pattern.Data() + kStride * kHeight, kStride / 2, kWidth / 2, kHeight),
              kHeight);
}

// The frame is held until the next one comes; its host has written over its memory by then.
TEST_F(CopyingWriter, WhatIsHeldStaysAsItWas) {
    Pattern pattern(32, kHeight, 5);
    const std::vector<unsigned char> before(pattern.Data(), pattern.Data() + 32 * kHeight);
    Entered entered;
    set_up_copies('UYVY', entered);
    Frame frame(0, 1001);
    frame.pixels = pattern.NewReference();
    ASSERT_EQ(fWriter->WriteVideo(frame), 0);
    pattern.Clear();
    fWriter->Close();
    EXPECT_EQ(entered.bytes, before);
}

TEST_F(CopyingWriter, RefusesOtherFormats) {
    Pattern pattern(kWidth, 2 * kHeight, 1);
    Entered entered;
    EXPECT_EQ(write('I420', pattern, entered), -1050);
    EXPECT_TRUE(entered.bytes.empty());
}

TEST_F(CopyingWriter, FailsWithoutPixelsToCopy) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    tnWriteORB2TestPeer::CopySamples(*fWriter);
    Frame frame(0, 1001);
    frame.hasPixels = false;
    EXPECT_EQ(fWriter->WriteVideo(frame), -1051);
}

TEST_F(CopyingWriter, FailsWhereThereIsNothingToCopyTo) {
    tnMediaRecord nothing = encoded_video("MJPEG");
    nothing.fWidth.SetInt32(0);
    nothing.fHeight.SetInt32(0);
    ASSERT_EQ(set_up(nothing), 0);
    tnWriteORB2TestPeer::CopySamples(*fWriter);
    Frame frame(0, 1001);
    EXPECT_EQ(fWriter->WriteVideo(frame), -1051);
}

}  // namespace
