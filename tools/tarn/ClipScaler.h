#pragma once

extern "C" {
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <cstdint>
#include <memory>

#include "avHandles.h"

/// Brings decoded pictures to one size, pixel format, range and matrix.
///
/// Pictures may change underway; what is made for one kind of them is kept until the next kind
/// comes. One thread at a time.
class ClipScaler {
public:
    /// What the pictures are to be.
    struct Target {
        int width = 0;
        int height = 0;
        AVPixelFormat format = AV_PIX_FMT_NONE;
        bool fullRange = false;
        bool interlaced = false;  ///< two fields are woven into each
        int fromMatrix = 0;       ///< swscale's numbers; 0 leaves the matrix as it is
        int toMatrix = 0;
        int flags = 0;  ///< swscale's; a change of the matrix brings its own
    };

    void SetTarget(const Target& target);
    /// Whether a picture is already what it is to be, wherever its planes lie.
    bool IsThere(const AVFrame& picture) const;
    /// Writes the converted picture to `planes`, `pitches` bytes from row to row. False when it
    /// cannot be converted.
    bool Scale(const AVFrame& picture, uint8_t* const planes[4], const int pitches[4]);

private:
    struct FreeScaler {
        void operator()(SwsContext* context) const { sws_freeContext(context); }
    };
    using Scaler = std::unique_ptr<SwsContext, FreeScaler>;

    /// What the scalers were made for.
    struct Source {
        int width = 0;
        int height = 0;
        AVPixelFormat format = AV_PIX_FMT_NONE;
        bool fullRange = false;

        bool operator==(const Source&) const = default;
    };

    bool mixes_fields(const Source& source) const;
    int flags_for(const Source& source) const;
    bool prepare(const Source& source);
    Scaler make_scaler(const Source& source, int fromRows, int toRows, int field) const;
    bool scale_field(const AVFrame& picture, int field, uint8_t* const planes[4],
                     const int pitches[4]);

    Target fTarget;
    Source fSource;
    Scaler fWhole;      // null where pictures are scaled field by field
    Scaler fFields[2];  // top, bottom
    AvHandle<AVFrame> fFieldIn;
    AvHandle<AVFrame> fFieldOut;
};
