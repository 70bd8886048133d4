#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "orb/Result.h"

namespace Quillon::Orb {

/// Colour as the files spell it: code points of ISO/IEC 23091-2; 0 leaves the field unsaid.
struct MovieColour {
    int primaries = 0;
    int transfer = 0;
    int matrix = 0;
    bool fullRange = false;
};

/// What a movie file must know of a track before its first sample.
struct MovieTrack {
    enum class Kind { Video, Audio };

    Kind kind = Kind::Video;
    unsigned int format =
        0;  ///< stored format: 'avc1', 'apch', 'jpeg', 'mp2v', 'mp4a', 'sowt', 'fl32', ...
    long long timescale = 0;         ///< ticks per second of all times of this track
    long long expectedDuration = 0;  ///< ticks; sizes the index; 0 is unknown

    // video
    int width = 0;
    int height = 0;
    long long frameDuration = 0;  ///< nominal ticks per frame; 0 is unknown
    int fieldOrder = 1;           ///< 1 progressive, 2 top field first, 3 bottom field first
    int pixelAspectNumerator = 1;
    int pixelAspectDenominator = 1;
    MovieColour colour;
    bool reordered = false;  ///< samples may carry composition offsets
    /// Frames by which decoding runs ahead of display at most; -1 is unknown. Offsets count from the
    /// decode time and so may be negative by as many frames.
    int reorderDepth = -1;

    // audio
    int channels = 0;
    int sampleRate = 0;
    int bitsPerSample = 0;
    int bytesPerPacket = 0;       ///< of PCM; 0 for compressed audio
    int framesPerPacket = 1;      ///< 1 for PCM, 1024 for AAC
    long long primingFrames = 0;  ///< encoder delay at the start of the stream
    int bitRate = 0;              ///< bits per second, 0 unknown

    /// Contents of avcC for H.264, AudioSpecificConfig for AAC; empty for the rest.
    std::vector<unsigned char> decoderConfiguration;
};

/// One encoded picture, one compressed audio packet, or a block of PCM packets.
struct MovieSample {
    const unsigned char* data = nullptr;
    std::size_t size = 0;             ///< bytes
    long long decodeTime = 0;         ///< ticks of the track
    long long duration = 0;           ///< ticks; of the whole block for PCM
    long long compositionOffset = 0;  ///< display time less decode time
    bool key = true;
    long long packets = 1;  ///< of PCM: packets in the block; else 1
};

struct MovieFileOptions {
    unsigned int containerType = 0;  ///< 'mov ' or 'mp4 '
    int checkpointSeconds = 1;       ///< MoovRate: seconds between two states that survive a crash
    bool fastStart = true;           ///< the index stands in front of the media data
    bool trimAudio = true;           ///< priming of compressed audio is cut by an edit list
};

/// A movie file that is being written. One thread, the container thread, calls everything.
///
/// The order is: AddTrack for each track, Begin, WriteSample, Finish. After a failure of
/// WriteSample what has been indexed stays whole; Finish still closes what there is.
class MovieFile {
public:
    virtual ~MovieFile() = default;

    /// Returns the track's index, counted from 0, or a negative code.
    virtual int AddTrack(const MovieTrack& track) = 0;
    /// Creates or empties the file at its path and writes its head.
    virtual Result Begin() = 0;
    /// Takes a copy of the bytes or writes them; `sample.data` is the caller's again on return.
    virtual Result WriteSample(int track, const MovieSample& sample) = 0;
    /// Completes and closes the file; no other call may follow.
    virtual Result Finish() = 0;
};

/// The crash-proof mov/mp4 writer of this folder.
std::unique_ptr<MovieFile> MakeMovieFile(const char* path, const MovieFileOptions& options);

}  // namespace Quillon::Orb
