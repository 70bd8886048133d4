#include "tests/movies/MediaClip.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "tests/movies/MovieFolder.h"

using Quillon::Orb::MovieSample;
using Quillon::Orb::MovieTrack;

namespace {

unsigned int pcm_format(AVCodecID codec) {
    switch (codec) {
        case AV_CODEC_ID_PCM_S16LE:
            return 'sowt';
        case AV_CODEC_ID_PCM_S16BE:
            return 'twos';
        case AV_CODEC_ID_PCM_S24LE:
            return '42ni';
        case AV_CODEC_ID_PCM_S24BE:
            return 'in24';
        case AV_CODEC_ID_PCM_S32LE:
            return '23ni';
        case AV_CODEC_ID_PCM_S32BE:
            return 'in32';
        case AV_CODEC_ID_PCM_F32LE:
            return '23lf';
        case AV_CODEC_ID_PCM_F32BE:
            return 'fl32';
        default:
            return 0;
    }
}

unsigned int video_format(const AVCodecParameters& codec) {
    if (codec.codec_id == AV_CODEC_ID_H264) return 'avc1';
    if (codec.codec_id == AV_CODEC_ID_MJPEG) return 'jpeg';
    if (codec.codec_id == AV_CODEC_ID_MPEG2VIDEO) return 'mp2v';
    return __builtin_bswap32(codec.codec_tag);
}

MovieTrack describe(const AVStream& stream) {
    const AVCodecParameters& codec = *stream.codecpar;
    MovieTrack track;
    track.timescale = stream.time_base.den / stream.time_base.num;
    track.bitRate = static_cast<int>(codec.bit_rate);
    track.decoderConfiguration.assign(codec.extradata, codec.extradata + codec.extradata_size);
    if (codec.codec_type == AVMEDIA_TYPE_VIDEO) {
        track.format = video_format(codec);
        track.width = codec.width;
        track.height = codec.height;
        track.frameDuration =
            av_rescale(track.timescale, stream.avg_frame_rate.den, stream.avg_frame_rate.num);
        track.reordered = codec.video_delay > 0;
        track.colour = {1, 1, 1, false};
        return track;
    }
    track.kind = MovieTrack::Kind::Audio;
    track.channels = codec.ch_layout.nb_channels;
    track.sampleRate = codec.sample_rate;
    track.format = codec.codec_id == AV_CODEC_ID_AAC ? 'mp4a' : pcm_format(codec.codec_id);
    track.bitsPerSample = codec.bits_per_coded_sample;
    if (codec.codec_id == AV_CODEC_ID_AAC) {
        track.framesPerPacket = 1024;
        track.primingFrames = codec.initial_padding > 0 ? codec.initial_padding : 1024;
    } else {
        track.bytesPerPacket = track.channels * av_get_bits_per_sample(codec.codec_id) / 8;
    }
    return track;
}

}  // namespace

MediaClip ReadClip(const std::string& path) {
    AVFormatContext* input = nullptr;
    if (avformat_open_input(&input, path.c_str(), nullptr, nullptr) < 0)
        throw std::runtime_error("cannot open " + path);
    if (avformat_find_stream_info(input, nullptr) < 0) throw std::runtime_error("no streams");
    MediaClip clip;
    clip.path = path;
    for (unsigned int i = 0; i < input->nb_streams; i++)
        clip.tracks.push_back(describe(*input->streams[i]));
    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(input, packet) >= 0) {
        MediaClip::Sample sample;
        sample.track = packet->stream_index;
        sample.data.assign(packet->data, packet->data + packet->size);
        const MovieTrack& track = clip.tracks[static_cast<std::size_t>(sample.track)];
        sample.described.decodeTime = packet->dts;
        sample.described.compositionOffset = packet->pts - packet->dts;
        sample.described.duration = packet->duration;
        sample.described.key = (packet->flags & AV_PKT_FLAG_KEY) != 0;
        if (track.bytesPerPacket > 0)
            sample.described.packets = packet->size / track.bytesPerPacket;
        clip.samples.push_back(std::move(sample));
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&input);
    return clip;
}

MovieSample MediaClip::Described(std::size_t index) const {
    MovieSample sample = samples[index].described;
    sample.data = samples[index].data.data();
    sample.size = samples[index].data.size();
    return sample;
}

const MediaClip& MakeClip(const std::string& arguments, const std::string& suffix) {
    static std::map<std::string, MediaClip> made;
    const auto found = made.find(arguments + suffix);
    if (found != made.end()) return found->second;
    const std::string path = MovieFolder() + "/clip" + std::to_string(made.size()) + "." + suffix;
    const std::string command = "ffmpeg -nostdin -v error -y " + arguments + " " + path;
    if (std::system(command.c_str()) != 0) throw std::runtime_error(command);
    return made[arguments + suffix] = ReadClip(path);
}

const MediaClip& H264AacClip() {
    return MakeClip(
        "-f lavfi -i testsrc2=s=320x180:r=25:d=2 -f lavfi -i sine=f=440:r=48000:d=2 "
        "-c:v libx264 -preset veryfast -bf 2 -g 12 -pix_fmt yuv420p -threads 1 -c:a aac -b:a 96k");
}

const MediaClip& ProResPcmClip() {
    return MakeClip(
        "-f lavfi -i testsrc2=s=320x180:r=30000/1001:d=2 -f lavfi -i sine=f=440:r=48000:d=2 "
        "-c:v prores_ks -profile:v 3 -pix_fmt yuv422p10le -c:a pcm_s16le");
}
