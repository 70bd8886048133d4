#include "IndexLayout.h"

#include <algorithm>
#include <limits>

namespace Quillon::Orb {
namespace {

constexpr long long kLeastEntries = 16;
constexpr double kSpare = 1.25;
constexpr double kUnknownFrameRate = 60;
constexpr double kSecondsAtFirst = 600;  // of a movie whose durations take 32 bits from the start

using Rates = std::array<double, kTableKinds>;  // entries a second

/// What a track is likely to need. Real material may need more; the index then moves on earlier.
Rates entry_rates(const TrackIndex& track) {
    constexpr double kChunks = 2.5;
    const MovieTrack& description = track.Description();
    const auto timescale = static_cast<double>(description.timescale);
    Rates rates = {};
    rates[kChunkRuns] = kChunks;
    rates[kChunkPlaces] = kChunks;
    if (track.IsPlain()) return rates;
    if (!track.IsVideo()) {
        rates[kTimeToSample] = 0.1;
        rates[kSizes] = static_cast<double>(description.sampleRate) / description.framesPerPacket;
        return rates;
    }
    const double frames = description.frameDuration > 0
                              ? timescale / static_cast<double>(description.frameDuration)
                              : kUnknownFrameRate;
    const bool intra = description.format != 'avc1' && description.format != 'mp2v';
    rates[kTimeToSample] = frames / 8;
    rates[kKeySamples] = intra ? 0 : 2;
    rates[kOffsets] = description.reordered ? frames : 0;
    rates[kSizes] = frames;
    return rates;
}

bool has_table(const TrackIndex& track, int kind) {
    if (kind == kSizes) return !track.IsPlain();
    return track.IsVideo() || (kind != kOffsets && kind != kKeySamples);
}

/// The layout in which every table holds no more than a few entries.
IndexLayout least_layout(const Movie& movie, bool wide) {
    IndexLayout layout;
    layout.wide = wide;
    for (const auto& track : movie.tracks) {
        IndexLayout::Capacities capacities = {};
        for (int kind = 0; kind < kTableKinds; kind++)
            if (has_table(*track, kind)) capacities[kind] = kLeastEntries;
        layout.tracks.push_back(capacities);
    }
    return layout;
}

long long layout_size(const Movie& movie, const IndexLayout& layout) {
    BoxWriter writer;
    WriteMoov(writer, movie, layout);
    return writer.Position();
}

bool fits_32(double ticks) {
    return ticks <= std::numeric_limits<unsigned int>::max();
}

/// Whether twice of what there is still fits durations of 32 bits.
bool needs_wide(const Movie& movie) {
    const auto ahead = [](long long ticks, long long timescale) {
        return std::max(2 * static_cast<double>(ticks),
                        kSecondsAtFirst * static_cast<double>(timescale));
    };
    if (!fits_32(ahead(movie.Duration(), movie.timescale))) return true;
    for (const auto& track : movie.tracks) {
        const long long end = track->Tables().Duration() + track->Edit().mediaTime;
        if (!fits_32(ahead(end, track->Description().timescale))) return true;
    }
    return false;
}

bool durations_fit(const Movie& movie) {
    if (!fits_32(static_cast<double>(movie.Duration()))) return false;
    for (const auto& track : movie.tracks) {
        const auto start = track->Edit().mediaTime;
        // The start of an edit is a signed number.
        if (!fits_32(static_cast<double>(track->Tables().Duration())) ||
            start > std::numeric_limits<int>::max())
            return false;
    }
    return true;
}

long long entries_of(const TrackIndex& track, int kind) {
    const TableView view = track.Tables().View(static_cast<TableKind>(kind));
    return view.present ? view.EntriesWithTail() : 0;
}

/// Bytes of entries that each table should hold relative to the others, track by track.
std::vector<Rates> weights_of(const Movie& movie, double seconds) {
    std::vector<Rates> weights;
    for (const auto& track : movie.tracks) {
        Rates rates = entry_rates(*track);
        for (int kind = 0; kind < kTableKinds; kind++) {
            const double expected = rates[kind] * std::max(seconds, 1.0);
            const auto used = static_cast<double>(entries_of(*track, kind));
            rates[kind] = has_table(*track, kind)
                              ? std::max(expected, used) *
                                    SampleTables::EntrySize(static_cast<TableKind>(kind))
                              : 0;
        }
        weights.push_back(rates);
    }
    return weights;
}

double sum_of(const std::vector<Rates>& weights) {
    double sum = 0;
    for (const Rates& track : weights)
        for (const double weight : track) sum += weight;
    return sum;
}

}  // namespace

long long EstimateIndexSize(const Movie& movie, double seconds) {
    double bytes = static_cast<double>(layout_size(movie, least_layout(movie, true)));
    for (const auto& track : movie.tracks) {
        const Rates rates = entry_rates(*track);
        for (int kind = 0; kind < kTableKinds; kind++)
            bytes += rates[kind] * seconds * SampleTables::EntrySize(static_cast<TableKind>(kind));
    }
    return static_cast<long long>(bytes);
}

long long PresentIndexSize(const Movie& movie) {
    long long bytes = layout_size(movie, least_layout(movie, true));
    for (const auto& track : movie.tracks)
        for (int kind = 0; kind < kTableKinds; kind++)
            bytes +=
                entries_of(*track, kind) * SampleTables::EntrySize(static_cast<TableKind>(kind));
    return bytes;
}

long long FittingIndexSize(const Movie& movie) {
    const long long least = layout_size(movie, least_layout(movie, needs_wide(movie)));
    const double tables = kSpare * sum_of(weights_of(movie, movie.Seconds()));
    return least + static_cast<long long>(tables) + 1;
}

IndexLayout PlanLayout(const Movie& movie, long long size) {
    IndexLayout layout = least_layout(movie, needs_wide(movie));
    const auto room = static_cast<double>(size - layout_size(movie, layout));
    const std::vector<Rates> weights = weights_of(movie, movie.Seconds());
    const double sum = sum_of(weights);
    for (std::size_t i = 0; i < movie.tracks.size(); i++) {
        for (int kind = 0; kind < kTableKinds; kind++) {
            const int entrySize = SampleTables::EntrySize(static_cast<TableKind>(kind));
            const double share = room > 0 && sum > 0 ? room * weights[i][kind] / sum : 0;
            layout.tracks[i][kind] += static_cast<long long>(share / entrySize);
            if (static_cast<double>(layout.tracks[i][kind]) <
                kSpare * static_cast<double>(entries_of(*movie.tracks[i], kind)))
                return {};
        }
    }
    if (layout_size(movie, layout) > size) return {};
    return layout;
}

bool LayoutHolds(const IndexLayout& layout, const Movie& movie) {
    if (layout.tracks.size() != movie.tracks.size()) return false;
    for (std::size_t i = 0; i < movie.tracks.size(); i++)
        for (int kind = 0; kind < kTableKinds; kind++)
            if (entries_of(*movie.tracks[i], kind) > layout.tracks[i][kind]) return false;
    return layout.wide || durations_fit(movie);
}

double LayoutFill(const IndexLayout& layout, const Movie& movie) {
    double fill = 0;
    for (std::size_t i = 0; i < movie.tracks.size(); i++) {
        for (int kind = 0; kind < kTableKinds; kind++) {
            const auto capacity = static_cast<double>(layout.tracks[i][kind]);
            if (capacity == 0) continue;
            const auto used = static_cast<double>(entries_of(*movie.tracks[i], kind));
            fill = std::max(fill, used / capacity);
        }
    }
    return fill;
}

}  // namespace Quillon::Orb
