#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "orb/container/WholeMovieFile.h"

#include "tests/movies/MediaClip.h"
#include "tests/support/BoxTree.h"

/// Gives bytes of a file, good until the next call; fewer where it ends.
using ByteReader =
    std::function<std::span<const unsigned char>(long long position, long long size)>;
ByteReader BytesOf(const std::vector<unsigned char>& image);
ByteReader BytesOf(const std::string& path);

/// What of a clip stands in a file.
struct Kept {
    std::vector<long long> samples;  // of each track: packets, for plain sound
    std::vector<double> seconds;     // end of each track in the movie
    std::string complaints;          // empty when what stands there is right
};

/// Compares a file with the clip that was written to it: bytes, sizes, times, keys, and the tables
/// against each other. The file may hold less than the clip, but nothing else.
Kept CompareWithClip(const BoxFile& file, const ByteReader& bytes, const MediaClip& clip);

struct WriteOptions {
    unsigned int container = 'mov ';
    double expectedSeconds = 10;
    int checkpointEvery = 20;  // samples
    bool fastStart = true;
    bool trimAudio = true;
    bool finish = true;
    long long created = 1700000000;
};
Quillon::Orb::MovieFileOptions FileOptions(const WriteOptions& options);

/// Writes a clip with checkpoints made by hand; `onCheckpoint` is called behind each. Gives the
/// first failure, and finishes all the same.
Quillon::Orb::Result WriteClip(Quillon::Orb::WholeMovieFile& file, const MediaClip& clip,
                               const WriteOptions& options,
                               const std::function<void()>& onCheckpoint = {});
/// The same into a file at `path`.
Quillon::Orb::Result WriteClipTo(const std::string& path, const MediaClip& clip,
                                 const WriteOptions& options,
                                 const std::function<void()>& onCheckpoint = {});

/// What a made-up clip is like. Its bytes are noise: nothing decodes it.
struct ClipShape {
    double seconds = 2;
    int framesPerSecond = 25;
    int frameBytes = 600;
    bool reordered = false;
    int keyEvery = 12;  // 1: every picture is one
    unsigned int videoFormat = 'avc1';
    std::vector<unsigned int> sounds = {'mp4a'};  // a track each
};
MediaClip MakeUpClip(const ClipShape& shape);
