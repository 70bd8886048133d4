#include "SampleTables.h"

#include <algorithm>

namespace Quillon::Orb {
namespace {

struct Shape {
    unsigned int type;
    int headerSize;
    int entrySize;
};

constexpr Shape kShapes[kTableKinds] = {{'stts', 16, 8},  {'stss', 16, 4}, {'ctts', 16, 8},
                                        {'stsc', 16, 12}, {'stsz', 20, 4}, {'co64', 16, 8}};

}  // namespace

int SampleTables::EntrySize(TableKind kind) {
    return kShapes[kind].entrySize;
}
int SampleTables::HeaderSize(TableKind kind) {
    return kShapes[kind].headerSize;
}

SampleTables::SampleTables(unsigned int packetSize)
    : fPacketSize(packetSize), fTables{TableBytes(8),  TableBytes(4), TableBytes(8),
                                       TableBytes(12), TableBytes(4), TableBytes(8)} {}

void SampleTables::Run::Add(unsigned int more, long long next, TableBytes& table) {
    if (count > 0 && next != value) {
        table.AppendPair(count, static_cast<unsigned long long>(value));
        count = 0;
    }
    value = next;
    count += more;
}

void SampleTables::BeginChunk(long long position) {
    TableBytes& runs = fTables[kChunkRuns];
    TableBytes& places = fTables[kChunkPlaces];
    if (fChunkSamples > 0 && fChunkSamples != fRunSamples) {
        unsigned char* entry = runs.Append();
        PutBig(entry, static_cast<unsigned long long>(places.Count()), 4);
        PutBig(entry + 4, fChunkSamples, 4);
        PutBig(entry + 8, 1, 4);
        fRunSamples = fChunkSamples;
    }
    fChunkSamples = 0;
    places.Append64(static_cast<unsigned long long>(position));
}

void SampleTables::AddSample(unsigned int size, long long time, long long duration, int offset,
                             bool key) {
    if (fSamples > 0) {
        const long long delta = time - fLastTime;
        fDeltas.Add(1, delta, fTables[kTimeToSample]);
        if (fLatestIsLast) fLatestDuration = delta;
    }
    fLastTime = time;
    fLastDuration = duration;
    fOffsets.Add(1, offset, fTables[kOffsets]);
    add_display(time, offset);
    fTables[kSizes].Append32(size);
    add_key(key);
    fSamples++;
    fChunkSamples++;
}

void SampleTables::AddPackets(long long count, long long duration) {
    const auto packets = static_cast<unsigned int>(count);
    // All but the newest packet are settled; the newest one's length is known as well, and so the
    // run of times has no second part.
    if (fSamples > 0) fDeltas.Add(1, duration, fTables[kTimeToSample]);
    if (packets > 1) fDeltas.Add(packets - 1, duration, fTables[kTimeToSample]);
    fSamples += count;
    fLastTime = (fSamples - 1) * duration;
    fLastDuration = duration;
    fLatestDisplay = fLastTime;
    fChunkSamples += packets;
}

void SampleTables::add_display(long long time, int offset) {
    const long long display = time + offset;
    if (fSamples == 0) {
        fFirstDisplay = fLatestDisplay = display;
        fLeastOffset = fGreatestOffset = offset;
        return;
    }
    fFirstDisplay = std::min(fFirstDisplay, display);
    fLeastOffset = std::min(fLeastOffset, offset);
    fGreatestOffset = std::max(fGreatestOffset, offset);
    fLatestIsLast = display >= fLatestDisplay;
    if (fLatestIsLast) fLatestDisplay = display;
}

void SampleTables::add_key(bool key) {
    TableBytes& keys = fTables[kKeySamples];
    if (fAllKeys && !key) {
        // Until now the table was not needed: a track without it has key samples alone.
        for (long long i = 1; i <= fSamples; i++) keys.Append32(static_cast<unsigned long long>(i));
        fAllKeys = false;
    }
    if (!fAllKeys && key) keys.Append32(static_cast<unsigned long long>(fSamples + 1));
}

long long SampleTables::LastDisplay() const {
    if (fSamples == 0) return 0;
    return fLatestDisplay + (fLatestIsLast ? fLastDuration : fLatestDuration);
}

TableView SampleTables::View(TableKind kind) const {
    TableView view;
    view.entries = &fTables[kind];
    view.headerSize = kShapes[kind].headerSize;
    view.present = true;
    if (kind == kOffsets) view.present = HasOffsets();
    if (kind == kKeySamples) view.present = !fAllKeys;
    fill_tail(kind, view);
    fill_header(kind, view);
    return view;
}

void SampleTables::fill_tail(TableKind kind, TableView& view) const {
    const auto put = [&view](unsigned long long value) {
        PutBig(view.tail + view.tailSize, value, 4);
        view.tailSize += 4;
    };
    const auto putRun = [&put](long long count, long long value) {
        put(static_cast<unsigned long long>(count));
        put(static_cast<unsigned long long>(value));
    };
    switch (kind) {
        case kTimeToSample: {
            if (fSamples == 0) break;
            const bool same = fDeltas.count > 0 && fDeltas.value == fLastDuration;
            if (fDeltas.count > 0) putRun(fDeltas.count + (same ? 1LL : 0LL), fDeltas.value);
            if (!same) putRun(1, fLastDuration);
            break;
        }
        case kOffsets:
            if (fOffsets.count > 0) putRun(fOffsets.count, fOffsets.value);
            break;
        case kChunkRuns:
            if (fChunkSamples > 0 && fChunkSamples != fRunSamples) {
                putRun(fTables[kChunkPlaces].Count(), fChunkSamples);
                put(1);
            }
            break;
        default:
            break;
    }
}

void SampleTables::fill_header(TableKind kind, TableView& view) const {
    const long long entries = view.EntriesWithTail();
    const long long bytes = view.headerSize + entries * kShapes[kind].entrySize;
    // Offsets that reach before the decode time need the signed form of their table.
    const unsigned int version = kind == kOffsets && fLeastOffset < 0 ? 1 : 0;
    unsigned char* header = view.header;
    PutBig(header, static_cast<unsigned long long>(bytes), 4);
    PutBig(header + 4, kShapes[kind].type, 4);
    PutBig(header + 8, version, 1);
    PutBig(header + 9, 0, 3);
    if (kind == kSizes) {
        PutBig(header + 12, fPacketSize, 4);
        PutBig(header + 16, static_cast<unsigned long long>(fSamples), 4);
        return;
    }
    PutBig(header + 12, static_cast<unsigned long long>(entries), 4);
}

}  // namespace Quillon::Orb
