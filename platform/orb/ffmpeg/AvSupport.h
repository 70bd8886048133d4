#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include "orb/Result.h"

#include "VideoShape.h"

// What the components over libavcodec share: owners for its objects, its texts, and an encoder's
// context filled from a shape.

namespace Quillon::Orb {

struct AvDelete {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVBufferRef* buffer) const { av_buffer_unref(&buffer); }
};
using AvContext = std::unique_ptr<AVCodecContext, AvDelete>;
using AvFrame = std::unique_ptr<AVFrame, AvDelete>;
using AvPacket = std::unique_ptr<AVPacket, AvDelete>;
using AvBuffer = std::unique_ptr<AVBufferRef, AvDelete>;

/// Settings that an encoder reads by name when it opens.
class AvOptions {
public:
    AvOptions() = default;
    AvOptions(const AvOptions&) = delete;
    AvOptions& operator=(const AvOptions&) = delete;
    ~AvOptions() { av_dict_free(&fEntries); }

    void Set(const char* key, const char* value) { av_dict_set(&fEntries, key, value, 0); }
    void Set(const char* key, long long value) { av_dict_set_int(&fEntries, key, value, 0); }
    AVDictionary** Get() noexcept { return &fEntries; }

private:
    AVDictionary* fEntries = nullptr;
};

/// libavutil's text for one of its negative codes.
std::string AvErrorText(int code);

/// A context of the named encoder, not opened, with all that the shape says: size, rate, pixel
/// aspect, colour, range and fields. Pictures are counted: the time base is one frame.
///
/// Encoders that can write their output into memory of their caller's get it from the block pool.
/// Their own messages stay below what is printed; what a person must know is in our results.
/// ResultNotSupported where this libavcodec has no such encoder; ResultOutOfMemory.
Result MakeEncoderContext(const char* encoder, const VideoShape& shape, AVPixelFormat pixels,
                          AvContext& context);

/// Opens the context. ResultError with the reason.
Result OpenEncoderContext(AVCodecContext& context, AvOptions& options);

}  // namespace Quillon::Orb
