#include "orb/CAssetTrackWriter.h"

#include <climits>
#include <gtest/gtest.h>
#include <iterator>
#include <utility>
#include <vector>

#include "orb/BlockPool.h"
#include "orb/CMpeg4AvcDataReference.h"
#include "orb/testAsset.h"
#include "orb/trackShape.h"

namespace Quillon::Orb {
namespace {

using CAssetTrackWriterTest = AssetTest;

TEST_F(CAssetTrackWriterTest, CompressedSoundCarriesWhatItsEncoderKnows) {
    ASSERT_EQ(0, Create());
    RObject<CAssetAudioCompressor> track(
        new CAssetAudioCompressor(audio_shape('mp4a', 1).Get(), 'faud'));
    EXPECT_EQ(0, track->SetInputFormat('sowt'));
    EXPECT_EQ(0, asset->AddAudioWriter(track.Get()));
    RObject<CAudioFilter> filter(track->GetCompressor());
    ASSERT_TRUE(filter);
    EXPECT_EQ(0, track->Begin());
    ASSERT_EQ(0, asset->Begin());
    ASSERT_EQ(0, track->WriteSample(fake_sound(std::vector<unsigned char>(40), 20).Get()));
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_EQ(0, track->End());
    EXPECT_EQ(0, asset->Finish());
    const MovieTrack& described = disk.tracks[0];
    EXPECT_EQ(static_cast<unsigned>('mp4a'), described.format);
    EXPECT_EQ(8, described.framesPerPacket);
    EXPECT_EQ(3, described.primingFrames);
    EXPECT_EQ(64000, described.bitRate);
    EXPECT_EQ(0, described.bytesPerPacket);
    EXPECT_EQ((std::vector<unsigned char>{0x11, 0x90}), described.decoderConfiguration);
    // 3 frames of priming and 20 of sound: two whole packets and one of seven.
    const auto packets = disk.Of(0);
    ASSERT_EQ(3u, packets.size());
    EXPECT_EQ(16, packets[2].sample.decodeTime);
    EXPECT_EQ(7, packets[2].sample.duration);
    EXPECT_EQ(1, packets[2].sample.packets);
}

// The file says what the stream is, which need not be what went into its encoder.
TEST_F(CAssetTrackWriterTest, TheRangeInTheFileIsThatOfTheStream) {
    for (const bool limitedOnly : {false, true}) {
        plan->limitedOnly = limitedOnly;
        ASSERT_EQ(0, Create());
        const RObject<CVideoProperties> shape = video_shape();
        shape->SetVideoRange(CVideoProperties::kFullRange);
        const RObject<CAssetVideoCompressor> track(new CAssetVideoCompressor(shape.Get(), 'fvid'));
        ASSERT_EQ(0, track->SetInputFormat('UYVY'));
        ASSERT_EQ(0, asset->AddVideoWriter(track.Get()));
        ASSERT_EQ(0, track->Begin());
        ASSERT_EQ(0, asset->Begin());
        EXPECT_EQ(!limitedOnly, disk.tracks[0].colour.fullRange);
        const RObject<CVideoFilter> compressor(track->GetCompressor());
        const RObject<CVideoProperties> input(compressor->GetInputProperties(0));
        EXPECT_EQ(CVideoProperties::kFullRange, input->GetVideoRange());
        EXPECT_EQ(0, asset->Finish());
    }
}

TEST_F(CAssetTrackWriterTest, PcmBlocksMayBeCutAnywhere) {
    ASSERT_EQ(0, Create());
    RObject<CAssetAudioWriter> sound = AddSound(2);
    ASSERT_EQ(0, asset->Begin());
    std::vector<unsigned char> all(400);
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<unsigned char>(i);
    std::size_t at = 0;
    for (const std::size_t size : {3, 0, 1, 5, 1, 2, 100, 88, 199, 1}) {
        const std::vector<unsigned char> block(
            all.begin() + static_cast<std::ptrdiff_t>(at),
            all.begin() + static_cast<std::ptrdiff_t>(at + size));
        EXPECT_EQ(0, sound->WriteSample(fake_sound(block, static_cast<long long>(size / 4)).Get()));
        at += size;
    }
    ASSERT_EQ(all.size(), at);
    RObject<CAudioSample> nothing(new CAudioSample(0));
    EXPECT_EQ(0, sound->WriteSample(nothing.Get()));
    RObject<CAudioSample> bare(new CAudioSample(5));
    EXPECT_EQ(ResultNullPointer::kCode, sound->WriteSample(bare.Get()));
    const RObject<CBufferDataReference> nowhere(new CBufferDataReference(nullptr));
    bare->SetDataReference(nowhere.Get());
    EXPECT_EQ(ResultNullPointer::kCode, sound->WriteSample(bare.Get()));
    EXPECT_EQ(0, asset->Finish());
    std::vector<unsigned char> written;
    long long packets = 0;
    for (const FakeDisk::Written& w : disk.Of(0)) {
        EXPECT_EQ(packets, w.sample.decodeTime);
        EXPECT_EQ(0u, w.bytes.size() % 4);
        EXPECT_EQ(static_cast<long long>(w.bytes.size()) / 4, w.sample.packets);
        packets += w.sample.packets;
        written.insert(written.end(), w.bytes.begin(), w.bytes.end());
    }
    EXPECT_EQ(all, written);
    EXPECT_EQ(100, packets);
}

TEST_F(CAssetTrackWriterTest, PlainVideoStoresSamplesAsTheyCome) {
    ASSERT_EQ(0, Create());
    const unsigned char sets[] = {0, 0, 1, 0x67, 0x42, 0xC0, 0x1E, 0xDA, 0, 0, 1, 0x68, 0xCE, 0x80};
    RObject<CMpeg4AvcDecoderConfiguration> configuration(new CMpeg4AvcDecoderConfiguration());
    ASSERT_EQ(0, configuration->ParseAnnexB(sets, sizeof sets));
    RObject<CMpeg4AvcProperties> avc(new CMpeg4AvcProperties(configuration.Get()));
    RObject<CVideoProperties> shape = video_shape('h264');
    shape->SetExtension('h264', avc.Get());
    RObject<CAssetVideoWriter> track(new CAssetVideoWriter(shape.Get()));
    EXPECT_EQ(ResultNotSupported::kCode, track->SetInputFormat('UYVY'));
    EXPECT_EQ(0, track->SetInputFormat('h264'));
    RObject<CValueList<unsigned int>> formats(track->GetInputFormats());
    EXPECT_TRUE(formats->HasValue('h264'));
    ASSERT_EQ(0, asset->AddVideoWriter(track.Get()));
    ASSERT_EQ(0, track->Begin());
    ASSERT_EQ(0, asset->Begin());
    RObject<CMpeg4AvcAccessUnit> unit(new CMpeg4AvcAccessUnit());
    ASSERT_EQ(0, unit->ParseAnnexB(bytes_of({0, 0, 1, 0x65, 9}).Get()));
    RObject<CMpeg4AvcDataReference> reference(new CMpeg4AvcDataReference(unit.Get()));
    RObject<CVideoSample> sample(new CVideoSample(CVideoSample::kKeyPicture, 1001, 0));
    sample->SetTime(5005);
    sample->SetCompositionOffset(2002);
    sample->SetDataReference(reference.Get());
    EXPECT_EQ(0, track->WriteSample(sample.Get()));
    RObject<CVideoSample> second = fake_picture(6006, 1001, 3, 4);
    second->SetPictureType(CVideoSample::kDisposablePicture);
    second->SetCompositionOffset(-1001);
    EXPECT_EQ(0, track->WriteSample(second.Get()));
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(static_cast<unsigned>('avc1'), disk.tracks[0].format);
    EXPECT_TRUE(disk.tracks[0].reordered);
    EXPECT_EQ(1, disk.tracks[0].decoderConfiguration[0]);
    const auto written = disk.Of(0);
    ASSERT_EQ(2u, written.size());
    EXPECT_EQ((std::vector<unsigned char>{0, 0, 0, 2, 0x65, 9}), written[0].bytes);
    EXPECT_EQ(5005, written[0].sample.decodeTime);
    EXPECT_EQ(2002, written[0].sample.compositionOffset);
    EXPECT_TRUE(written[0].sample.key);
    EXPECT_EQ((std::vector<unsigned char>{3, 3, 3, 3}), written[1].bytes);
    EXPECT_FALSE(written[1].sample.key);
    EXPECT_EQ(-1001, written[1].sample.compositionOffset);
}

/// A picture over bytes that nobody can reach.
RObject<CVideoSample> unreachable_picture() {
    const RObject<CVideoSample> sample(new CVideoSample(0, 1001, 0));
    const RObject<CMemoryDataReference> nothing(new CMemoryDataReference(nullptr));
    sample->SetDataReference(nothing.Get());
    return sample;
}

TEST_F(CAssetTrackWriterTest, EmptySamplesAreSamples) {
    ASSERT_EQ(0, Create());
    const RObject<CAssetVideoWriter> track = AddPictures();
    ASSERT_EQ(0, asset->Begin());
    const int sizes[] = {4, 0, 6};
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0, track->WriteSample(fake_picture(i * 1001, 1001, 1, sizes[i]).Get()));
    }
    EXPECT_EQ(0, asset->Finish());
    const auto written = disk.Of(0);
    ASSERT_EQ(3u, written.size());
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(static_cast<std::size_t>(sizes[i]), written[i].bytes.size());
        EXPECT_EQ(static_cast<long long>(i) * 1001, written[i].sample.decodeTime);
    }
    EXPECT_EQ(10, track->GetBytesWritten());
}

