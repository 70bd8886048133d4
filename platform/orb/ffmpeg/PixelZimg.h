#pragma once

#include <cstdint>
#include <memory>
#include <vector>
#include <zimg.h>

#include "PixelPlan.h"

namespace Quillon::Orb {

/// The same conversion by zimg, an independent work: an oracle for tests, a rival for benchmarks.
/// It knows planes only; red, green and blue are three planes of bytes, in this order.
class ZimgConversion {
public:
    /// Null where zimg has no way.
    static std::shared_ptr<ZimgConversion> Make(const PixelRequest& request) {
        const PixelFormat& from = *FindPixelFormat(request.from);
        const PixelFormat& to = *FindPixelFormat(request.to);
        if (!reads(from) || !reads(to)) return nullptr;
        const auto source = format_of(from, request.fromColour, request.width, request.height);
        const auto target = format_of(to, request.toColour, request.width, request.height);
        zimg_graph_builder_params parameters;
        zimg_graph_builder_params_default(&parameters, ZIMG_API_VERSION);
        parameters.resample_filter_uv = ZIMG_RESIZE_BILINEAR;
        const auto made = std::make_shared<ZimgConversion>();
        made->fGraph = zimg_filter_graph_build(&source, &target, &parameters);
        std::size_t size = 0;
        if (!made->fGraph || zimg_filter_graph_get_tmp_size(made->fGraph, &size)) return nullptr;
        made->fMemory.resize(size + kAlignment);
        return made;
    }

    ZimgConversion() = default;
    ZimgConversion(const ZimgConversion&) = delete;
    ZimgConversion& operator=(const ZimgConversion&) = delete;
    ~ZimgConversion() { zimg_filter_graph_free(fGraph); }

    /// Planes must begin at multiples of 64 bytes and have strides that are such.
    bool Run(const PixelImage& from, const PixelImage& to) {
        zimg_image_buffer_const in = {.version = ZIMG_API_VERSION, .plane = {}};
        zimg_image_buffer out = {.version = ZIMG_API_VERSION, .plane = {}};
        for (int i = 0; i < 3; ++i) {
            in.plane[i] = {from.planes[i], from.strides[i], ZIMG_BUFFER_MAX};
            out.plane[i] = {to.planes[i], to.strides[i], ZIMG_BUFFER_MAX};
        }
        const auto address = reinterpret_cast<std::uintptr_t>(fMemory.data());
        void* aligned = fMemory.data() + (-address & (kAlignment - 1));
        return !zimg_filter_graph_process(fGraph, &in, &out, aligned, nullptr, nullptr, nullptr,
                                          nullptr);
    }

private:
    static constexpr int kAlignment = 64;

    static bool reads(const PixelFormat& format) {
        return format.shape == PixelShape::Planar || format.code == 'BGRA';
    }

    static zimg_image_format format_of(const PixelFormat& format, const PixelColour& colour,
                                       int width, int height) {
        zimg_image_format result;
        zimg_image_format_default(&result, ZIMG_API_VERSION);
        const bool rgb = format.family == PixelFamily::Rgb;
        result.width = width;
        result.height = height;
        result.pixel_type = format.bits == 10 ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
        result.depth = format.bits;
        result.subsample_w = format.shiftX;
        result.subsample_h = format.shiftY;
        result.color_family = rgb                                  ? ZIMG_COLOR_RGB
                              : format.family == PixelFamily::Grey ? ZIMG_COLOR_GREY
                                                                   : ZIMG_COLOR_YUV;
        const auto matrix =
            colour.matrix == PixelMatrix::Bt709 ? ZIMG_MATRIX_BT709 : ZIMG_MATRIX_ST170_M;
        result.matrix_coefficients = rgb ? ZIMG_MATRIX_RGB : matrix;
        result.pixel_range =
            colour.range == PixelRange::Full ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
        result.chroma_location = ZIMG_CHROMA_LEFT;
        return result;
    }

    zimg_filter_graph* fGraph = nullptr;
    std::vector<unsigned char> fMemory;
};

}  // namespace Quillon::Orb
