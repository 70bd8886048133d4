#pragma once

// An asset in a folder of its own, with fake encoders and a fake disk: what its tests share.

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "orb/CAssetAudioCompressor.h"
#include "orb/CAssetVideoCompressor.h"
#include "orb/CAssetWriter.h"
#include "orb/CContainerReaderAudioProperties.h"
#include "orb/TrackPipe.h"
#include "orb/testComponents.h"

namespace Quillon::Orb {

inline RObject<CVideoProperties> video_shape(unsigned int format = 'jpeg') {
    RObject<CVideoProperties> p(new CVideoProperties(nullptr));
    p->SetFormat(format);
    p->SetWidth(64);
    p->SetHeight(48);
    p->SetTimescale(30000);
    p->SetFrameDuration(1001);
    p->SetColorSpace(ColorSpace::BT709);
    return p;
}

inline RObject<CAudioProperties> audio_shape(unsigned int format, int channels) {
    RObject<CAudioProperties> p(new CContainerReaderAudioProperties(nullptr));
    p->SetFormat(format);
    p->SetChannels(channels);
    p->SetSampleRate(48000);
    p->SetBitsPerSample(16);
    p->SetBytesPerPacket(2 * channels);
    p->SetFramesPerPacket(1);
    return p;
}

/// A track whose inside can be reached.
class OpenTrack : public CAssetVideoCompressor {
public:
    using CAssetVideoCompressor::CAssetVideoCompressor;
    using CAssetVideoCompressor::Pipe;
};

/// A folder that goes with the test.
class AssetTest : public testing::Test {
protected:
    AssetTest() {
        char folder[] = "/tmp/orbXXXXXX";
        fFolder = mkdtemp(folder);
        asset = new CAssetWriter();
    }
    ~AssetTest() override {
        asset.Clear();
        std::filesystem::remove_all(fFolder);
    }
    std::string Path(const char* name = "movie.mov") const { return fFolder + "/" + name; }
    Result Create(unsigned int type = 'fake', const std::string& path = "") {
        RObject<CString> text(new CString((path.empty() ? Path() : path).c_str()));
        return asset->Create(type, text.Get());
    }
    /// A compressing video track that stands in the asset and has begun.
    RObject<OpenTrack> AddVideo() {
        RObject<OpenTrack> track(new OpenTrack(video_shape().Get(), 'fvid'));
        EXPECT_EQ(0, track->SetInputFormat('UYVY'));
        EXPECT_EQ(0, asset->AddVideoWriter(track.Get()));
        EXPECT_EQ(0, track->Begin());
        return track;
    }
    /// A track that stores pictures as they come.
    RObject<CAssetVideoWriter> AddPictures() {
        RObject<CAssetVideoWriter> track(new CAssetVideoWriter(video_shape().Get()));
        EXPECT_EQ(0, track->SetInputFormat('jpeg'));
        EXPECT_EQ(0, asset->AddVideoWriter(track.Get()));
        EXPECT_EQ(0, track->Begin());
        return track;
    }
    RObject<CAssetAudioWriter> AddSound(int channels = 2) {
        RObject<CAssetAudioWriter> track(
            new CAssetAudioWriter(audio_shape('sowt', channels).Get()));
        EXPECT_EQ(0, track->SetInputFormat('sowt'));
        EXPECT_EQ(0, asset->AddAudioWriter(track.Get()));
        EXPECT_EQ(0, track->Begin());
        return track;
    }

    FakeDiskInPlace place;
    FakeDisk& disk = place.disk;
    std::shared_ptr<FakePlan> plan = std::make_shared<FakePlan>();
    FactoryInFront<CVideoCompressor> video{new FakeVideoFactory('fvid', plan)};
    FactoryInFront<CAudioCompressor> audio{new FakeAudioFactory('faud', plan)};
    RObject<CAssetWriter> asset;
    std::string fFolder;
};

}  // namespace Quillon::Orb
