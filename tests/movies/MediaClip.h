#pragma once

#include <string>
#include <vector>

#include "orb/container/MovieFile.h"

/// Encoded material as an encoder hands it over: tracks, and their samples in the order of time.
struct MediaClip {
    struct Sample {
        int track;
        std::vector<unsigned char> data;
        Quillon::Orb::MovieSample described;  // without bytes
    };
    std::string path;  // of the file that it was read from
    std::vector<Quillon::Orb::MovieTrack> tracks;
    std::vector<Sample> samples;

    Quillon::Orb::MovieSample Described(std::size_t index) const;
};

/// Reads the packets of any file that libavformat opens.
MediaClip ReadClip(const std::string& path);

/// Makes a clip with the ffmpeg program and reads its packets. `arguments` describe inputs and
/// encoders; `suffix` is the container between the two. The result is kept for the process, so that
/// tests share clips.
const MediaClip& MakeClip(const std::string& arguments, const std::string& suffix = "mov");

/// Clips that several tests use, two seconds long unless said otherwise.
const MediaClip& H264AacClip();    // 25 fps with B-frames, AAC with priming
const MediaClip& ProResPcmClip();  // 30000/1001 fps, 16-bit PCM
