#include "orb/CAssetWriter.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/stat.h>
#include <thread>

#include "orb/ContainerProperty.h"
#include "orb/testAsset.h"

#include "tests/support/NoThreads.h"

namespace Quillon::Orb {
namespace {

using CAssetWriterTest = AssetTest;

TEST_F(CAssetWriterTest, CreateTellsWhyNoFileCanBeWritten) {
    std::ofstream(Path("plain")) << "x";
    struct Case {
        const char* what;
        unsigned int type;
        std::string path;
        int code;
    };
    const Case cases[] = {
        {"nobody writes containers of type 'wxyz'", 'wxyz', Path(), ResultNotSupported::kCode},
        {"No such file", 'fake', Path("no/such/folder.mov"), ResultError::kCode},
        {"Not a directory", 'fake', Path("plain/movie.mov"), ResultError::kCode},
        {"it is a folder", 'fake', fFolder, ResultError::kCode},
        {"it names no file", 'fake', Path("none/"), ResultError::kCode},
    };
    for (const Case& c : cases) {
        TraceCatcher trace;
        const Result result = Create(c.type, c.path);
        EXPECT_EQ(c.code, result) << c.what;
        EXPECT_EQ(1, trace.Count()) << c.what;
        EXPECT_TRUE(trace.HasLineWith({c.path.c_str(), c.what})) << c.what;
        EXPECT_EQ(nullptr, asset->GetContainerWriter());
    }
    TraceCatcher trace;
    EXPECT_EQ(ResultNullPointer::kCode, asset->Create('fake', nullptr));
    RObject<CString> empty(new CString(""));
    EXPECT_EQ(ResultNullPointer::kCode, asset->Create('fake', empty.Get()));
    EXPECT_EQ(2, trace.Count());
}

TEST_F(CAssetWriterTest, CreateTouchesNothing) {
    EXPECT_EQ(0, Create());
    struct stat status {};
    EXPECT_NE(0, stat(Path().c_str(), &status));
    std::ofstream(Path()) << "here before";
    EXPECT_EQ(0, Create());
    ASSERT_EQ(0, stat(Path().c_str(), &status));
    EXPECT_EQ(11, status.st_size);
    EXPECT_EQ(0, disk.begun);
}

TEST_F(CAssetWriterTest, SamplesOfTwoTracksReachTheFile) {
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> pictures = AddVideo();
    RObject<CAssetAudioWriter> sound = AddSound();
    RObject<CContainerWriter> container(pictures->GetContainerWriter());
    RObject<CContainerWriter> same(asset->GetContainerWriter());
    EXPECT_EQ(same, container);
    EXPECT_EQ(0, container->SetQueueSize(128));
    RObject<CMediaProperties> properties(sound->GetProperties());
    properties->SetDuration(13 * properties->GetTimescale());
    ASSERT_EQ(0, asset->Begin());
    EXPECT_EQ(Path(), disk.path);
    EXPECT_TRUE(pictures->IsReady());
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(0, pictures->WriteSample(
                         fake_picture(i * 1001, 1001, static_cast<unsigned char>(i), 100).Get()));
        EXPECT_EQ(0,
                  sound->WriteSample(fake_sound(std::vector<unsigned char>(6400, 7), 1600).Get()));
    }
    EXPECT_EQ(0, pictures->WriteSample(nullptr));
    EXPECT_EQ(0, sound->WriteSample(nullptr));
    EXPECT_EQ(0, pictures->End());
    EXPECT_EQ(0, sound->End());
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(500, pictures->GetBytesWritten());
    EXPECT_EQ(5 * 6400, sound->GetBytesWritten());
    ASSERT_EQ(2u, disk.tracks.size());
    EXPECT_EQ(MovieTrack::Kind::Video, disk.tracks[0].kind);
    EXPECT_EQ(static_cast<unsigned>('jpeg'), disk.tracks[0].format);
    EXPECT_EQ(30000, disk.tracks[0].timescale);
    EXPECT_EQ(64, disk.tracks[0].width);
    EXPECT_EQ(1, disk.tracks[0].colour.matrix);
    EXPECT_FALSE(disk.tracks[0].colour.fullRange);
    EXPECT_FALSE(disk.tracks[0].reordered);
    EXPECT_EQ(MovieTrack::Kind::Audio, disk.tracks[1].kind);
    EXPECT_EQ(48000, disk.tracks[1].timescale);
    EXPECT_EQ(4, disk.tracks[1].bytesPerPacket);
    EXPECT_EQ(13 * 48000, disk.tracks[1].expectedDuration);
    const auto frames = disk.Of(0);
    ASSERT_EQ(5u, frames.size());
    for (int i = 0; i < 5; ++i) {
        const FakeDisk::Written& w = frames[static_cast<std::size_t>(i)];
        EXPECT_EQ(i * 1001, w.sample.decodeTime);
        EXPECT_EQ(1001, w.sample.duration);
        EXPECT_TRUE(w.sample.key);
        EXPECT_EQ(std::vector<unsigned char>(100, static_cast<unsigned char>(i)), w.bytes);
    }
    const auto blocks = disk.Of(1);
    ASSERT_EQ(5u, blocks.size());
    EXPECT_EQ(1600, blocks[3].sample.packets);
    EXPECT_EQ(4800, blocks[3].sample.decodeTime);
    EXPECT_EQ(1, disk.finished);
}

/// Sound is counted in frames by the file, whatever scale its properties speak.
TEST_F(CAssetWriterTest, AnnouncedLengthIsCountedInTheScaleOfTheFile) {
    ASSERT_EQ(0, Create());
    RObject<CAudioProperties> shape = audio_shape('sowt', 1);
    ASSERT_EQ(0, shape->SetTimescale(1000));
    RObject<CAssetAudioWriter> sound(new CAssetAudioWriter(shape.Get()));
    ASSERT_EQ(0, sound->SetInputFormat('sowt'));
    ASSERT_EQ(0, asset->AddAudioWriter(sound.Get()));
    ASSERT_EQ(0, sound->Begin());
    RObject<CMediaProperties> properties(sound->GetProperties());
    properties->SetDuration(13 * properties->GetTimescale());
    ASSERT_EQ(0, asset->Begin());
    ASSERT_EQ(0, sound->WriteSample(nullptr));
    ASSERT_EQ(0, asset->Finish());
    ASSERT_EQ(1u, disk.tracks.size());
    EXPECT_EQ(48000, disk.tracks[0].timescale);
    EXPECT_EQ(13 * 48000, disk.tracks[0].expectedDuration);
}

TEST_F(CAssetWriterTest, EncoderForWhichThereIsNoThreadIsEndedAndMayBeginAgain) {
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> track(new OpenTrack(video_shape().Get(), 'fvid'));
    ASSERT_EQ(0, track->SetInputFormat('UYVY'));
    ASSERT_EQ(0, asset->AddVideoWriter(track.Get()));
    {
        const tests::NoThreads none;
        EXPECT_EQ(ResultError::kCode, track->Begin());
    }
    EXPECT_EQ(1, plan->begun);
    EXPECT_EQ(1, plan->ended);
    EXPECT_EQ(0, track->Begin());
    EXPECT_EQ(2, plan->begun);
    EXPECT_EQ(1, plan->ended);
    ASSERT_EQ(0, asset->Begin());
    EXPECT_EQ(0, track->WriteSample(fake_picture(0, 1).Get()));
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(1, disk.CountWritten());
}

TEST_F(CAssetWriterTest, TracksKeepTheirOrderOfLife) {
    TraceCatcher trace;
    RObject<CAssetVideoCompressor> track(new CAssetVideoCompressor(video_shape().Get(), 'fvid'));
    EXPECT_TRUE(asset->AddVideoWriter(track.Get()).Failed());
    EXPECT_TRUE(asset->Begin().Failed());
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(nullptr, track->GetContainerWriter());
    ASSERT_EQ(0, Create());
    EXPECT_EQ(ResultNullPointer::kCode, asset->AddVideoWriter(nullptr));
    EXPECT_EQ(0, track->SetInputFormat('UYVY'));
    EXPECT_TRUE(track->Begin().Failed());
    EXPECT_EQ(1, plan->begun);
    EXPECT_EQ(1, plan->ended);
    EXPECT_EQ(0, asset->AddVideoWriter(track.Get()));
    EXPECT_TRUE(asset->AddVideoWriter(track.Get()).Failed());
    EXPECT_EQ(0, track->Begin());
    EXPECT_TRUE(track->Begin().Failed());
    EXPECT_TRUE(track->IsReady());
    EXPECT_TRUE(track->WriteSample(fake_picture(0, 1).Get()).Failed());
    ASSERT_EQ(0, asset->Begin());
    EXPECT_TRUE(asset->Begin().Failed());
    EXPECT_TRUE(Create().Failed());
    RObject<CAssetAudioWriter> late(new CAssetAudioWriter(audio_shape('sowt', 1).Get()));
    EXPECT_TRUE(asset->AddAudioWriter(late.Get()).Failed());
    EXPECT_EQ(0, track->WriteSample(fake_picture(0, 1).Get()));
    EXPECT_EQ(ResultInvalidArgument::kCode, track->WriteSample(fake_sound({1, 2}, 1).Get()));
    RObject<CVideoSample> bare(new CVideoSample(nullptr));
    EXPECT_EQ(ResultNullPointer::kCode, track->WriteSample(bare.Get()));
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_TRUE(track->WriteSample(fake_picture(1, 1).Get()).Failed());
    EXPECT_TRUE(track->IsReady());
    EXPECT_EQ(0, track->End());
    EXPECT_EQ(0, track->End());
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(1, disk.CountWritten());
    EXPECT_EQ(2, plan->ended);
}

TEST_F(CAssetWriterTest, EncoderThatIsNotThereOrRefuses) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    RObject<CAssetVideoCompressor> none(new CAssetVideoCompressor(video_shape().Get(), 'wxyz'));
    EXPECT_TRUE(trace.HasLineWith({"'wxyz'", "no video compressor"}));
    EXPECT_EQ(nullptr, none->GetCompressor());
    EXPECT_EQ(nullptr, none->GetInputFormats());
    EXPECT_EQ(ResultNotSupported::kCode, none->SetInputFormat('UYVY'));
    EXPECT_EQ(ResultNotSupported::kCode, none->Begin());
    RObject<CAssetAudioCompressor> mute(
        new CAssetAudioCompressor(audio_shape('mp4a', 1).Get(), 'wxyz'));
    EXPECT_EQ(nullptr, mute->GetInputFormats());
    RObject<CAssetVideoCompressor> track(new CAssetVideoCompressor(video_shape().Get(), 'fvid'));
    EXPECT_EQ(ResultNotSupported::kCode, track->SetInputFormat('BGRA'));
    RObject<CAssetVideoCompressor> odd(
        new CAssetVideoCompressor(video_shape('wxyz').Get(), 'fvid'));
    EXPECT_EQ(ResultNotSupported::kCode, odd->SetInputFormat('UYVY'));
    EXPECT_EQ(0, track->SetInputFormat('I420'));
    EXPECT_EQ(0, asset->AddVideoWriter(track.Get()));
    plan->failBegin = true;
    EXPECT_STREQ("no device", track->Begin().GetMessage());
    plan->failBegin = false;
    EXPECT_EQ(0, track->Begin());
    RObject<CVideoFilter> filter(track->GetCompressor());
    RObject<CVideoProperties> input(filter->GetInputProperties(0));
    EXPECT_EQ(static_cast<unsigned>('I420'), input->GetFormat());
    EXPECT_EQ(64, input->GetWidth());
}