TEST_F(CAssetTrackWriterTest, SamplesWhoseBytesCannotBeReadAreRefusedAndTheRestGoesOn) {
    ASSERT_EQ(0, Create());
    const RObject<CAssetVideoWriter> track = AddPictures();
    ASSERT_EQ(0, asset->Begin());
    ASSERT_EQ(0, track->WriteSample(fake_picture(0, 1001).Get()));
    EXPECT_EQ(ResultNullPointer::kCode, track->WriteSample(unreachable_picture().Get()));
    ASSERT_EQ(0, track->WriteSample(fake_picture(1001, 1001).Get()));
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(2, disk.CountWritten());
}

TEST_F(CAssetTrackWriterTest, PicturesOfAnEncoderWithoutBytesAreItsFailure) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    ASSERT_EQ(0, track->WriteSample(fake_picture(0, 1001).Get()));
    ASSERT_EQ(0, track->WriteSample(unreachable_picture().Get()));
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_EQ(ResultNullPointer::kCode, track->End());
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(1, disk.CountWritten());
    EXPECT_TRUE(trace.HasLineWith({Path().c_str(), "video encoder"}));
}

TEST_F(CAssetTrackWriterTest, PicturesWithoutTimesLieEndToEnd) {
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    for (const long long duration : {1001, 2002, 1001, -5}) {
        ASSERT_EQ(0, track->WriteSample(fake_picture(0, duration).Get()));
    }
    EXPECT_EQ(0, asset->Finish());
    const long long times[] = {0, 1001, 3003, 4004};
    const auto frames = disk.Of(0);
    ASSERT_EQ(4u, frames.size());
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(times[i], frames[i].sample.decodeTime);
    EXPECT_EQ(0, frames[3].sample.duration);
}

