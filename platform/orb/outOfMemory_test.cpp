#include <gtest/gtest.h>
#include <thread>
#include <utility>
#include <vector>

#include "orb/BlockPool.h"
#include "orb/CMpeg4AvcProperties.h"
#include "orb/testAsset.h"
#include "orb/testMemory.h"
#include "orb/trackShape.h"

namespace Quillon::Orb {
namespace {

/// Sound of four bytes a packet in blocks that are cut anywhere; the bytes count up.
struct TornSound {
    TornSound() {
        unsigned char next = 0;
        for (const int size : {3, 1, 5, 1, 2, 100, 88, 55, 1}) {
            std::vector<unsigned char> bytes;
            for (int i = 0; i < size; ++i) bytes.push_back(next++);
            all.insert(all.end(), bytes.begin(), bytes.end());
            blocks.push_back(fake_sound(bytes, size / 4));
        }
    }
    const RObject<CAudioProperties> shape = audio_shape('sowt', 2);
    std::vector<unsigned char> all;
    std::vector<RObject<CAudioSample>> blocks;
};

/// Shapes every block, one for which there was no memory a second time. Gives all that came out.
std::vector<unsigned char> shaped_with_patience(const TornSound& sound, int& failures) {
    AudioShaper shaper(*sound.shape);
    std::vector<MovieQueue::Sample> out;
    for (const auto& block : sound.blocks) {
        MovieQueue::Sample shaped;
        Result result = shaper.Shape(*block, shaped);
        if (result.Failed()) {
            EXPECT_EQ(ResultOutOfMemory::kCode, result);
            ++failures;
            gObjectsLeft = -1;
            result = shaper.Shape(*block, shaped);
        }
        EXPECT_TRUE(result.Succeeded());
        if (static_cast<int>(result) == 0) out.push_back(std::move(shaped));
    }
    gObjectsLeft = -1;
    std::vector<unsigned char> bytes;
    long long packets = 0;
    for (const MovieQueue::Sample& shaped : out) {
        EXPECT_EQ(packets, shaped.description.decodeTime);
        packets += shaped.description.packets;
        const auto* data = static_cast<CBufferDataReference*>(shaped.data.Get());
        const RObject<CByteArray> array(data ? data->GetByteArray() : nullptr);
        if (array)
            bytes.insert(bytes.end(), array->GetData(), array->GetData() + array->GetLength());
    }
    return bytes;
}

#ifdef ORB_OWN_BLOCKS
TEST(AudioShaper, NoByteIsLostWhereABlockWasNotToBeHad) {
    const TornSound sound;
    int failures = 1;
    for (int left = 0; failures > 0; ++left) {
        SCOPED_TRACE(left);
        failures = 0;
        BlockPool::Shared().Trim();
        gBlocksLeft = left;
        EXPECT_EQ(sound.all, shaped_with_patience(sound, failures));
        const bool wasReached = gBlocksLeft < 0;
        gBlocksLeft = -1;
        EXPECT_EQ(wasReached, failures > 0);
    }
}
#endif

TEST(AudioShaper, NoByteIsLostWhereAnObjectWasNotToBeHad) {
    const TornSound sound;
    int failures = 1;
    for (int left = 0; failures > 0; ++left) {
        SCOPED_TRACE(left);
        failures = 0;
        gObjectsLeft = left;
        EXPECT_EQ(sound.all, shaped_with_patience(sound, failures));
    }
}

TEST(CMpeg4AvcProperties, WithoutMemoryTheConfigurationStaysAsItWas) {
    const unsigned char sets[] = {0, 0, 1, 0x67, 0x42, 0xC0, 0x1E, 0xDA, 0, 0, 1, 0x68, 0xCE, 0x80};
    const RObject<CMpeg4AvcDecoderConfiguration> known(new CMpeg4AvcDecoderConfiguration());
    ASSERT_EQ(0, known->ParseAnnexB(sets, sizeof sets));
    RObject<CByteArray> info;
    ASSERT_EQ(0, known->Render(info));
    const RObject<CMpeg4AvcProperties> properties(new CMpeg4AvcProperties());
    gObjectsLeft = 0;
    EXPECT_EQ(ResultOutOfMemory::kCode, properties->SetDecoderInfo(info.Get()));
    gObjectsLeft = -1;
    EXPECT_FALSE(properties->HasDecoderInfo());
    EXPECT_EQ(0, properties->SetDecoderInfo(info.Get()));
    EXPECT_TRUE(properties->HasDecoderInfo());
}

TEST(CTransformFilterT, WithoutMemoryTheInputStaysAsItWas) {
    const RObject<CAudioCompressor> filter(new FakeAudioCompressor('faud', nullptr));
    const RObject<CAudioProperties> before = audio_shape('sowt', 2);
    ASSERT_EQ(0, filter->SetInputProperties(before.Get()));
    const RObject<CAudioProperties> other = audio_shape('sowt', 1);
    gObjectsLeft = 0;
    EXPECT_EQ(ResultOutOfMemory::kCode, filter->SetInputProperties(other.Get()));
    gObjectsLeft = -1;
    const RObject<CAudioProperties> input(filter->GetInputProperties(0));
    ASSERT_TRUE(input);
    EXPECT_EQ(2, input->GetChannels());
}

class HungryEncoderTest : public AssetTest {
protected:
    Result Write(OpenTrack& track, int i) {
        return track.WriteSample(fake_picture(10 * i, 10, static_cast<unsigned char>(i)).Get());
    }
    std::vector<int> Kept() {
        std::vector<int> kept;
        for (const auto& frame : disk.Of(0)) kept.push_back(frame.bytes[0]);
        return kept;
    }
};

TEST_F(HungryEncoderTest, APictureWithoutMemoryIsToldAndTheOthersAreKept) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    plan->throwAt = 1;
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    for (int i = 0; i < 2; ++i) ASSERT_EQ(0, Write(*track, i));
    while (trace.Count() == 0) std::this_thread::yield();
    EXPECT_EQ(ResultOutOfMemory::kCode, Write(*track, 2));
    for (int i = 3; i < 6; ++i) EXPECT_EQ(0, Write(*track, i));
    EXPECT_EQ(0, track->End());
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(Kept(), (std::vector<int>{0, 3, 4, 5}));
    EXPECT_EQ(1, trace.Count());
    EXPECT_TRUE(trace.HasLineWith({Path().c_str(), "the video encoder failed: out of memory"}));
}

TEST_F(HungryEncoderTest, WithoutMemoryAtTheEndItIsNotAskedForEver) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    plan->delay = 2;
    plan->throwAtEnd = true;
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    for (int i = 0; i < 4; ++i) ASSERT_EQ(0, Write(*track, i));
    EXPECT_EQ(ResultOutOfMemory::kCode, track->End());
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(Kept(), (std::vector<int>{0, 1}));
    EXPECT_EQ(1, disk.finished);
    EXPECT_EQ(1, trace.Count());
}

}  // namespace
}  // namespace Quillon::Orb
