#include "orb/ffmpeg/AvMovieFile.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "orb/CAudioProperties.h"
#include "orb/Result.h"

namespace Quillon::Orb {

namespace {

struct ContainerName {
    unsigned int type;
    const char* name;
};

constexpr ContainerName kContainers[] = {{'mov ', "mov"}, {'mp4 ', "mp4"}, {'ts  ', "mpegts"}};

struct CodecOf {
    unsigned int format;
    AVCodecID codec;
    bool keepsTag;  ///< the format's own code stands in the file
};

constexpr CodecOf kCodecs[] = {
    {'avc1', AV_CODEC_ID_H264, false},
    {'apco', AV_CODEC_ID_PRORES, true},
    {'apcs', AV_CODEC_ID_PRORES, true},
    {'apcn', AV_CODEC_ID_PRORES, true},
    {'apch', AV_CODEC_ID_PRORES, true},
    {'ap4h', AV_CODEC_ID_PRORES, true},
    {'jpeg', AV_CODEC_ID_MJPEG, false},
    {'mp2v', AV_CODEC_ID_MPEG2VIDEO, false},
    {'mp4a', AV_CODEC_ID_AAC, false},
    {'sowt', AV_CODEC_ID_PCM_S16LE, false},
    {'twos', AV_CODEC_ID_PCM_S16BE, false},
    {CAudioProperties::kFloat32Little, AV_CODEC_ID_PCM_F32LE, false},
    {'fl32', AV_CODEC_ID_PCM_F32BE, false},
    {'in24', AV_CODEC_ID_PCM_S24BE, false},
    {__builtin_bswap32('in24'), AV_CODEC_ID_PCM_S24LE, false},
    {'in32', AV_CODEC_ID_PCM_S32BE, false},
    {__builtin_bswap32('in32'), AV_CODEC_ID_PCM_S32LE, false},
};

/// The frames that a stream is delayed by when its encoder did not say how it reorders.
constexpr int kAssumedReorderDepth = 2;

Result failure_of(const std::string& path, const char* what, int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return ResultError("%s %s: %s", what, path.c_str(), text);
}

AVFieldOrder field_order_of(int order) {
    // FFmpeg's names of woven fields; TT and BB are stored apart.
    if (order == 2) return AV_FIELD_TB;
    return order == 3 ? AV_FIELD_BT : AV_FIELD_PROGRESSIVE;
}

void describe_video(const MovieTrack& track, AVStream& stream) {
    AVCodecParameters& codec = *stream.codecpar;
    codec.codec_type = AVMEDIA_TYPE_VIDEO;
    codec.width = track.width;
    codec.height = track.height;
    codec.field_order = field_order_of(track.fieldOrder);
    codec.sample_aspect_ratio = {track.pixelAspectNumerator, track.pixelAspectDenominator};
    stream.sample_aspect_ratio = codec.sample_aspect_ratio;
    const MovieColour& colour = track.colour;
    codec.color_primaries = static_cast<AVColorPrimaries>(colour.primaries ? colour.primaries : 2);
    codec.color_trc =
        static_cast<AVColorTransferCharacteristic>(colour.transfer ? colour.transfer : 2);
    codec.color_space = static_cast<AVColorSpace>(colour.matrix ? colour.matrix : 2);
    codec.color_range = colour.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (track.frameDuration > 0) {
        stream.avg_frame_rate =
            av_make_q(static_cast<int>(track.timescale), static_cast<int>(track.frameDuration));
    }
}

void describe_audio(const MovieTrack& track, AVStream& stream) {
    AVCodecParameters& codec = *stream.codecpar;
    codec.codec_type = AVMEDIA_TYPE_AUDIO;
    codec.sample_rate = track.sampleRate;
    av_channel_layout_default(&codec.ch_layout, track.channels);
    codec.bits_per_coded_sample = track.bitsPerSample;
    codec.block_align = track.bytesPerPacket;
    codec.bit_rate = track.bitRate;
    if (track.bytesPerPacket == 0) codec.frame_size = track.framesPerPacket;
    codec.initial_padding = static_cast<int>(track.primingFrames);
}

/// How far a receiver's buffer may run behind: what the ffmpeg program uses.
constexpr int kTransportDelayUs = 700000;

bool is_address(const std::string& path) {
    return path.find("://") != std::string::npos;
}

/// The scheme keeps a name such as "a:b.mov" from being taken for an address. Datagrams hold whole
/// transport packets, seven of which fit a network frame.
std::string url_of(const std::string& path) {
    if (!is_address(path)) return "file:" + path;
    const bool isUdp = path.rfind("udp://", 0) == 0;
    if (!isUdp || path.find("pkt_size=") != std::string::npos) return path;
    return path + (path.find('?') == std::string::npos ? "?" : "&") + "pkt_size=1316";
}

class AvMovieFile : public MovieFile {
public:
    AvMovieFile(const char* path, const MovieFileOptions& options, const char* format)
        : fPath(path), fOptions(options), fFormat(format) {
        avformat_alloc_output_context2(&fContext, nullptr, format, url_of(fPath).c_str());
        if (fContext && fFormat == "mpegts") {
            fContext->max_delay = kTransportDelayUs;
            // Receivers wait for it, and a file that waits in memory is lost with the program.
            fContext->flags |= AVFMT_FLAG_FLUSH_PACKETS;
        }
        fPacket = av_packet_alloc();
    }
    ~AvMovieFile() override {
        av_packet_free(&fPacket);
        if (!fContext) return;
        avio_closep(&fContext->pb);
        avformat_free_context(fContext);
    }

