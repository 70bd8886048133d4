#include "tarn/audio/tnOrbAudio.h"

#include <climits>
#include <gtest/gtest.h>

#include "orb/CAudioProperties.h"
#include "orb/CAudioSample.h"
#include "orb/CDataReference.h"
#include "orb/CLockedDataReference.h"
#include "orb/RObject.h"
#include "tarn/audio/testPcm.h"

using namespace Quillon::Orb;

namespace {

TEST(tnOrbAudio, PropertiesDescribeLittleEndianPcm) {
    RObject<CAudioProperties> properties;
    EXPECT_EQ(OrbAudioPropertiesFromMediaRecord(pcm(16, 44100, 6), properties), 0);
    ASSERT_TRUE(properties && properties->IsType('crap'));
    EXPECT_EQ(properties->GetFormat(), 0x736F7774u);
    EXPECT_EQ(properties->GetChannels(), 6);
    EXPECT_EQ(properties->GetFramesPerPacket(), 1);
    EXPECT_EQ(properties->GetBytesPerPacket(), 12);
    EXPECT_EQ(properties->GetSampleRate(), 44100);
    EXPECT_EQ(properties->GetBitsPerSample(), 16);
    const RObject<CAudioProperties> before = properties;
    EXPECT_EQ(OrbAudioPropertiesFromMediaRecord(pcm(32, 48000, 2), properties), 0);
    EXPECT_NE(properties.Get(), before.Get());
    EXPECT_EQ(properties->GetFormat(), 0x32336C66u);
    EXPECT_EQ(properties->GetBytesPerPacket(), 8);
    EXPECT_EQ(properties->GetBitsPerSample(), 32);
}

TEST(tnOrbAudio, OtherSampleSizesAreRefused) {
    for (const int bits : {0, 8, 24, 64}) {
        RObject<CAudioProperties> properties;
        EXPECT_EQ(OrbAudioPropertiesFromMediaRecord(pcm(bits, 48000, 2), properties), -1);
        ASSERT_TRUE(properties);
        EXPECT_EQ(properties->GetFormat(), 0u);
    }
    RObject<CAudioProperties> properties;
    EXPECT_EQ(OrbAudioPropertiesFromMediaRecord(tnMediaRecord(TN_MEDIA_AUDIO), properties), -1);
}

TEST(tnOrbAudio, NonsenseChannelsWrapInTheirBytes) {
    RObject<CAudioProperties> properties;
    EXPECT_EQ(OrbAudioPropertiesFromMediaRecord(pcm(32, 48000, 0x40000001), properties), 0);
    EXPECT_EQ(properties->GetChannels(), 0x40000001);
    EXPECT_EQ(properties->GetBytesPerPacket(), 4);
    EXPECT_EQ(OrbAudioPropertiesFromMediaRecord(pcm(16, 48000, INT_MIN), properties), 0);
    EXPECT_EQ(properties->GetBytesPerPacket(), 0);
}

TEST(tnOrbAudio, SampleBytesAreCopiedOrWrapped) {
    unsigned char bytes[] = {1, 2, 3, 4};
    for (const bool copy : {true, false}) {
        const RObject<CAudioSample> sample(new CAudioSample(1));
        bytes[0] = 1;
        EXPECT_EQ(ORB_SetAudioSampleData(sample, bytes, 4, copy), 0);
        bytes[0] = 9;
        const RObject<CLockedDataReference> locked(sample->GetLockedDataReference(1));
        ASSERT_TRUE(locked);
        EXPECT_EQ(locked->GetLength(), 4);
        EXPECT_EQ(locked->GetData()[0], copy ? 1 : 9);
        EXPECT_EQ(locked->GetData() == bytes, !copy);
    }
}

}  // namespace
