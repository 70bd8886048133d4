// Raw pictures read and encoded by libavcodec in one tight loop, the packets thrown away: what the
// encoder takes with little around it. record_beside_ffmpeg.py runs it beside the two whole
// programs. Its reading waits for the encoder, so that a program that reads on another thread can
// come out ahead of it.
//
//   bare_encoder RAW.y4m ENCODER [OPTION=VALUE...]     options as libavcodec names them
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

#include <cstdio>
#include <cstdlib>

#include "tools/tarn/avHandles.h"

namespace {

[[noreturn]] void give_up(const char* what, const char* which) {
    std::fprintf(stderr, "bare_encoder: %s '%s'\n", what, which);
    std::exit(EXIT_FAILURE);
}

class BareEncoder {
public:
    void OpenClip(const char* path);
    void OpenEncoder(const char* name, int count, char** options);
    /// Encodes the whole clip and returns how many packets came out.
    long long Run();

private:
    void encode(const AVFrame* frame);

    AvHandle<AVFormatContext> fClip;
    AvHandle<AVCodecContext> fDecoder;
    AvHandle<AVCodecContext> fEncoder;
    AvHandle<AVPacket> fPacket{av_packet_alloc()};
    AVRational fRate{1, 1};
    long long fPackets = 0;
};

void BareEncoder::OpenClip(const char* path) {
    AVFormatContext* clip = nullptr;
    if (avformat_open_input(&clip, path, nullptr, nullptr) < 0) give_up("cannot open", path);
    fClip.reset(clip);
    const AVStream& stream = *clip->streams[0];
    const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
    fDecoder.reset(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(fDecoder.get(), stream.codecpar);
    if (avcodec_open2(fDecoder.get(), codec, nullptr) < 0) give_up("cannot decode", path);
    fRate = stream.avg_frame_rate;
}

void BareEncoder::OpenEncoder(const char* name, int count, char** options) {
    const AVCodec* codec = avcodec_find_encoder_by_name(name);
    if (!codec) give_up("no encoder", name);
    fEncoder.reset(avcodec_alloc_context3(codec));
    fEncoder->width = fDecoder->width;
    fEncoder->height = fDecoder->height;
    fEncoder->pix_fmt = fDecoder->pix_fmt;
    fEncoder->framerate = fRate;
    fEncoder->time_base = av_inv_q(fRate);
    AVDictionary* left = nullptr;
    for (int i = 0; i < count; ++i) av_dict_parse_string(&left, options[i], "=", "", 0);
    if (avcodec_open2(fEncoder.get(), codec, &left) < 0) give_up("cannot open the encoder", name);
    const AVDictionaryEntry* unknown = av_dict_get(left, "", nullptr, AV_DICT_IGNORE_SUFFIX);
    if (unknown) give_up("the encoder has no option", unknown->key);
}

void BareEncoder::encode(const AVFrame* frame) {
    if (avcodec_send_frame(fEncoder.get(), frame) < 0) give_up("cannot encode", fClip->url);
    while (avcodec_receive_packet(fEncoder.get(), fPacket.get()) == 0) {
        ++fPackets;
        av_packet_unref(fPacket.get());
    }
}

long long BareEncoder::Run() {
    AvHandle<AVPacket> raw(av_packet_alloc());
    AvHandle<AVFrame> frame(av_frame_alloc());
    long long time = 0;
    while (av_read_frame(fClip.get(), raw.get()) == 0) {
        avcodec_send_packet(fDecoder.get(), raw.get());
        av_packet_unref(raw.get());
        while (avcodec_receive_frame(fDecoder.get(), frame.get()) == 0) {
            frame->pts = time++;
            frame->pict_type = AV_PICTURE_TYPE_NONE;
            encode(frame.get());
        }
    }
    encode(nullptr);
    return fPackets;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) give_up("usage: RAW.y4m ENCODER [OPTION=VALUE...]; got", argv[0]);
    BareEncoder bare;
    bare.OpenClip(argv[1]);
    bare.OpenEncoder(argv[2], argc - 3, argv + 3);
    if (bare.Run() == 0) give_up("no pictures in", argv[1]);
}
