#include "tests/movies/LibavReader.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
}

namespace {

constexpr int kBufferSize = 32768;

std::string* gComplaints = nullptr;  // of the reading that is under way
bool gEmpty = false;

void note(void*, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_WARNING || gComplaints == nullptr) return;
    char text[512];
    vsnprintf(text, sizeof text, format, arguments);
    if (strstr(text, "Guessed Channel Layout")) return;
    // Nothing tells what pictures that are not there would be like, and the library says so.
    if (gEmpty && (strstr(text, "Could not find codec parameters") || strstr(text, "Consider")))
        return;
    *gComplaints += text;
}

struct Image {
    const std::vector<unsigned char>* bytes;
    long long position;
};

int read_image(void* opaque, uint8_t* target, int size) {
    auto& image = *static_cast<Image*>(opaque);
    const auto length = static_cast<long long>(image.bytes->size());
    const long long count = std::min<long long>(size, length - image.position);
    if (count <= 0) return AVERROR_EOF;
    memcpy(target, image.bytes->data() + image.position, static_cast<std::size_t>(count));
    image.position += count;
    return static_cast<int>(count);
}

int64_t seek_image(void* opaque, int64_t offset, int whence) {
    auto& image = *static_cast<Image*>(opaque);
    const auto length = static_cast<long long>(image.bytes->size());
    if (whence == AVSEEK_SIZE) return length;
    if (whence == SEEK_CUR) offset += image.position;
    if (whence == SEEK_END) offset += length;
    return image.position = offset;
}

ReaderOpinion read_all(AVFormatContext* input, const char* path, bool decodable, bool empty) {
    ReaderOpinion opinion;
    gComplaints = &opinion.complaints;
    gEmpty = empty;
    av_log_set_callback(note);
    if (!input) input = avformat_alloc_context();
    if (!decodable) input->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    if (avformat_open_input(&input, path, nullptr, nullptr) < 0) {
        opinion.complaints += "cannot be opened\n";
    } else {
        if (decodable && avformat_find_stream_info(input, nullptr) < 0)
            opinion.complaints += "no stream information\n";
        AVPacket* packet = av_packet_alloc();
        int error = 0;
        while ((error = av_read_frame(input, packet)) >= 0) {
            if (packet->flags & AV_PKT_FLAG_CORRUPT) opinion.complaints += "a packet is cut off\n";
            av_packet_unref(packet);
        }
        if (error != AVERROR_EOF) opinion.complaints += "reading ends in an error\n";
        av_packet_free(&packet);
        opinion.seconds = static_cast<double>(input->duration) / AV_TIME_BASE;
        avformat_close_input(&input);
    }
    av_log_set_callback(av_log_default_callback);
    gComplaints = nullptr;
    return opinion;
}

}  // namespace

ReaderOpinion LibavRead(const std::string& path, bool decodable, bool empty) {
    return read_all(nullptr, path.c_str(), decodable, empty);
}

ReaderOpinion LibavRead(const std::vector<unsigned char>& bytes, bool decodable, bool empty) {
    Image image{&bytes, 0};
    AVFormatContext* input = avformat_alloc_context();
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
    AVIOContext* io =
        avio_alloc_context(buffer, kBufferSize, 0, &image, read_image, nullptr, seek_image);
    input->pb = io;
    const ReaderOpinion opinion = read_all(input, "image", decodable, empty);
    av_freep(&io->buffer);
    avio_context_free(&io);
    return opinion;
}
