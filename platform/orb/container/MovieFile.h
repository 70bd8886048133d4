#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "orb/Result.h"
#include "orb/export.h"

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
    /// Stored format: 'avc1', 'apch' and its family, 'jpeg', 'mp2v'; 'mp4a', 'sowt', 'twos',
    /// 'in24', 'in32', 'fl32', 'fl64' and, low byte first, '42ni', '23ni', '23lf', '46lf'.
    unsigned int format = 0;
    long long timescale = 0;         ///< ticks per second of all times of this track
    long long expectedDuration = 0;  ///< ticks; sizes the index; 0 is unknown

    // video
    int width = 0;
    int height = 0;
    long long frameDuration = 0;  ///< nominal ticks per frame; 0 is unknown
    int fieldOrder = 1;           ///< 1 progressive, 2 top field first, 3 bottom field first
    int pixelAspectNumerator = 1;
    int pixelAspectDenominator = 1;
    int cleanWidth = 0;  ///< the clean aperture, in the middle of the picture; 0 is the whole of it
    int cleanHeight = 0;
    MovieColour colour;
    bool reordered = false;  ///< samples may carry composition offsets
    /// Frames by which decoding runs ahead of display at most; -1 is unknown. Offsets count from
    /// the decode time and so may be negative by as many frames.
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
    std::size_t size = 0;             ///< bytes; what goes beyond whole PCM packets is left out
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
    long long creationTime = 0;      ///< seconds since 1970, written to the file; 0 is now
};

/// A movie file that is being written. One thread, the container thread, calls everything.
///
/// The order is: AddTrack for each track, Begin, WriteSample, Finish. After a failure of
/// WriteSample what has been indexed stays whole; Finish still closes what there is, and so does
/// the destructor when Finish was not called.
///
/// Times. A picture's display time (decode time and offset) is its time in the movie: what comes
/// before the first picture is an empty edit, what is displayed before 0 is cut. How long a picture
/// is shown follows from the decode time of the next one; `duration` counts for the last. A decode
/// time that goes back by at most a second shows the pictures in between for no time, until the
/// track has caught up; one that goes back further goes on from where the track stands. A step of
/// more than 2^31 - 1 ticks is made in several: the pictures behind it come too early until the
/// track is on time again; one of more than a day is cut to that. Sound runs on by its durations
/// alone: the decode time of its first sample says when the track starts, and a negative one how
/// much of its start is cut.
class MovieFile {
public:
    virtual ~MovieFile() = default;

    /// Returns the track's index, counted from 0, or a negative code: ResultInvalidArgument for a
    /// description that contradicts itself, ResultNotSupported for a format that is not written.
    virtual int AddTrack(const MovieTrack& track) = 0;
    /// Creates the file at its path, in place of one that stands there, as an empty movie.
    virtual Result Begin() = 0;
    /// Takes a copy of the bytes or writes them; `sample.data` is the caller's again on return.
    ///
    /// Does not wait for the disk to settle, but for the call that finds the file broken: it saves
    /// what stands there. Its reason, which every later call gives again, names the path, the error
    /// and the seconds that the file keeps.
    virtual Result WriteSample(int track, const MovieSample& sample) = 0;
    /// Completes and closes the file; no other call may follow. When it succeeds the movie is on
    /// the disk. After a failed WriteSample it gives that failure again.
    virtual Result Finish() = 0;
};

/// The crash-proof mov/mp4 writer of this folder.
ORB_API std::unique_ptr<MovieFile> MakeMovieFile(const char* path, const MovieFileOptions& options);

}  // namespace Quillon::Orb
