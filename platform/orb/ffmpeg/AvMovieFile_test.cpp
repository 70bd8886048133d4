#include "orb/ffmpeg/AvMovieFile.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/TestFolder.h"

namespace Quillon::Orb {

namespace {

constexpr int kPicturesPerSecond = 25;
constexpr int kPictures = 50;
constexpr std::size_t kPictureBytes = 200;

MovieTrack mpeg2_track() {
    MovieTrack track;
    track.format = 'mp2v';
    track.timescale = kPicturesPerSecond;
    track.frameDuration = 1;
    track.width = 160;
    track.height = 90;
    return track;
}

// Whoever kills the program keeps what was written before.
TEST(AvMovieFile, ATransportStreamIsOnTheDiskAsItGrows) {
    const tests::TestFolder folder;
    const std::string path = folder.File("small.ts");
    MovieFileOptions options;
    options.containerType = 'ts  ';
    const std::unique_ptr<MovieFile> file = MakeAvMovieFile(path.c_str(), options);
    ASSERT_TRUE(file);
    const int track = file->AddTrack(mpeg2_track());
    ASSERT_EQ(track, 0);
    ASSERT_TRUE(file->Begin().Succeeded());
    const std::vector<unsigned char> picture(kPictureBytes, 0xFF);
    for (int i = 0; i < kPictures; ++i) {
        MovieSample sample;
        sample.data = picture.data();
        sample.size = picture.size();
        sample.decodeTime = i;
        sample.duration = 1;
        ASSERT_TRUE(file->WriteSample(track, sample).Succeeded());
    }
    const auto grown = std::filesystem::file_size(path);
    EXPECT_GE(grown, kPictures * kPictureBytes);
    EXPECT_TRUE(file->Finish().Succeeded());
    EXPECT_EQ(std::filesystem::file_size(path), grown);
}

}  // namespace

}  // namespace Quillon::Orb
