#pragma once

#include <array>
#include <memory>
#include <vector>

#include "BoxWriter.h"
#include "TrackIndex.h"

namespace Quillon::Orb {

/// What all states of one movie's index share.
struct Movie {
    bool quickTime = true;    ///< 'mov ', else 'mp4 '
    long long created = 0;    ///< seconds since 1970
    long long timescale = 0;  ///< of the movie's own times
    std::vector<std::unique_ptr<TrackIndex>> tracks;

    /// Ticks of the movie before the track's media starts, and from there to its end.
    long long EmptyTicks(const TrackIndex& track) const;
    long long MediaTicks(const TrackIndex& track) const;
    /// The movie's duration in ticks.
    long long Duration() const;
    double Seconds() const;
    /// The timescale in which every track's times can be said, or the finest of theirs.
    void ChooseTimescale();
};

/// How much room each table has in one form of the index.
struct IndexLayout {
    using Capacities = std::array<long long, kTableKinds>;  ///< entries

    bool wide = false;  ///< durations take 64 bits
    std::vector<Capacities> tracks;

    /// Bytes that a table takes with its room, which a free box behind it fills.
    static long long Area(TableKind kind, long long capacity);
    static int GapId(std::size_t track, TableKind kind) {
        return static_cast<int>(track) * kTableKinds + kind;
    }
};

/// Writes the moov box of `movie` as it is now. Where the tables go is left open: gaps named by
/// IndexLayout::GapId. The size depends on the layout alone.
void WriteMoov(BoxWriter& writer, const Movie& movie, const IndexLayout& layout);

/// Writes the file's first box, kFileTypeSize bytes.
void WriteFileType(BoxWriter& writer, const Movie& movie);
constexpr long long kFileTypeSize = 32;

}  // namespace Quillon::Orb