TEST_F(CAssetTrackWriterTest, TimesThatAreToldGoIntoTheFileAsTheyCome) {
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    // start away from 0, a gap, twice the same time, and one back
    const std::pair<long long, long long> told[] = {{9000, 1000},  {10000, 2000}, {12000, 0},
                                                    {12000, -500}, {11500, 1500}, {13000, 1000}};
    for (const auto& [time, duration] : told) {
        ASSERT_EQ(0, track->WriteSample(fake_picture(time, duration).Get()));
    }
    EXPECT_EQ(0, asset->Finish());
    const auto frames = disk.Of(0);
    ASSERT_EQ(6u, frames.size());
    for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(told[i].first, frames[i].sample.decodeTime);
}

// Whoever writes the file adds to times and takes from them without a look at their size.
TEST_F(CAssetTrackWriterTest, TimesBeyondTheEndsOfTheTimeLineAreThoseOfItsEnds) {
    constexpr long long kFarthest = 1LL << 61;
    ASSERT_EQ(0, Create());
    const RObject<CAssetVideoWriter> track = AddPictures();
    ASSERT_EQ(0, asset->Begin());
    struct Case {
        long long time, duration, offset;
        long long fileTime, fileDuration, fileOffset;
    };
    const Case cases[] = {
        {LLONG_MIN, 1001, LLONG_MIN, -kFarthest, 1001, -INT_MAX},
        {LLONG_MAX, 1001, LLONG_MAX, kFarthest, 1001, INT_MAX},
        {LLONG_MAX, 1001, 0, kFarthest, 1001, 0},  // behind the one before, if there were room
        {0, LLONG_MAX, 1, 0, kFarthest, 1},
        {0, LLONG_MAX, 1, kFarthest, kFarthest, 1},
        {0, LLONG_MAX, 1, kFarthest, kFarthest, 1},
        {kFarthest, 5, -1, kFarthest, 5, -1},
        {-kFarthest, LLONG_MIN, -1, -kFarthest, 0, -1},
    };
    for (const Case& c : cases) {
        const RObject<CVideoSample> sample = fake_picture(c.time, c.duration);
        sample->SetCompositionOffset(c.offset);
        ASSERT_EQ(0, track->WriteSample(sample.Get()));
    }
    EXPECT_EQ(0, asset->Finish());
    const auto written = disk.Of(0);
    ASSERT_EQ(std::size(cases), written.size());
    for (std::size_t i = 0; i < written.size(); ++i) {
        EXPECT_EQ(cases[i].fileTime, written[i].sample.decodeTime) << i;
        EXPECT_EQ(cases[i].fileDuration, written[i].sample.duration) << i;
        EXPECT_EQ(cases[i].fileOffset, written[i].sample.compositionOffset) << i;
    }
}