TEST_F(CAssetWriterTest, FullTrackIsNotReadyBlocksAndLosesNothing) {
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    plan->gate.Close();
    // One stands in the encoder; behind it the queue fills until the track says so.
    ASSERT_EQ(0, track->WriteSample(fake_picture(0, 1).Get()));
    plan->gate.WaitForArrivals(1);
    int written = 1;
    while (track->IsReady()) {
        ASSERT_EQ(0, track->WriteSample(fake_picture(written, 1).Get()));
        ASSERT_LT(++written, 100);
    }
    EXPECT_FALSE(asset->WaitForMedia(0));
    EXPECT_FALSE(asset->WaitForMedia(1));
    EXPECT_EQ(0, track->GetBytesWritten());
    // Who asked before each write has a place left for a last one, which no encoder has to make.
    ASSERT_EQ(0, track->WriteSample(fake_picture(written++, 1).Get()));
    EXPECT_FALSE(track->IsReady());
    std::thread writer([&] {
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(0, track->WriteSample(fake_picture(written + i, 1).Get()));
        }
    });
    std::thread opener([&] { plan->gate.Open(); });
    EXPECT_TRUE(asset->WaitForMedia(60000));
    opener.join();
    writer.join();
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_EQ(0, track->End());
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(written + 20, disk.CountWritten());
}

