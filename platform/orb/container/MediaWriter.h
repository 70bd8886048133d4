#pragma once

#include <vector>

#include "FileLayer.h"
#include "MoovWriter.h"
#include "PendingSamples.h"

namespace Quillon::Orb {

/// Lays the samples of all tracks into the file, chunk after chunk, and enters them in the index.
///
/// Samples wait until half a second of a track is there, or a fair write's worth of bytes; then
/// what waits of every track goes out in one write, so that the tracks' chunks lie side by side in
/// time. A sample is in the index once its bytes have been written, never before.
class MediaWriter {
public:
    MediaWriter(FileLayer& file, Movie& movie);

    /// Where the next bytes go. What others put there ends the chunk that is growing.
    long long End() const { return fEnd; }
    void SetEnd(long long end);

    /// 0 or a negative errno. After a failure the samples that waited are gone, this one too.
    int Add(std::size_t track, const StoredSample& sample, const unsigned char* data,
            std::size_t size);
    /// Writes what waits.
    int Flush();

private:
    struct Track {
        PendingSamples pending;
        long long chunkDuration = 0;  // ticks of the chunk that grows
        long long chunkBytes = 0;
    };

    int flush_all(const FileSpan& borrowed, std::size_t borrower);
    int flush_one(std::size_t track, const FileSpan& borrowed);
    int write(const std::vector<std::size_t>& order, const FileSpan& borrowed);
    void enter(std::size_t track, long long position, long long bytes);
    void drop_pending();

    FileLayer& fFile;
    Movie& fMovie;
    std::vector<Track> fTracks;
    std::vector<std::size_t> fOrder;  // kept for their memory
    std::vector<FileSpan> fSpans;
    long long fEnd = 0;
    std::size_t fGrowing = kNone;  // the track whose chunk ends at fEnd

    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
};

}  // namespace Quillon::Orb