TEST_F(CAssetTrackWriterTest, AFrameDurationBeyondThoseOfFilesIsTheirLongest) {
    const RObject<CVideoProperties> shape = video_shape();
    ASSERT_EQ(0, shape->SetFrameDuration(LLONG_MAX));
    EXPECT_EQ(INT_MAX, describe_track(*shape).frameDuration);
}

TEST_F(CAssetTrackWriterTest, PacketsBeyondThoseOfFilesAreTheLongest) {
    const RObject<CAudioProperties> shape = audio_shape('mp4a', 2);
    shape->SetFramesPerPacket(1024);
    AudioShaper shaper(*shape);
    long long time = 0;
    for (const auto& [told, kept] : std::initializer_list<std::pair<long long, long long>>{
             {1024, 1024}, {(1LL << 32) + 1024, INT_MAX}, {LLONG_MAX, INT_MAX}, {960, 960}}) {
        const RObject<CAudioSample> packet = fake_sound({1, 2, 3}, 1);
        packet->SetDuration(told);
        MovieQueue::Sample shaped;
        ASSERT_EQ(0, shaper.Shape(*packet, shaped));
        EXPECT_EQ(kept, shaped.description.duration);
        EXPECT_EQ(time, shaped.description.decodeTime);
        time += kept;
    }
}

TEST_F(CAssetTrackWriterTest, SteadyRecordingTakesNoFreshBlocks) {
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> track = AddVideo();
    RObject<CAssetAudioWriter> sound = AddSound();
    ASSERT_EQ(0, asset->Begin());
    RObject<CVideoProperties> shape = video_shape('UYVY');
    shape->SetWidth(1920);
    shape->SetHeight(1080);
    const auto write_frame = [&](int i) {
        RObject<CVideoSample> picture;
        ASSERT_EQ(0, CVideoFilter::CreateSample(shape.Get(), picture.Receive()));
        picture->SetTime(i * 1001);
        ASSERT_EQ(0, track->WriteSample(picture.Get()));
        std::vector<unsigned char> block(6400);
        ASSERT_EQ(0, sound->WriteSample(fake_sound(block, 1600).Get()));
    };
    // As many blocks as the queues can hold make the pool warm, however the threads run.
    std::vector<RObject<CByteArray>> warm;
    for (int i = 0; i < 80; ++i) {
        warm.emplace_back(new CByteArray(shape->GetSampleLength(1), 1));
        for (int n = 0; n < 3; ++n) warm.emplace_back(new CByteArray(6400, 1));
    }
    warm.clear();
    const long long fresh = BlockPool::Shared().GetCounts().fresh;
    const long long taken = BlockPool::Shared().GetCounts().taken;
    for (int i = 0; i < 60; ++i) write_frame(i);
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(120, BlockPool::Shared().GetCounts().taken - taken);
    EXPECT_EQ(fresh, BlockPool::Shared().GetCounts().fresh);
    BlockPool::Shared().Trim();
}

}  // namespace
}  // namespace Quillon::Orb