TEST_F(CAssetWriterTest, WaitForMediaWaitsForTheTrackThatIsFull) {
    ASSERT_EQ(0, Create());
    EXPECT_TRUE(asset->WaitForMedia(60000));
    RObject<OpenTrack> track = AddVideo();
    RObject<CAssetAudioWriter> sound = AddSound();
    ASSERT_EQ(0, asset->Begin());
    EXPECT_TRUE(asset->WaitForMedia(60000));
    plan->gate.Close();
    for (int i = 0; track->IsReady(); ++i) {
        ASSERT_EQ(0, track->WriteSample(fake_picture(i, 1).Get()));
        if (i == 0) plan->gate.WaitForArrivals(1);
    }
    // The other track is ready all the time; that is no reason to come back.
    EXPECT_TRUE(sound->IsReady());
    EXPECT_FALSE(asset->WaitForMedia(1));
    plan->gate.Open();
    EXPECT_TRUE(asset->WaitForMedia(60000));
    EXPECT_EQ(0, asset->Finish());
}

TEST_F(CAssetWriterTest, NullEndsTheStreamAndDrainsTheEncoder) {
    ASSERT_EQ(0, Create());
    plan->delay = 3;
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    for (int i = 0; i < 5; ++i) track->WriteSample(fake_picture(i * 10, 10).Get());
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_EQ(0, track->End());
    EXPECT_EQ(1, plan->drained);
    EXPECT_EQ(1, plan->ended);
    EXPECT_EQ(0, asset->Finish());
    const auto frames = disk.Of(0);
    ASSERT_EQ(5u, frames.size());
    EXPECT_EQ(40, frames[4].sample.decodeTime);
}

