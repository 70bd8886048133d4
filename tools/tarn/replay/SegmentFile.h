#pragma once

#include <memory>
#include <string>
#include <vector>

#include "../avHandles.h"
#include "ReplayRecording.h"

/// An encoded picture or packet of sound on the recording's timeline.
struct SegmentPacket {
    AvHandle<AVPacket> bytes;
    long long decode = 0;    ///< ticks of the track
    long long show = 0;      ///< ticks of the track
    long long duration = 0;  ///< ticks of the track
    bool isKey = false;
};

/// What a track of a segment is.
struct SegmentFormat {
    AVCodecID codec = AV_CODEC_ID_NONE;
    unsigned int tag = 0;  ///< the stored format, as four characters
    int timescale = 0;     ///< ticks a second; of sound its rate
    int width = 0;
    int height = 0;
    int channels = 0;
    int framesPerPacket = 0;
    int frameBytes = 0;  ///< of PCM, else 0
    std::vector<unsigned char> decoderInfo;

    bool IsThere() const { return codec != AV_CODEC_ID_NONE; }
    /// Whether packets of the two can follow each other in one track.
    bool FitsTo(const SegmentFormat& other) const;
};

/// A track of a segment, as it was read.
struct SegmentTrack : SegmentFormat {
    std::vector<SegmentPacket> packets;  ///< in the order of decoding
};

/// The movie of one segment, held open from when this is made: its recorder may delete it
/// meanwhile.
class SegmentFile {
public:
    /// False with one line in `error`.
    bool Hold(const ReplayPiece& piece, std::string& error);
    SegmentFile() = default;
    ~SegmentFile();
    SegmentFile(SegmentFile&& other) noexcept;
    SegmentFile(const SegmentFile&) = delete;
    SegmentFile& operator=(const SegmentFile&) = delete;
    SegmentFile& operator=(SegmentFile&&) = delete;

    const ReplayPiece& Piece() const { return fPiece; }
    /// A path that reads the file, also when its name is gone.
    std::string Path() const;
    /// Reads all packets. False with one line in `error`.
    bool Load(SegmentTrack& video, SegmentTrack& audio, std::string& error) const;

private:
    ReplayPiece fPiece;
    int fFile = -1;
};

/// Lets this process hold as many files as the system allows.
void RaiseFileLimit();
