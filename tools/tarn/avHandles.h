#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
}

#include <memory>
#include <string>

// Owning handles over FFmpeg's objects.

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

/// `path` as FFmpeg takes it: the name of a file that is there with "file:" before it, since what
/// stands before a colon would be a protocol; everything else as it is.
std::string AvUrl(const std::string& path);

/// FFmpeg's words for one of its codes.
std::string AvErrorText(int code);