TEST_F(CAssetWriterTest, FailingEncoderTellsTheNextWriterOnceAndGoesOn) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    plan->failAt = 1;
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    for (int i = 0; i < 2; ++i) ASSERT_EQ(0, track->WriteSample(fake_picture(i, 1).Get()));
    while (trace.Count() == 0) std::this_thread::yield();
    EXPECT_TRUE(track->IsReady());
    EXPECT_STREQ("the picture is bad", track->WriteSample(fake_picture(2, 1).Get()).GetMessage());
    EXPECT_EQ(0, track->WriteSample(fake_picture(3, 1).Get()));
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_EQ(0, track->End());
    EXPECT_EQ(0, asset->Finish());
    const auto frames = disk.Of(0);
    ASSERT_EQ(2u, frames.size());
    EXPECT_EQ(0, frames[0].sample.decodeTime);
    EXPECT_EQ(3, frames[1].sample.decodeTime);
    EXPECT_EQ(1, trace.Count());
    EXPECT_TRUE(trace.HasLineWith({Path().c_str(), "video", "the picture is bad"}));
}

TEST_F(CAssetWriterTest, OfPicturesThatFailInARowTheFirstIsTold) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    plan->failOut = 0b1001110;
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    // Those that are told of a failure are not queued.
    for (int i = 0; i < 20; ++i) track->WriteSample(fake_picture(i, 1).Get());
    track->End();
    EXPECT_EQ(0, asset->Finish());
    EXPECT_GE(disk.CountWritten(), 12);
    EXPECT_EQ(2, trace.Count());
}

// A host shows pictures at their times: sound that ran on must find the picture it belongs to.
TEST_F(CAssetWriterTest, PictureThatDoesNotComeOutLeavesTheOthersTheirTimes) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    plan->failOut = 0b10;
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    const auto write = [&](int i) {
        return track->WriteSample(fake_picture(10 * i, 5 + i, static_cast<unsigned char>(i)).Get());
    };
    for (int i = 0; i < 2; ++i) ASSERT_EQ(0, write(i));
    while (trace.Count() == 0) std::this_thread::yield();
    EXPECT_STREQ("the picture is lost", write(2).GetMessage());
    for (int i = 3; i < 6; ++i) EXPECT_EQ(0, write(i));
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_EQ(0, track->End());
    EXPECT_EQ(0, asset->Finish());
    const auto frames = disk.Of(0);
    const int kept[] = {0, 3, 4, 5};
    ASSERT_EQ(std::size(kept), frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(kept[i], frames[i].bytes[0]);
        EXPECT_EQ(10 * kept[i], frames[i].sample.decodeTime);
        EXPECT_EQ(5 + kept[i], frames[i].sample.duration);
    }
}

