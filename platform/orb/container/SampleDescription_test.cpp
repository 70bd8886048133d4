#include "SampleDescription.h"

#include <functional>
#include <gtest/gtest.h>

namespace Quillon::Orb {
namespace {

MovieTrack picture() {
    MovieTrack track;
    track.format = 'apch';
    track.timescale = 25;
    track.width = 320;
    track.height = 180;
    return track;
}

MovieTrack sound() {
    MovieTrack track;
    track.kind = MovieTrack::Kind::Audio;
    track.format = 'sowt';
    track.timescale = track.sampleRate = 48000;
    track.channels = 2;
    track.bytesPerPacket = 4;
    return track;
}

struct Case {
    const char* name;
    bool video;
    std::function<void(MovieTrack&)> change;
    int code;
};

TEST(CheckTrack, RefusesWhatContradictsItself) {
    constexpr int kBad = ResultInvalidArgument::kCode;
    constexpr int kUnknown = ResultNotSupported::kCode;
    const Case cases[] = {
        {"picture", true, [](MovieTrack&) {}, 0},
        {"sound", false, [](MovieTrack&) {}, 0},
        {"no timescale", true, [](MovieTrack& t) { t.timescale = 0; }, kBad},
        {"timescale beyond 31 bits", true, [](MovieTrack& t) { t.timescale = 1LL << 31; }, kBad},
        {"negative length", true, [](MovieTrack& t) { t.expectedDuration = -1; }, kBad},
        {"negative frame", true, [](MovieTrack& t) { t.frameDuration = -1; }, kBad},
        {"no width", true, [](MovieTrack& t) { t.width = 0; }, kBad},
        {"width beyond 16 bits", true, [](MovieTrack& t) { t.width = 65536; }, kBad},
        {"no height", true, [](MovieTrack& t) { t.height = 0; }, kBad},
        {"height beyond 16 bits", true, [](MovieTrack& t) { t.height = 65536; }, kBad},
        {"H.264 without configuration", true, [](MovieTrack& t) { t.format = 'avc1'; }, kBad},
        {"aspect of 0", true, [](MovieTrack& t) { t.pixelAspectNumerator = 0; }, kBad},
        {"aspect by 0", true, [](MovieTrack& t) { t.pixelAspectDenominator = 0; }, kBad},
        {"field order 0", true, [](MovieTrack& t) { t.fieldOrder = 0; }, kBad},
        {"field order 4", true, [](MovieTrack& t) { t.fieldOrder = 4; }, kBad},
        {"clean beyond the picture", true, [](MovieTrack& t) { t.cleanWidth = 321; }, kBad},
        {"an unknown picture", true, [](MovieTrack& t) { t.format = 'wxyz'; }, kUnknown},
        {"sound as a picture", true, [](MovieTrack& t) { t.format = 'sowt'; }, kUnknown},
        {"no channels", false, [](MovieTrack& t) { t.channels = 0; }, kBad},
        {"too many channels", false, [](MovieTrack& t) { t.channels = 256; }, kBad},
        {"no rate", false, [](MovieTrack& t) { t.sampleRate = 0; }, kBad},
        {"ticks that no frame fits", false, [](MovieTrack& t) { t.timescale = 30000; }, kBad},
        {"no bytes", false, [](MovieTrack& t) { t.bytesPerPacket = 0; }, kBad},
        {"bytes that no frame fits", false, [](MovieTrack& t) { t.bytesPerPacket = 5; }, kBad},
        {"negative priming", false, [](MovieTrack& t) { t.primingFrames = -1; }, kBad},
        {"AAC without configuration", false, [](MovieTrack& t) { t.format = 'mp4a'; }, kBad},
        {"a picture as sound", false, [](MovieTrack& t) { t.format = 'apch'; }, kUnknown},
    };
    for (const Case& each : cases) {
        MovieTrack track = each.video ? picture() : sound();
        each.change(track);
        EXPECT_EQ(CheckTrack(track, 'mov '), each.code) << each.name;
        EXPECT_EQ(CheckTrack(track, 'mp4 '), each.code) << each.name;
    }
}

}  // namespace
}  // namespace Quillon::Orb
