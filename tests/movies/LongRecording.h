#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tests/movies/MovieCheck.h"

struct LongShape {
    double seconds = 3600;
    double announcedSeconds = 3600;
    double checkpointSeconds = 10;  // of the movie
    bool reordered = false;
    bool fastStart = true;
    unsigned int container = 'mov ';
};

/// Records a second of tiny pictures (60 a second) and sound over and over, with times that go on.
/// `onCheckpoint` is called behind each checkpoint with the seconds written. Gives the first
/// failure.
Quillon::Orb::Result RecordLong(const std::string& path, const LongShape& shape,
                                std::unique_ptr<Quillon::Orb::FileLayer> file,
                                const std::function<void(double seconds)>& onCheckpoint = {});

/// Pictures and AAC packets of a second.
const MediaClip& TinyClip(bool reordered);