TEST_F(CAssetWriterTest, PicturesBehindOneThatFailsAtTheEndAreKept) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    plan->delay = 6;
    plan->failOut = 0b001011;
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    for (int i = 0; i < 6; ++i) {
        ASSERT_EQ(
            0, track->WriteSample(fake_picture(10 * i, 10, static_cast<unsigned char>(i)).Get()));
    }
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_STREQ("the picture is lost", track->End().GetMessage());
    EXPECT_EQ(0, asset->Finish());
    const auto frames = disk.Of(0);
    const int kept[] = {2, 4, 5};
    ASSERT_EQ(std::size(kept), frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(kept[i], frames[i].bytes[0]);
        EXPECT_EQ(10 * kept[i], frames[i].sample.decodeTime);
    }
    EXPECT_EQ(1, trace.Count());
}

TEST_F(CAssetWriterTest, EncoderThatGivesNothingMoreIsNotAskedForEver) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    plan->delay = 6;
    plan->failOutForever = true;
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    for (int i = 0; i < 6; ++i) ASSERT_EQ(0, track->WriteSample(fake_picture(i, 1).Get()));
    EXPECT_STREQ("the device is gone", track->End().GetMessage());
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(0, disk.CountWritten());
    EXPECT_EQ(1, disk.finished);
    EXPECT_EQ(1, trace.Count());
}

TEST_F(CAssetWriterTest, FailureOfTheLastPicturesIsToldByEnd) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    plan->failAt = 0;
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    ASSERT_EQ(0, track->WriteSample(fake_picture(0, 1).Get()));
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_STREQ("the picture is bad", track->End().GetMessage());
    EXPECT_EQ(0, asset->Finish());
}

TEST_F(CAssetWriterTest, FailureOfTheFileReachesWritersWithItsReason) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    disk.failAt = 2;
    RObject<OpenTrack> track = AddVideo();
    RObject<CAssetAudioWriter> sound = AddSound();
    ASSERT_EQ(0, asset->Begin());
    EXPECT_EQ(0, asset->GetFailure());
    Result result = 0;
    for (int i = 0; result.Succeeded(); ++i) result = track->WriteSample(fake_picture(i, 1).Get());
    EXPECT_STREQ("no space left on device", result.GetMessage());
    EXPECT_STREQ("no space left on device", asset->GetFailure().GetMessage());
    result = sound->WriteSample(fake_sound({1, 2, 3, 4}, 1).Get());
    EXPECT_STREQ("no space left on device", result.GetMessage());
    // Who polls is not held up by a track that can take nothing more.
    EXPECT_TRUE(track->IsReady());
    EXPECT_TRUE(sound->IsReady());
    EXPECT_TRUE(asset->WaitForMedia(60000));
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_STREQ("no space left on device", track->End().GetMessage());
    EXPECT_STREQ("no space left on device", asset->Finish().GetMessage());
    EXPECT_EQ(0, asset->GetFailure()) << "told by Finish";
    EXPECT_EQ(1, disk.finished);
    EXPECT_EQ(32, track->GetBytesWritten());
    EXPECT_EQ(1, trace.Count());
}

TEST_F(CAssetWriterTest, BeginThatFailedMayBeTriedAgainWithNewTracks) {
    TraceCatcher trace;
    ASSERT_EQ(0, Create());
    disk.failBegin = true;
    RObject<OpenTrack> track = AddVideo();
    EXPECT_STREQ("no such disk", asset->Begin().GetMessage());
    disk.failBegin = false;
    // The host makes its tracks anew; the old one gets no place in the file.
    track = AddVideo();
    EXPECT_EQ(0, asset->Begin());
    EXPECT_EQ(1u, disk.tracks.size());
    EXPECT_EQ(0, track->WriteSample(fake_picture(0, 1).Get()));
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(1, disk.CountWritten());
    track.Clear();
    asset.Clear();
    EXPECT_EQ(0, plan->living);
    EXPECT_EQ(2, plan->ended);
}

