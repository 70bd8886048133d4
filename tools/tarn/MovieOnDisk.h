#pragma once

#include <string>

/// What a movie file holds, by its own index.
struct MovieOnDisk {
    bool opens = false;
    std::string trouble;   ///< why it does not open
    long long frames = 0;  ///< of the picture track
    double seconds = 0;    ///< of the longest track
    long long videoBytes = 0;
    long long audioBytes = 0;
    long long audioPackets = 0;  ///< of sound that is compressed; of PCM they mean nothing
};

/// Reads the index of a file that has been closed.
MovieOnDisk ReadMovieOnDisk(const std::string& path);
