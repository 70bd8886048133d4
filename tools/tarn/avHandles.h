#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
}

#include <memory>
#include <string>

// Owning handles over FFmpeg's objects, and the opening of one track of a clip.

struct AvClose {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

template <typename T>
using AvHandle = std::unique_ptr<T, AvClose>;

/// Keeps FFmpeg from writing to the terminal by itself: what matters comes as our own lines.
void QuietenAv();

/// FFmpeg's words for one of its codes.
std::string AvErrorText(int code);

/// One decodable track of a clip with its own reader, so that each track has its own thread.
///
/// Once the program is asked to stop, nothing is waited for longer than half a second: a network
/// peer that says no more ends its track then. A pipe is read for as long as its writer lives.
struct AvTrack {
    AvTrack() = default;
    AvTrack(const AvTrack&) = delete;  // the file knows where it lies
    AvTrack& operator=(const AvTrack&) = delete;

    AvHandle<AVFormatContext> file;
    AvHandle<AVCodecContext> decoder;
    AvHandle<AVPacket> packet;
    AVStream* stream = nullptr;
    bool drained = false;

    /// Opens the best track of that kind. False with one line in `error`; the line stays empty when
    /// the clip opens but has no such track.
    bool Open(const std::string& path, AVMediaType kind, std::string& error);

    /// Decodes into `frame`; false at the end of the track. Damaged packets are passed over.
    bool Decode(AVFrame& frame);

    /// Length of the whole clip as its header gives it, 0 when it does not say.
    double HeaderSeconds() const;

    /// Once Decode has answered false: where and why the track ended before its time; empty when it
    /// did not, as far as the clip's header tells.
    std::string EndedEarly() const;

private:
    static int gives_up(void* track);
    double end_seconds() const;

    long long fWaitsSinceUs = 0;
    double fReached = 0;      // end of the last decoded frame, seconds of the clip's time line
    bool fCutInside = false;  // the last packet, or the read behind it, was not whole
};

/// What a movie file holds, by its own index.
struct MovieOnDisk {
    bool opens = false;
    long long frames = 0;  ///< of the picture track
    double seconds = 0;    ///< of the longest track
    long long videoBytes = 0;
    long long audioBytes = 0;
    long long audioPackets = 0;  ///< of sound that is compressed; of PCM they mean nothing
};

/// Reads the index of a file that has been closed.
MovieOnDisk ReadMovieOnDisk(const std::string& path);