TEST_F(CAssetWriterTest, CreatedAnewItHasNoTracks) {
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> old = AddVideo();
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    EXPECT_EQ(1u, disk.tracks.size());
    EXPECT_TRUE(old->WriteSample(fake_picture(0, 1).Get()).Failed());
    EXPECT_EQ(0, track->WriteSample(fake_picture(0, 1).Get()));
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(1, disk.CountWritten());
    // And a finished asset can write another file.
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> second = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    EXPECT_EQ(0, second->WriteSample(fake_picture(0, 1).Get()));
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(2, disk.finished);
}

TEST_F(CAssetWriterTest, TrackThatDidNotBeginGetsNoPlace) {
    ASSERT_EQ(0, Create());
    RObject<CAssetAudioWriter> idle(new CAssetAudioWriter(audio_shape('sowt', 1).Get()));
    ASSERT_EQ(0, asset->AddAudioWriter(idle.Get()));
    ASSERT_EQ(0, asset->Begin());
    EXPECT_TRUE(disk.tracks.empty());
    EXPECT_TRUE(idle->WriteSample(fake_sound({1, 2}, 1).Get()).Failed());
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(1, disk.finished);
}

TEST_F(CAssetWriterTest, FinishEndsTracksThatNobodyEnded) {
    ASSERT_EQ(0, Create());
    plan->delay = 2;
    RObject<OpenTrack> track = AddVideo();
    RObject<CAssetAudioWriter> sound = AddSound();
    ASSERT_EQ(0, asset->Begin());
    for (int i = 0; i < 6; ++i) track->WriteSample(fake_picture(i, 1).Get());
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(6, disk.CountWritten());
    EXPECT_TRUE(track->WriteSample(fake_picture(7, 1).Get()).Failed());
    EXPECT_TRUE(sound->WriteSample(fake_sound({1, 2, 3, 4}, 1).Get()).Failed());
}

TEST_F(CAssetWriterTest, EncoderThatHangsIsCutOff) {
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    plan->gate.Close();
    ASSERT_EQ(0, track->WriteSample(fake_picture(0, 1).Get()));
    plan->gate.WaitForArrivals(1);
    // Finish would wait some seconds for an encoder that does not move; here it is a millisecond.
    EXPECT_FALSE(track->Pipe().EndOrCutOff(1000));
    TraceCatcher trace;
    EXPECT_EQ(0, asset->Finish());
    EXPECT_TRUE(trace.HasLineWith({Path().c_str(), "cut off"}));
    EXPECT_EQ(1, disk.finished);
    plan->gate.Open();
    EXPECT_EQ(0, track->End());
    EXPECT_EQ(0, disk.CountWritten());
}

TEST_F(CAssetWriterTest, ReleasedWithoutFinishStopsEverything) {
    ASSERT_EQ(0, Create());
    {
        RObject<OpenTrack> track = AddVideo();
        RObject<CAssetAudioWriter> sound = AddSound();
        ASSERT_EQ(0, asset->Begin());
        for (int i = 0; i < 3; ++i) {
            ASSERT_EQ(0, track->WriteSample(fake_picture(i, 1).Get()));
            ASSERT_EQ(0, sound->WriteSample(fake_sound({1, 2, 3, 4}, 1).Get()));
        }
    }
    asset.Clear();
    EXPECT_EQ(0, disk.finished);
    EXPECT_EQ(0, disk.living);
    EXPECT_EQ(0, plan->living);
    EXPECT_EQ(1, plan->ended);
}

TEST_F(CAssetWriterTest, TrackOutlivesItsAsset) {
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> track = AddVideo();
    ASSERT_EQ(0, asset->Begin());
    asset = new CAssetWriter();
    // The container lives as long as its track, and with it the road to the file.
    EXPECT_EQ(0, track->WriteSample(fake_picture(0, 1).Get()));
    EXPECT_EQ(0, track->WriteSample(nullptr));
    EXPECT_EQ(0, track->End());
    track.Clear();
    EXPECT_EQ(0, disk.living);
    EXPECT_EQ(0, disk.finished);
}

