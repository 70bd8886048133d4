#include "AvTrack.h"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

#include "spar/zTime.h"

#include "StopSignal.h"

// FFmpeg asks every now and then while it waits.
int AvTrack::gives_up(void* waiting) {
    constexpr long long kPatienceUs = 500'000;
    AvTrack& track = *static_cast<AvTrack*>(waiting);
    if (StopAsked() && zTime::MicroNow() - track.fWaitsSinceUs > kPatienceUs) track.fGaveUp = true;
    return track.fGaveUp;
}

namespace {

bool has_film(const AVFormatContext& file) {
    return std::any_of(file.streams, file.streams + file.nb_streams, [](const AVStream* stream) {
        return stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && stream->nb_frames > 1;
    });
}

// The search takes the cover of an album for a film, and so must not see it. Not every cover is
// marked as one: beside a film it is the track of a single picture.
int best_stream(AVFormatContext& file, AVMediaType kind, const AVCodec*& codec) {
    constexpr int kCovers = AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS;
    const bool hasFilm = has_film(file);
    std::vector<AVCodecParameters*> hidden;
    for (unsigned int i = 0; i < file.nb_streams; ++i) {
        AVStream& stream = *file.streams[i];
        if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
        const bool isStill = hasFilm && stream.nb_frames == 1;
        if (!isStill && (stream.disposition & kCovers) == 0) continue;
        stream.codecpar->codec_type = AVMEDIA_TYPE_ATTACHMENT;
        hidden.push_back(stream.codecpar);
    }
    const int index = av_find_best_stream(&file, kind, -1, -1, &codec, 0);
    for (AVCodecParameters* cover : hidden) cover->codec_type = AVMEDIA_TYPE_VIDEO;
    return index;
}

std::vector<bool> tracks_that_tell_their_length(const AVFormatContext& file) {
    std::vector<bool> tell;
    for (unsigned int i = 0; i < file.nb_streams; ++i) {
        tell.push_back(file.streams[i]->duration > 0);
    }
    return tell;
}

}  // namespace

bool AvTrack::Open(const std::string& path, AVMediaType kind, std::string& error) {
    error.clear();
    AVFormatContext* opened = avformat_alloc_context();
    if (opened) opened->interrupt_callback = {&AvTrack::gives_up, this};
    fWaitsSinceUs = zTime::MicroNow();
    int code = avformat_open_input(&opened, AvUrl(path).c_str(), nullptr, nullptr);
    file.reset(opened);
    // What looks into the tracks gives those without a length that of the whole.
    std::vector<bool> tellLength;
    if (code >= 0) tellLength = tracks_that_tell_their_length(*file);
    if (code >= 0) code = avformat_find_stream_info(file.get(), nullptr);
    if (code == AVERROR_EXIT) {
        error = fmt::format("'{}': stopped before it could be opened", path);
        return false;
    }
    if (code < 0) {
        error = fmt::format("'{}': cannot be read as a clip ({}); give a file that ffprobe opens",
                            path, AvErrorText(code));
        return false;
    }
    const AVCodec* codec = nullptr;
    const int index = best_stream(*file, kind, codec);
    if (index == AVERROR_STREAM_NOT_FOUND) return false;
    const char* what = av_get_media_type_string(kind);
    if (index < 0) {
        error = fmt::format("'{}': no decoder for its {} track; install one or convert the clip",
                            path, what);
        return false;
    }
    stream = file->streams[index];
    const auto number = static_cast<std::size_t>(index);
    read_only_what_is_needed(number < tellLength.size() && tellLength[number]);
    code = open_decoder(*codec);
    if (code < 0) {
        error = fmt::format("'{}': its {} track ({}) cannot be decoded: {}; convert the clip", path,
                            what, codec->name, AvErrorText(code));
        return false;
    }
    packet.reset(av_packet_alloc());
    return true;
}

int AvTrack::open_decoder(const AVCodec& codec) {
    decoder.reset(avcodec_alloc_context3(&codec));
    avcodec_parameters_to_context(decoder.get(), stream->codecpar);
    decoder->pkt_timebase = stream->time_base;
    decoder->thread_count = codec.type == AVMEDIA_TYPE_VIDEO ? 2 : 1;
    return avcodec_open2(decoder.get(), &codec, nullptr);
}

