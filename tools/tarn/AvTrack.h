#pragma once

#include <string>

#include "avHandles.h"

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

    /// Once Decode has answered false: whether the end was not waited for, since the program was
    /// asked to stop.
    bool GaveUp() const { return fGaveUp; }

    /// Length of the whole clip as its header gives it, 0 when it does not say.
    double HeaderSeconds() const;

    /// Once Decode has answered false: where and why the track ended before its time; empty when it
    /// did not, as far as the clip's header tells.
    std::string EndedEarly() const;

private:
    static int gives_up(void* waiting);
    int open_decoder(const AVCodec& codec);
    void read_only_what_is_needed(bool tellsItsLength);
    void note_end_of_packet();
    double end_seconds() const;
    double end_of_whole() const;

    long long fWaitsSinceUs = 0;
    double fReached = 0;         // end of the last decoded frame, seconds of the clip's time line
    bool fWatchesWhole = false;  // the header tells the length of the whole, not of this track
    double fWholeReached = 0;    // end of the last packet of any track that is read
    bool fGaveUp = false;
    bool fCutInside = false;  // the last packet, or the read behind it, was not whole
};
