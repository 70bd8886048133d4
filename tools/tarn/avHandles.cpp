#include "avHandles.h"

#include <fmt/format.h>

void QuietenAv() {
    av_log_set_level(AV_LOG_PANIC);
}

std::string AvErrorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

bool AvTrack::Open(const std::string& path, AVMediaType kind, std::string& error) {
    error.clear();
    AVFormatContext* opened = nullptr;
    int code = avformat_open_input(&opened, path.c_str(), nullptr, nullptr);
    file.reset(opened);
    if (code >= 0) code = avformat_find_stream_info(file.get(), nullptr);
    if (code < 0) {
        error = fmt::format("'{}': cannot be read as a clip ({}); give a file that ffprobe opens",
                            path, AvErrorText(code));
        return false;
    }
    const AVCodec* codec = nullptr;
    const int index = av_find_best_stream(file.get(), kind, -1, -1, &codec, 0);
    if (index == AVERROR_STREAM_NOT_FOUND) return false;
    const char* what = av_get_media_type_string(kind);
    if (index < 0) {
        error = fmt::format("'{}': no decoder for its {} track; install one or convert the clip",
                            path, what);
        return false;
    }
    for (unsigned int i = 0; i < file->nb_streams; ++i) {
        if (static_cast<int>(i) != index) file->streams[i]->discard = AVDISCARD_ALL;
    }
    stream = file->streams[index];
    decoder.reset(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(decoder.get(), stream->codecpar);
    decoder->pkt_timebase = stream->time_base;
    decoder->thread_count = kind == AVMEDIA_TYPE_VIDEO ? 2 : 1;
    code = avcodec_open2(decoder.get(), codec, nullptr);
    if (code < 0) {
        error = fmt::format("'{}': its {} track ({}) cannot be decoded: {}", path, what,
                            codec->name, AvErrorText(code));
        return false;
    }
    packet.reset(av_packet_alloc());
    return true;
}

bool AvTrack::Decode(AVFrame& frame) {
    while (true) {
        const int got = avcodec_receive_frame(decoder.get(), &frame);
        if (got >= 0) return true;
        if (got == AVERROR_EOF || (got != AVERROR(EAGAIN) && drained)) return false;
        if (av_read_frame(file.get(), packet.get()) < 0) {
            avcodec_send_packet(decoder.get(), nullptr);
            drained = true;
            continue;
        }
        if (packet->stream_index == stream->index) avcodec_send_packet(decoder.get(), packet.get());
        av_packet_unref(packet.get());
    }
}