// Some containers tell the length of the whole alone, which is that of its longest track: then all
// of them are read to see whether one comes to that end. Of programs, such as the same film in
// several sizes, each would be fetched for it.
void AvTrack::read_only_what_is_needed(bool tellsItsLength) {
    const bool isTold =
        file->duration > 0 && file->duration_estimation_method == AVFMT_DURATION_FROM_STREAM;
    fWatchesWhole = isTold && !tellsItsLength && (file->nb_programs == 0 || file->nb_streams == 1);
    if (fWatchesWhole) return;
    for (unsigned int i = 0; i < file->nb_streams; ++i) {
        if (file->streams[i] != stream) file->streams[i]->discard = AVDISCARD_ALL;
    }
}

void AvTrack::note_end_of_packet() {
    const long long at = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    if (at == AV_NOPTS_VALUE || (packet->flags & AV_PKT_FLAG_CORRUPT) != 0) return;
    const double tick = av_q2d(file->streams[packet->stream_index]->time_base);
    fWholeReached = std::max(fWholeReached, static_cast<double>(at + packet->duration) * tick);
}

bool AvTrack::Decode(AVFrame& frame) {
    while (true) {
        const int got = avcodec_receive_frame(decoder.get(), &frame);
        if (got >= 0) {
            const long long end = frame.best_effort_timestamp + frame.pkt_duration;
            if (frame.best_effort_timestamp != AV_NOPTS_VALUE) {
                fReached = std::max(fReached, static_cast<double>(end) * av_q2d(stream->time_base));
            }
            return true;
        }
        if (got == AVERROR_EOF || (got != AVERROR(EAGAIN) && drained)) return false;
        fWaitsSinceUs = zTime::MicroNow();
        const int read = av_read_frame(file.get(), packet.get());
        if (read < 0) {
            fCutInside = fCutInside || read != AVERROR_EOF;
            avcodec_send_packet(decoder.get(), nullptr);
            drained = true;
            continue;
        }
        note_end_of_packet();
        if (packet->stream_index == stream->index) {
            fCutInside = (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
            avcodec_send_packet(decoder.get(), packet.get());
        }
        av_packet_unref(packet.get());
    }
}

// Where the header says that the track ends; 0 when it does not, or only guesses.
double AvTrack::end_seconds() const {
    if (file->duration_estimation_method != AVFMT_DURATION_FROM_STREAM) return 0;
    if (fWatchesWhole) return end_of_whole();
    if (stream->duration <= 0) return 0;
    const double tick = av_q2d(stream->time_base);
    const double start =
        stream->start_time == AV_NOPTS_VALUE ? 0 : static_cast<double>(stream->start_time) * tick;
    return start + static_cast<double>(stream->duration) * tick;
}

// Some writers mean the time from the first picture on, others that from 0 on: where either is
// possible, the one that asks for less.
double AvTrack::end_of_whole() const {
    const double length = HeaderSeconds();
    const double start = file->start_time == AV_NOPTS_VALUE
                             ? 0
                             : static_cast<double>(file->start_time) / AV_TIME_BASE;
    return length > 0 && start > length ? start + length : length;
}

double AvTrack::HeaderSeconds() const {
    return file->duration > 0 ? static_cast<double>(file->duration) / AV_TIME_BASE : 0;
}

std::string AvTrack::EndedEarly() const {
    constexpr double kSlackSeconds = 0.5;  // headers round, and count frames that decoders drop
    constexpr double kSlackFrames = 3;
    const double rate = stream->avg_frame_rate.num > 0 ? av_q2d(stream->avg_frame_rate) : 0;
    const double slack = std::max(kSlackSeconds, rate > 0 ? kSlackFrames / rate : 0);
    const double end = end_seconds();
    const double reached = fWatchesWhole ? std::max(fReached, fWholeReached) : fReached;
    if (end - reached > slack) {
        return fmt::format("ends at {:.1f} of {:.1f} seconds, as if it had been cut off", reached,
                           end);
    }
    return fCutInside ? fmt::format("breaks off inside a packet at {:.1f} seconds", fReached) : "";
}
