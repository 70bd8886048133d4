#pragma once

#include <array>

#include "TableBytes.h"

namespace Quillon::Orb {

/// The tables of a track, in the order in which they stand in the file.
enum TableKind {
    kTimeToSample,
    kKeySamples,
    kOffsets,
    kChunkRuns,
    kSizes,
    kChunkPlaces,
    kTableKinds
};

/// One table as it is now: entries that will not change any more, and a tail that may.
struct TableView {
    static constexpr int kLargestHeader = 20;
    static constexpr int kLargestTail = 16;

    bool present = false;
    const TableBytes* entries = nullptr;
    int headerSize = 0;
    int tailSize = 0;  ///< bytes
    unsigned char header[kLargestHeader] = {};
    unsigned char tail[kLargestTail] = {};

    long long EntriesWithTail() const { return entries->Count() + tailSize / entries->EntrySize(); }
};

/// What the samples of one track are and where they stand, grown sample by sample.
///
/// Times are media times: ticks of the track, the first sample at 0, never going back.
class SampleTables {
public:
    /// `packetSize` is that of packets which all have one size, such as PCM; 0 when sizes differ.
    explicit SampleTables(unsigned int packetSize);

    /// What is added from here on stands in the file from `position` on, without a gap.
    void BeginChunk(long long position);
    /// A sample of its own size. Its duration follows from the next one's time; `duration` counts
    /// until that is here.
    void AddSample(unsigned int size, long long time, long long duration, int offset, bool key);
    /// `count` packets of the one size, each `duration` ticks long.
    void AddPackets(long long count, long long duration);

    TableView View(TableKind kind) const;
    static int EntrySize(TableKind kind);
    static int HeaderSize(TableKind kind);

    long long SampleCount() const { return fSamples; }
    /// Media time at which the last sample ends.
    long long Duration() const { return fSamples == 0 ? 0 : fLastTime + fLastDuration; }

    // Over all samples so far; 0 while there is none.
    long long FirstDisplay() const { return fFirstDisplay; }
    long long LastDisplay() const;
    int LeastOffset() const { return fLeastOffset; }
    int GreatestOffset() const { return fGreatestOffset; }
    bool HasOffsets() const { return fLeastOffset != 0 || fGreatestOffset != 0; }

private:
    /// A run of equal values that is still growing; the runs before it stand in the table.
    struct Run {
        unsigned int count = 0;
        long long value = 0;

        void Add(unsigned int more, long long next, TableBytes& table);
    };

    void add_display(long long time, int offset);
    void add_key(bool key);
    void fill_tail(TableKind kind, TableView& view) const;
    void fill_header(TableKind kind, TableView& view) const;

    const unsigned int fPacketSize;
    std::array<TableBytes, kTableKinds> fTables;
    Run fDeltas;
    Run fOffsets;
    long long fSamples = 0;
    long long fLastTime = 0;
    long long fLastDuration = 0;
    bool fAllKeys = true;

    long long fFirstDisplay = 0;
    long long fLatestDisplay = 0;   // start of the sample that is displayed last
    bool fLatestIsLast = true;      // and it is the one that was added last
    long long fLatestDuration = 0;  // its duration, once that is known
    int fLeastOffset = 0;
    int fGreatestOffset = 0;

    unsigned int fChunkSamples = 0;  // of the chunk that is growing
    unsigned int fRunSamples = 0;    // samples per chunk of the last run in the table
};

}  // namespace Quillon::Orb
