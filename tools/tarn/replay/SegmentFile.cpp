#include "SegmentFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

namespace {

/// libavformat spells a tag from its first character in the low byte, we from the high one.
unsigned int as_code(unsigned int tag) {
    return __builtin_bswap32(tag);
}

/// A track whose ticks are no whole part of a second stays one that is not there.
void describe(const AVStream& stream, SegmentFormat& track) {
    const AVCodecParameters& coded = *stream.codecpar;
    if (stream.time_base.num != 1) return;
    track.codec = coded.codec_id;
    track.tag = as_code(coded.codec_tag);
    track.timescale = stream.time_base.den;
    track.width = coded.width;
    track.height = coded.height;
    track.channels = coded.ch_layout.nb_channels;
    track.framesPerPacket = coded.frame_size;
    // Not as the file's own reader gives it: that leaves the size open for 16 bits.
    track.frameBytes = av_get_bits_per_sample(coded.codec_id) * track.channels / 8;
    if (coded.extradata_size > 0) {
        track.decoderInfo.assign(coded.extradata, coded.extradata + coded.extradata_size);
    }
}

void take_packet(AVPacket& packet, long long origin, SegmentTrack& track) {
    SegmentPacket taken;
    taken.show = origin + (packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts);
    taken.decode = packet.dts != AV_NOPTS_VALUE ? origin + packet.dts : taken.show;
    taken.duration = packet.duration;
    taken.isKey = (packet.flags & AV_PKT_FLAG_KEY) != 0;
    taken.bytes.reset(av_packet_clone(&packet));
    if (taken.bytes) track.packets.push_back(std::move(taken));
}

long long ticks_of(long long time, int timescale) {
    return av_rescale(time, timescale, kReplayUnitsPerSecond);
}

}  // namespace

bool SegmentFormat::FitsTo(const SegmentFormat& other) const {
    return codec == other.codec && tag == other.tag && timescale == other.timescale &&
           width == other.width && height == other.height && channels == other.channels &&
           frameBytes == other.frameBytes && decoderInfo == other.decoderInfo;
}

void RaiseFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

SegmentFile::SegmentFile(SegmentFile&& other) noexcept
    : fPiece(std::move(other.fPiece)), fFile(std::exchange(other.fFile, -1)) {}

SegmentFile::~SegmentFile() {
    if (fFile >= 0) close(fFile);
}

bool SegmentFile::Hold(const ReplayPiece& piece, std::string& error) {
    fPiece = piece;
    fFile = open(piece.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fFile >= 0) return true;
    error = fmt::format("'{}': cannot be opened: {}; was it deleted meanwhile?", piece.path,
                        std::strerror(errno));
    return false;
}

std::string SegmentFile::Path() const {
    return fmt::format("/proc/self/fd/{}", fFile);
}

bool SegmentFile::Load(SegmentTrack& video, SegmentTrack& audio, std::string& error) const {
    AVFormatContext* opened = nullptr;
    int code = avformat_open_input(&opened, Path().c_str(), nullptr, nullptr);
    const AvHandle<AVFormatContext> file(opened);
    if (code >= 0) code = avformat_find_stream_info(file.get(), nullptr);
    if (code < 0) {
        error = fmt::format("'{}': cannot be read: {}", fPiece.path, AvErrorText(code));
        return false;
    }
    SegmentTrack* tracks[2] = {&video, &audio};
    const AVMediaType kinds[2] = {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO};
    int indices[2];
    for (int kind = 0; kind < 2; ++kind) {
        *tracks[kind] = {};
        indices[kind] = av_find_best_stream(file.get(), kinds[kind], -1, -1, nullptr, 0);
        if (indices[kind] >= 0) describe(*file->streams[indices[kind]], *tracks[kind]);
    }
    const AvHandle<AVPacket> packet(av_packet_alloc());
    bool isWhole = true;
    while ((code = av_read_frame(file.get(), packet.get())) >= 0) {
        isWhole = isWhole && (packet->flags & AV_PKT_FLAG_CORRUPT) == 0;
        for (int kind = 0; kind < 2; ++kind) {
            if (packet->stream_index != indices[kind] || !tracks[kind]->IsThere()) continue;
            take_packet(*packet, ticks_of(fPiece.start, tracks[kind]->timescale), *tracks[kind]);
        }
        av_packet_unref(packet.get());
    }
    for (int kind = 0; kind < 2; ++kind) {
        if (!tracks[kind]->IsThere()) continue;
        // A file that was cut between two packets is at its end there too; its index knows more.
        const int listed = avformat_index_get_entries_count(file->streams[indices[kind]]);
        isWhole = isWhole && tracks[kind]->packets.size() >= static_cast<std::size_t>(listed);
    }
    if (isWhole && code == AVERROR_EOF) return true;
    error = fmt::format("'{}': is damaged: {}; cut up to it, and from behind it", fPiece.path,
                        code == AVERROR_EOF ? "it has been cut off" : AvErrorText(code));
    return false;
}