TEST_F(CAssetWriterTest, TwoThreadsWriteTwoTracks) {
    ASSERT_EQ(0, Create());
    RObject<OpenTrack> track = AddVideo();
    RObject<CAssetAudioWriter> sound = AddSound();
    ASSERT_EQ(0, asset->Begin());
    constexpr int kFrames = 600;
    std::atomic<bool> done{false};
    std::thread poller([&] {
        // Readiness and counts are asked without any lock.
        long long before = 0;
        while (!done) {
            track->IsReady();
            sound->IsReady();
            const long long bytes = track->GetBytesWritten();
            EXPECT_GE(bytes, before);
            before = bytes;
            std::this_thread::yield();
        }
    });
    std::thread pictures([&] {
        for (int i = 0; i < kFrames; ++i) {
            EXPECT_EQ(0, track->WriteSample(fake_picture(i * 500, 500).Get()));
        }
    });
    std::thread sounds([&] {
        for (int i = 0; i < kFrames; ++i) {
            EXPECT_EQ(0,
                      sound->WriteSample(fake_sound(std::vector<unsigned char>(3200), 800).Get()));
        }
    });
    pictures.join();
    sounds.join();
    track->WriteSample(nullptr);
    sound->WriteSample(nullptr);
    EXPECT_EQ(0, track->End());
    EXPECT_EQ(0, sound->End());
    done = true;
    poller.join();
    EXPECT_EQ(0, asset->Finish());
    EXPECT_EQ(kFrames, static_cast<int>(disk.Of(0).size()));
    EXPECT_EQ(kFrames, static_cast<int>(disk.Of(1).size()));
    EXPECT_EQ(kFrames * 3200, sound->GetBytesWritten());
}

TEST_F(CAssetWriterTest, ContainerTakesItsPropertiesOnlyWhereItHasThem) {
    namespace Names = ContainerProperty::Mpeg4ContainerWriter;
    FakeDiskInPlace movs('mov ');
    TraceCatcher trace;
    ASSERT_EQ(0, Create('mov '));
    RObject<CContainerWriter> writer(asset->GetContainerWriter());
    bool flag = false;
    EXPECT_EQ(0, writer->GetProperty(Names::FastStart, flag));
    EXPECT_TRUE(flag);
    EXPECT_EQ(0, writer->SetProperty(Names::FastStart, false));
    EXPECT_EQ(0, writer->SetProperty(Names::TrimAudio, false));
    EXPECT_EQ(0, writer->SetProperty(Names::MoovRate, 7));
    EXPECT_EQ(0, trace.Count());
    EXPECT_EQ(ResultInvalidArgument::kCode, writer->SetProperty(Names::MoovRate, -1));
    EXPECT_TRUE(trace.HasLineWith({Path().c_str(), "MoovRate", "-1"}));
    ASSERT_EQ(0, asset->Begin());
    EXPECT_FALSE(movs.disk.options.fastStart);
    EXPECT_FALSE(movs.disk.options.trimAudio);
    EXPECT_EQ(7, movs.disk.options.checkpointSeconds);
    EXPECT_EQ(static_cast<unsigned>('mov '), movs.disk.options.containerType);
    EXPECT_EQ(0, asset->Finish());
    gDisk = &disk;
    RObject<CContainerWriter> other(new CContainerWriter('ts  ', "x.ts"));
    EXPECT_EQ(ResultNotSupported::kCode, other->SetProperty(Names::FastStart, true));
}

TEST_F(CAssetWriterTest, QueueSizeAndExtensionAreChecked) {
    RObject<CContainerWriter> writer(new CContainerWriter('mov ', "x.mov"));
    EXPECT_EQ(CContainer::kDefaultQueueSize, writer->GetQueueSize());
    EXPECT_EQ(0, writer->SetQueueSize(128));
    EXPECT_EQ(ResultInvalidArgument::kCode, writer->SetQueueSize(0));
    EXPECT_EQ(128, writer->GetQueueSize());
    EXPECT_EQ(ResultNullPointer::kCode, writer->SetExtension(nullptr));
    for (const char* bad : {"", "a/b", "a\n", "an extension of more than 32 bytes"}) {
        RObject<CString> text(new CString(bad));
        EXPECT_EQ(ResultInvalidArgument::kCode, writer->SetExtension(text.Get())) << bad;
    }
    EXPECT_EQ(nullptr, writer->GetExtension());
    RObject<CString> text(new CString("mov"));
    EXPECT_EQ(0, writer->SetExtension(text.Get()));
    RObject<CString> kept(writer->GetExtension());
    EXPECT_EQ(text, kept);
}

}  // namespace
}  // namespace Quillon::Orb
