#include "RawPicture.h"

#include <gtest/gtest.h>

#include "orb/CMemoryDataReference.h"
#include "orb/CPixelBufferDataReference.h"

namespace Quillon::Orb {
namespace {

/// Counts its locks.
class CountingPixels final : public CPixelDataReference {
public:
    explicit CountingPixels(unsigned char* data) : fData(data) {}
    Result Lock(int) override {
        if (fRefuse) return ResultError();
        ++fLocks;
        return 0;
    }
    void Unlock() override { --fLocks; }
    int GetLength() override { return 6; }
    unsigned char* GetData() override { return fData; }
    int GetStride() override { return 2; }
    int GetWidth() override { return 2; }
    int GetHeight() override { return 2; }

    int fLocks = 0;
    bool fRefuse = false;

private:
    unsigned char* fData;
};

RObject<CVideoSample> sample_of(CDataReference* reference) {
    RObject<CVideoSample> sample(new CVideoSample(nullptr));
    sample->SetDataReference(reference);
    return sample;
}

RObject<CVideoSample> sample_over(unsigned char* data, int length, int width, int height,
                                  int stride) {
    RObject<CByteArray> bytes(new CByteArray(length, data, nullptr));
    RObject<CPixelBufferDataReference> pixels(
        new CPixelBufferDataReference(bytes.Get(), width, height, stride));
    return sample_of(pixels.Get());
}

TEST(RawPicture, PlanesStandInPlaceInTheOrderYUV) {
    unsigned char data[64] = {};
    struct {
        unsigned int format;
        int u, v;
    } const table[] = {{'I420', 16, 20}, {'YV12', 20, 16}, {'I422', 16, 24}, {'YV16', 24, 16}};
    for (const auto& row : table) {
        RawPicture picture;
        ASSERT_EQ(picture.Lock(*sample_over(data, 64, 4, 4, 4), row.format, 4, 4), 0);
        EXPECT_EQ(picture.GetImage().planes[0], data);
        EXPECT_EQ(picture.GetImage().planes[1], data + row.u);
        EXPECT_EQ(picture.GetImage().planes[2], data + row.v);
        EXPECT_EQ(picture.GetImage().strides[1], 2);
    }
}

TEST(RawPicture, ABlockWithoutItsLastChromaRowAndColumnIsCompleted) {
    // 3 x 3 counted as 3 * (3 * 3 / 2) bytes: chroma of 1 x 1 where 2 x 2 belong.
    unsigned char data[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 50, 60, 0};
    RawPicture picture;
    ASSERT_EQ(picture.Lock(*sample_over(data, 12, 3, 3, 3), 'I420', 3, 3), 0);
    const PixelImage& image = picture.GetImage();
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 3; ++x) {
            EXPECT_EQ(image.planes[0][y * image.strides[0] + x], 3 * y + x + 1);
        }
    }
    for (int y = 0; y < 2; ++y) {
        for (int x = 0; x < 2; ++x) {
            EXPECT_EQ(image.planes[1][y * image.strides[1] + x], 50);
            EXPECT_EQ(image.planes[2][y * image.strides[2] + x], 60);
        }
    }
}

TEST(RawPicture, PairsOfChromaStayPairsWhenCompleted) {
    unsigned char data[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 50, 60, 0};
    RawPicture picture;
    ASSERT_EQ(picture.Lock(*sample_over(data, 12, 3, 3, 3), 'NV12', 3, 3), 0);
    const PixelImage& image = picture.GetImage();
    for (int y = 0; y < 2; ++y) {
        const unsigned char* row = image.planes[1] + y * image.strides[1];
        EXPECT_EQ(row[0], 50);
        EXPECT_EQ(row[1], 60);
        EXPECT_EQ(row[2], 50);
        EXPECT_EQ(row[3], 60);
    }
}

TEST(RawPicture, ChromaThatIsNotThereAtAllIsGrey) {
    unsigned char data[4] = {10, 20, 30, 40};
    RawPicture picture;
    ASSERT_EQ(picture.Lock(*sample_over(data, 4, 4, 1, 4), 'I420', 4, 1), 0);
    EXPECT_EQ(picture.GetImage().planes[0][3], 40);
    EXPECT_EQ(picture.GetImage().planes[1][0], 128);
    EXPECT_EQ(picture.GetImage().planes[2][1], 128);
}

TEST(RawPicture, LocksAsLongAsItLivesAndOnce) {
    unsigned char data[6] = {};
    RObject<CountingPixels> pixels(new CountingPixels(data));
    RObject<CVideoSample> sample = sample_of(pixels.Get());
    {
        RawPicture picture;
        ASSERT_EQ(picture.Lock(*sample, 'I420', 2, 2), 0);
        EXPECT_EQ(pixels->fLocks, 1);
        ASSERT_EQ(picture.Lock(*sample, 'I420', 2, 2), 0);
        EXPECT_EQ(pixels->fLocks, 1);
        RawPicture moved(std::move(picture));
        picture = RawPicture();
        EXPECT_EQ(pixels->fLocks, 1);
        EXPECT_EQ(moved.GetImage().planes[0], data);
        picture = std::move(moved);
        EXPECT_EQ(pixels->fLocks, 1);
        sample.Clear();
        EXPECT_EQ(picture.GetImage().planes[0], data);
    }
    EXPECT_EQ(pixels->fLocks, 0);
}

TEST(RawPicture, FailuresLeaveNothingLocked) {
    unsigned char data[6] = {};
    RObject<CountingPixels> pixels(new CountingPixels(data));
    RObject<CVideoSample> sample = sample_of(pixels.Get());
    RawPicture picture;
    EXPECT_EQ(picture.Lock(*sample, 'I420', 4, 2), ResultInvalidArgument::kCode);
    EXPECT_EQ(picture.Lock(*sample, 'BGRA', 2, 2), ResultInvalidArgument::kCode);
    EXPECT_EQ(picture.Lock(*sample, 'what', 2, 2), ResultNotSupported::kCode);
    EXPECT_EQ(picture.Lock(*sample_of(nullptr), 'I420', 2, 2), ResultInvalidArgument::kCode);
    RObject<CMemoryDataReference> memory(new CMemoryDataReference(nullptr));
    EXPECT_EQ(picture.Lock(*sample_of(memory.Get()), 'I420', 2, 2), ResultInvalidArgument::kCode);
    EXPECT_EQ(picture.Lock(*sample_over(data, 5, 2, 2, 2), 'I420', 2, 2),
              ResultInvalidArgument::kCode);
    pixels->fRefuse = true;
    EXPECT_TRUE(picture.Lock(*sample, 'I420', 2, 2).Failed());
    EXPECT_EQ(pixels->fLocks, 0);
}

}  // namespace
}  // namespace Quillon::Orb
