#include "MovieOnDisk.h"

#include <algorithm>

#include "avHandles.h"

namespace {

long long bytes_of(AVStream& track) {
    long long bytes = 0;
    for (int i = 0; i < avformat_index_get_entries_count(&track); ++i) {
        bytes += avformat_index_get_entry(&track, i)->size;
    }
    return bytes;
}

}  // namespace

MovieOnDisk ReadMovieOnDisk(const std::string& path) {
    MovieOnDisk movie;
    AVFormatContext* opened = nullptr;
    const int code = avformat_open_input(&opened, ("file:" + path).c_str(), nullptr, nullptr);
    const AvHandle<AVFormatContext> file(opened);
    if (code < 0) {
        movie.trouble = AvErrorText(code);
        return movie;
    }
    movie.opens = true;
    for (unsigned int i = 0; i < file->nb_streams; ++i) {
        AVStream& track = *file->streams[i];
        const double length = static_cast<double>(track.duration) * av_q2d(track.time_base);
        if (track.duration > 0) movie.seconds = std::max(movie.seconds, length);
        if (track.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
            movie.frames = track.nb_frames;
            movie.videoBytes += bytes_of(track);
        } else if (track.codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
            movie.audioBytes += bytes_of(track);
            movie.audioPackets += avformat_index_get_entries_count(&track);
        }
    }
    return movie;
}
