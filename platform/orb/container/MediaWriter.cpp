#include "MediaWriter.h"

#include <algorithm>

namespace Quillon::Orb {
namespace {

constexpr std::size_t kWriteBytes = 512 * 1024;    // a track that has these is written
constexpr std::size_t kBorrowedBytes = 64 * 1024;  // from here on a sample is not copied
constexpr std::size_t kMostPending = 8192;         // samples; for streams that have no durations
constexpr long long kLargestChunk = 64LL << 20;
constexpr int kChunksPerSecond = 2;

}  // namespace

MediaWriter::MediaWriter(FileLayer& file, Movie& movie)
    : fFile(file), fMovie(movie), fTracks(movie.tracks.size()) {
    for (std::size_t i = 0; i < fTracks.size(); i++) fOrder.push_back(i);
}

void MediaWriter::SetEnd(long long end) {
    if (end != fEnd) fGrowing = kNone;
    fEnd = end;
}

int MediaWriter::Add(std::size_t index, const StoredSample& sample, const unsigned char* data,
                     std::size_t size) {
    const TrackIndex& track = *fMovie.tracks[index];
    PendingSamples& pending = fTracks[index].pending;
    const long long duration = track.NominalDuration(sample);
    const bool borrowed = size >= kBorrowedBytes;
    if (borrowed)
        pending.AddBorrowed(sample, duration);
    else
        pending.Add(sample, duration, data, size);
    const FileSpan bytes{data, borrowed ? size : 0};
    if (pending.Duration() * kChunksPerSecond >= track.Description().timescale ||
        pending.Samples().size() >= kMostPending)
        return flush_all(bytes, index);
    if (borrowed || pending.Bytes().size >= kWriteBytes) return flush_one(index, bytes);
    return 0;
}

int MediaWriter::Flush() {
    return flush_all({nullptr, 0}, 0);
}

int MediaWriter::flush_all(const FileSpan& borrowed, std::size_t borrower) {
    // The one that has borrowed bytes goes last, so that they follow its own.
    std::stable_partition(fOrder.begin(), fOrder.end(),
                          [&](std::size_t i) { return borrowed.size == 0 || i != borrower; });
    const int error = write(fOrder, borrowed);
    std::sort(fOrder.begin(), fOrder.end());
    return error;
}

int MediaWriter::flush_one(std::size_t track, const FileSpan& borrowed) {
    return write({track}, borrowed);
}

int MediaWriter::write(const std::vector<std::size_t>& order, const FileSpan& borrowed) {
    fSpans.clear();
    for (const std::size_t i : order)
        if (!fTracks[i].pending.Empty()) fSpans.push_back(fTracks[i].pending.Bytes());
    if (fSpans.empty()) return 0;
    fSpans.push_back(borrowed);
    const int error = fFile.WriteAt(fEnd, fSpans.data(), static_cast<int>(fSpans.size()));
    if (error != 0) {
        drop_pending();
        return error;
    }
    for (const std::size_t i : order) {
        if (fTracks[i].pending.Empty()) continue;
        auto bytes = static_cast<long long>(fTracks[i].pending.Bytes().size);
        if (i == order.back()) bytes += static_cast<long long>(borrowed.size);
        enter(i, fEnd, bytes);
        fEnd += bytes;
    }
    return 0;
}

/// Enters the pending samples of a track, whose bytes stand at `position`, in the index.
void MediaWriter::enter(std::size_t index, long long position, long long bytes) {
    Track& track = fTracks[index];
    TrackIndex& entries = *fMovie.tracks[index];
    const bool goesOn = fGrowing == index && track.chunkBytes + bytes <= kLargestChunk &&
                        track.chunkDuration * kChunksPerSecond < entries.Description().timescale;
    if (!goesOn) {
        entries.BeginChunk(position);
        track.chunkDuration = 0;
        track.chunkBytes = 0;
        fGrowing = index;
    }
    for (const StoredSample& sample : track.pending.Samples()) entries.Add(sample);
    track.chunkDuration += track.pending.Duration();
    track.chunkBytes += bytes;
    track.pending.Clear();
}

void MediaWriter::drop_pending() {
    for (Track& track : fTracks) track.pending.Clear();
}

}  // namespace Quillon::Orb