    int AddTrack(const MovieTrack& track) override;
    Result Begin() override;
    Result WriteSample(int track, const MovieSample& sample) override;
    Result Finish() override;

private:
    struct Track {
        AVRational timebase;
        long long decodeDelay;  ///< ticks by which decode times are told earlier
        long long shift;        ///< ticks by which all times are told earlier: priming
        long long lastTime;     ///< decode time of the packet before
        bool isVideo;
        long long frameDuration;
        long long head = 0;     ///< ticks of the stream by which all tracks start later
        long long restart = 0;  ///< ticks by which the host's clock has begun anew
        long long newest = std::numeric_limits<long long>::min();  ///< latest decode time

        long long DecodeTime(long long told);
    };

    Result begin_tracks();
    void keep_times_positive();

    const std::string fPath;
    const MovieFileOptions fOptions;
    const std::string fFormat;
    AVFormatContext* fContext = nullptr;
    AVPacket* fPacket = nullptr;
    std::vector<Track> fTracks;
    long long fVideoTimescale = 0;
    bool fBegun = false;
};

int AvMovieFile::AddTrack(const MovieTrack& track) {
    const CodecOf* found = nullptr;
    for (const CodecOf& codec : kCodecs) {
        if (codec.format == track.format) found = &codec;
    }
    if (!found || !fContext || track.timescale < 1) return ResultNotSupported::kCode;
    AVStream* stream = avformat_new_stream(fContext, nullptr);
    if (!stream) return ResultOutOfMemory::kCode;
    AVCodecParameters& codec = *stream->codecpar;
    codec.codec_id = found->codec;
    if (found->keepsTag) codec.codec_tag = __builtin_bswap32(track.format);
    stream->time_base = {1, static_cast<int>(track.timescale)};
    Track own{stream->time_base,
              0,
              0,
              std::numeric_limits<long long>::min(),
              track.kind == MovieTrack::Kind::Video,
              track.frameDuration};
    if (own.isVideo) {
        describe_video(track, *stream);
        fVideoTimescale = track.timescale;
        const int depth = track.reorderDepth < 0 ? kAssumedReorderDepth : track.reorderDepth;
        if (track.reordered) own.decodeDelay = depth * track.frameDuration;
    } else {
        describe_audio(track, *stream);
        if (fOptions.trimAudio) own.shift = track.primingFrames;
    }
    const std::size_t size = track.decoderConfiguration.size();
    if (size > 0) {
        codec.extradata =
            static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
        if (!codec.extradata) return ResultOutOfMemory::kCode;
        std::memcpy(codec.extradata, track.decoderConfiguration.data(), size);
        codec.extradata_size = static_cast<int>(size);
    }
    fTracks.push_back(own);
    return static_cast<int>(fTracks.size()) - 1;
}

Result AvMovieFile::Begin() {
    if (!fContext || !fPacket) return ResultOutOfMemory();
    const int code = avio_open(&fContext->pb, fContext->url, AVIO_FLAG_WRITE);
    if (code < 0) return failure_of(fPath, "cannot create", code);
    // A file without tracks has no head to write; it stays empty.
    return fTracks.empty() ? Result(0) : begin_tracks();
}

Result AvMovieFile::begin_tracks() {
    AVDictionary* options = nullptr;
    if (fFormat != "mpegts") {
        av_dict_set(&options, "movflags",
                    fOptions.fastStart ? "+faststart+write_colr" : "+write_colr", 0);
        av_dict_set(&options, "use_editlist", "1", 0);
        if (fVideoTimescale > 0) {
            av_dict_set_int(&options, "video_track_timescale", fVideoTimescale, 0);
        }
    }
    const int code = avformat_write_header(fContext, &options);
    av_dict_free(&options);
    if (code < 0) return failure_of(fPath, "cannot write the head of", code);
    keep_times_positive();
    fBegun = true;
    return 0;
}

/// Transport streams have no time before 0, where decode times and priming may lie; a shift that
/// comes in when the first such packet does would tear the tracks apart.
void AvMovieFile::keep_times_positive() {
    if (fFormat != "mpegts") return;
    long long most = 0;
    for (std::size_t i = 0; i < fTracks.size(); ++i) {
        const Track& track = fTracks[i];
        const long long before = track.decodeDelay + track.shift;
        const AVRational to = fContext->streams[i]->time_base;  // the same for all
        most = std::max<long long>(most, av_rescale_q_rnd(before, track.timebase, to, AV_ROUND_UP));
    }
    for (Track& track : fTracks) track.head = most;
}

/// Pictures that go back by more than a second are another time line: the film goes on where it
/// stands, as in our own files.
long long AvMovieFile::Track::DecodeTime(long long told) {
    long long time = told + restart;
    const bool started = newest != std::numeric_limits<long long>::min();
    if (isVideo && started && newest - time > timebase.den) {
        time = newest + frameDuration;
        restart = time - told;
    }
    newest = std::max(newest, time);
    return time;
}

Result AvMovieFile::WriteSample(int track, const MovieSample& sample) {
    Track& own = fTracks[static_cast<std::size_t>(track)];
    AVStream* stream = fContext->streams[track];
    fPacket->data = const_cast<std::uint8_t*>(sample.data);
    fPacket->size = static_cast<int>(sample.size);
    fPacket->stream_index = track;
    fPacket->flags = sample.key ? AV_PKT_FLAG_KEY : 0;
    const long long time = own.DecodeTime(sample.decodeTime) - own.shift;
    fPacket->dts = time - own.decodeDelay;
    fPacket->pts = time + sample.compositionOffset;
    fPacket->duration = sample.duration;
    // The muxers want decode times that rise; a picture that came too early waits its turn.
    if (fPacket->dts <= own.lastTime) fPacket->dts = own.lastTime + 1;
    if (fPacket->pts < fPacket->dts) fPacket->pts = fPacket->dts;
    own.lastTime = fPacket->dts;
    av_packet_rescale_ts(fPacket, own.timebase, stream->time_base);
    fPacket->dts += own.head;
    fPacket->pts += own.head;
    int code = av_write_frame(fContext, fPacket);
    // The muxer does not look whether its bytes arrive.
    if (code >= 0 && fContext->pb->error < 0) code = fContext->pb->error;
    av_packet_unref(fPacket);
    return code < 0 ? failure_of(fPath, "cannot write", code) : Result(0);
}

Result AvMovieFile::Finish() {
    int code = fBegun ? av_write_trailer(fContext) : 0;
    const int closed = avio_closep(&fContext->pb);
    if (code >= 0) code = closed;
    return code < 0 ? failure_of(fPath, "cannot complete", code) : Result(0);
}

}  // namespace

std::unique_ptr<MovieFile> MakeAvMovieFile(const char* path, const MovieFileOptions& options) {
    for (const ContainerName& container : kContainers) {
        if (container.type == options.containerType) {
            return std::make_unique<AvMovieFile>(path, options, container.name);
        }
    }
    return nullptr;
}

}  // namespace Quillon::Orb
