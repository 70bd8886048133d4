#include "orb/CMediaSample.h"

#include <cstring>
#include <gtest/gtest.h>

#include "orb/CAudioSample.h"
#include "orb/CMpeg4AvcDataReference.h"
#include "orb/CPixelBufferDataReference.h"
#include "orb/CVideoFilter.h"
#include "orb/CVideoSample.h"
#include "orb/testSupport.h"

namespace Quillon::Orb {
namespace {

TEST(CVideoSample, KeepsAndCopiesWhatItWasTold) {
    RObject<CVideoSample> sample(new CVideoSample(0, 1001, 0));
    EXPECT_EQ(0, sample->GetTime());
    EXPECT_EQ(1001, sample->GetDuration());
    EXPECT_EQ(0, sample->GetPictureType());
    EXPECT_EQ(0, sample->GetHint());
    EXPECT_EQ(0, sample->SetTime(-7));
    EXPECT_EQ(0, sample->SetDuration(-3));
    EXPECT_EQ(0, sample->SetHint(CMediaSample::kHintKeyFrame));
    EXPECT_EQ(0, sample->SetPictureType(2));
    EXPECT_EQ(0, sample->SetCompositionOffset(-2002));
    RObject<CByteArray> bytes = bytes_of({1});
    RObject<CMemoryDataReference> memory(new CMemoryDataReference(bytes.Get()));
    EXPECT_FALSE(sample->HasDataReference());
    EXPECT_EQ(0, sample->SetDataReference(memory.Get()));
    RObject<CVideoSample> copy(new CVideoSample(sample.Get()));
    sample->SetDataReference(nullptr);
    EXPECT_FALSE(sample->HasDataReference());
    EXPECT_EQ(-7, copy->GetTime());
    EXPECT_EQ(-3, copy->GetDuration());
    EXPECT_EQ(1, copy->GetHint());
    EXPECT_EQ(2, copy->GetPictureType());
    EXPECT_EQ(-2002, copy->GetCompositionOffset());
    EXPECT_TRUE(copy->HasDataReference());
    EXPECT_TRUE(copy->IsType(CMediaSample::kType));
    RObject<CVideoSample> empty(new CVideoSample(nullptr));
    EXPECT_EQ(0, empty->GetDuration());
    EXPECT_FALSE(empty->HasDataReference());
}

TEST(CAudioSample, CountsPackets) {
    RObject<CAudioSample> sample(new CAudioSample(1600));
    EXPECT_EQ(1600, sample->GetLength());
    EXPECT_TRUE(sample->IsType(CAudioSample::kType));
    EXPECT_FALSE(sample->IsType(CVideoSample::kType));
    EXPECT_EQ(nullptr, sample->GetLockedDataReference(1));
}

TEST(CMediaSample, GivesItsDataByKind) {
    RObject<CByteArray> bytes = bytes_of(std::vector<unsigned char>(64));
    RObject<CDataReference> kinds[] = {
        RObject<CDataReference>(new CPixelBufferDataReference(bytes.Get(), 4, 4, 16)),
        RObject<CDataReference>(new CMemoryDataReference(bytes.Get())),
        RObject<CDataReference>(new CMpeg4AvcDataReference(nullptr)),
        RObject<CDataReference>(new CBufferDataReference(bytes.Get()))};
    for (int i = 0; i < 4; ++i) {
        RObject<CVideoSample> sample(new CVideoSample(nullptr));
        sample->SetDataReference(kinds[i].Get());
        RObject<CPixelDataReference> pixels(sample->GetDataReference<CPixelDataReference>());
        RObject<CMemoryDataReference> memory(sample->GetDataReference<CMemoryDataReference>());
        RObject<CMpeg4AvcDataReference> avc(sample->GetDataReference<CMpeg4AvcDataReference>());
        EXPECT_EQ(i == 0, pixels != nullptr);
        EXPECT_EQ(i == 1, memory != nullptr);
        EXPECT_EQ(i == 2, avc != nullptr);
        RObject<CDataReference> any(sample->GetDataReference<CDataReference>());
        EXPECT_EQ(kinds[i], any);
    }
    EXPECT_TRUE(kinds[0]->IsType('pixl'));
    EXPECT_TRUE(kinds[1]->IsType('dram'));
    EXPECT_TRUE(kinds[2]->IsType('h264'));
}

class CountingReference : public CDataReference {
public:
    CountingReference() : CDataReference('cnt ') {}
    Result LockBytes(int mode, unsigned char*& data, int& length) override {
        Result result = CheckMode(mode);
        if (result.Failed()) return result;
        data = &fByte;
        length = 1;
        ++fLocks;
        return 0;
    }
    void UnlockBytes() override { --fLocks; }
    int GetLocks() const { return fLocks; }

private:
    unsigned char fByte = 5;
    int fLocks = 0;
};

TEST(CLockedDataReference, HoldsTheLockForItsLifetime) {
    RObject<CountingReference> reference(new CountingReference);
    RObject<CVideoSample> sample(new CVideoSample(nullptr));
    sample->SetDataReference(reference.Get());
    {
        RObject<CLockedDataReference> locked(sample->GetLockedDataReference(3));
        EXPECT_EQ(1, reference->GetLocks());
        EXPECT_TRUE(locked->IsLocked());
        EXPECT_EQ(1, locked->GetLength());
        EXPECT_EQ(5, locked->GetData()[0]);
    }
    EXPECT_EQ(0, reference->GetLocks());
    RObject<CLockedDataReference> bad(sample->GetLockedDataReference(4));
    EXPECT_EQ(nullptr, bad->GetData());
    EXPECT_FALSE(bad->IsLocked());
    bad.Clear();
    EXPECT_EQ(0, reference->GetLocks());
}

TEST(CLockedDataReference, WithoutARunOfBytesThereAreNoData) {
    RObject<CMpeg4AvcDataReference> avc(new CMpeg4AvcDataReference(nullptr));
    RObject<CLockedDataReference> locked(new CLockedDataReference(avc.Get(), 1));
    EXPECT_EQ(nullptr, locked->GetData());
    EXPECT_EQ(0, locked->GetLength());
    RObject<CLockedDataReference> nothing(new CLockedDataReference(nullptr, 1));
    EXPECT_EQ(nullptr, nothing->GetData());
    EXPECT_FALSE(nothing->IsLocked());
}

TEST(CLockedDataReference, EmptyDataAreLockedAllTheSame) {
    const RObject<CByteArray> none(new CByteArray(0, 1));
    const RObject<CMemoryDataReference> empty(new CMemoryDataReference(none.Get()));
    const RObject<CLockedDataReference> locked(new CLockedDataReference(empty.Get(), 1));
    EXPECT_TRUE(locked->IsLocked());
    EXPECT_EQ(0, locked->GetLength());
}

TEST(CPixelBufferDataReference, LocksInThreeModes) {
    RObject<CByteArray> bytes(new CByteArray(64, 1));
    RObject<CPixelDataReference> pixels(new CPixelBufferDataReference(bytes.Get(), 4, 4, 16));
    for (const int mode : {1, 2, 3}) {
        EXPECT_EQ(0, pixels->Lock(mode));
        EXPECT_EQ(bytes->GetData(), pixels->GetData());
        EXPECT_EQ(16, pixels->GetStride());
        EXPECT_EQ(64, pixels->GetLength());
        pixels->Unlock();
    }
    EXPECT_EQ(ResultInvalidArgument::kCode, pixels->Lock(0));
    EXPECT_EQ(ResultInvalidArgument::kCode, pixels->Lock(4));
    EXPECT_EQ(4, pixels->GetWidth());
    EXPECT_EQ(4, pixels->GetHeight());
    RObject<CLockedDataReference> locked(new CLockedDataReference(pixels.Get(), 1));
    EXPECT_EQ(bytes->GetData(), locked->GetData());
    EXPECT_EQ(64, locked->GetLength());
    RObject<CPixelDataReference> none(new CPixelBufferDataReference(nullptr, 4, 4, 16));
    EXPECT_EQ(ResultNullPointer::kCode, none->Lock(1));
}

TEST(CVideoFilter, CreateSampleMakesPixelsOfTheShape) {
    RObject<CVideoProperties> shape(new CVideoProperties(nullptr));
    RObject<CVideoSample> sample;
    EXPECT_EQ(ResultNullPointer::kCode, CVideoFilter::CreateSample(nullptr, sample.Receive()));
    EXPECT_EQ(ResultInvalidArgument::kCode,
              CVideoFilter::CreateSample(shape.Get(), sample.Receive()));
    shape->SetFormat('NV12');
    shape->SetWidth(640);
    shape->SetHeight(480);
    shape->SetFrameDuration(40);
    ASSERT_EQ(0, CVideoFilter::CreateSample(shape.Get(), sample.Receive()));
    EXPECT_EQ(40, sample->GetDuration());
    RObject<CPixelDataReference> pixels(sample->GetDataReference<CPixelDataReference>());
    ASSERT_TRUE(pixels);
    ASSERT_EQ(0, pixels->Lock(2));
    EXPECT_EQ(640, pixels->GetStride());
    EXPECT_EQ(640 * 720, pixels->GetLength());
    std::memset(pixels->GetData(), 0, static_cast<std::size_t>(pixels->GetLength()));
    pixels->Unlock();
}

}  // namespace
}  // namespace Quillon::Orb
