#include "SampleTables.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace Quillon::Orb {
namespace {

/// A table as a file would hold it now: header, entries, tail.
std::vector<unsigned char> bytes_of(const SampleTables& tables, TableKind kind) {
    const TableView view = tables.View(kind);
    std::vector<unsigned char> bytes;
    if (!view.present) return bytes;
    bytes.assign(view.header, view.header + view.headerSize);
    std::vector<FileSpan> spans;
    view.entries->Spans(0, view.entries->Count(), spans);
    for (const FileSpan& span : spans) {
        const auto* from = static_cast<const unsigned char*>(span.data);
        bytes.insert(bytes.end(), from, from + span.size);
    }
    bytes.insert(bytes.end(), view.tail, view.tail + view.tailSize);
    return bytes;
}

struct Sample {
    unsigned int size;
    long long time;
    int offset;
    bool key;
    bool beginsChunk;
};

/// The tables written plainly, from all samples at once.
class PlainTables {
public:
    PlainTables(const std::vector<Sample>& samples, long long lastDuration)
        : fSamples(samples), fLastDuration(lastDuration) {}

    std::vector<unsigned char> Of(TableKind kind) {
        fBytes.clear();
        switch (kind) {
            case kTimeToSample:
                return times();
            case kOffsets:
                return offsets();
            case kKeySamples:
                return keys();
            case kChunkRuns:
                return chunk_runs();
            case kSizes:
                return sizes();
            default:
                return places();
        }
    }

private:
    void put(unsigned long long value, int bytes = 4) {
        for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
            fBytes.push_back(static_cast<unsigned char>(value >> shift));
    }
    std::vector<unsigned char> table(unsigned int type, unsigned int version,
                                     const std::vector<long long>& values, int perEntry,
                                     int bytes = 4) {
        put(16 + values.size() * static_cast<std::size_t>(bytes));
        put(type);
        put(version << 24);
        put(values.size() / static_cast<std::size_t>(perEntry));
        for (const long long value : values) put(static_cast<unsigned long long>(value), bytes);
        return fBytes;
    }
    static void add_run(std::vector<long long>& runs, long long value) {
        if (runs.empty() || runs.back() != value) {
            runs.push_back(0);
            runs.push_back(value);
        }
        runs[runs.size() - 2]++;
    }
    std::vector<unsigned char> times() {
        std::vector<long long> runs;
        for (std::size_t i = 0; i < fSamples.size(); i++)
            add_run(runs, i + 1 < fSamples.size() ? fSamples[i + 1].time - fSamples[i].time
                                                  : fLastDuration);
        return table('stts', 0, runs, 2);
    }
    std::vector<unsigned char> offsets() {
        bool some = false;
        bool negative = false;
        std::vector<long long> runs;
        for (const Sample& sample : fSamples) {
            some |= sample.offset != 0;
            negative |= sample.offset < 0;
            add_run(runs, sample.offset);
        }
        return some ? table('ctts', negative ? 1 : 0, runs, 2) : fBytes;
    }
    std::vector<unsigned char> keys() {
        std::vector<long long> numbers;
        for (std::size_t i = 0; i < fSamples.size(); i++)
            if (fSamples[i].key) numbers.push_back(static_cast<long long>(i) + 1);
        return numbers.size() == fSamples.size() ? fBytes : table('stss', 0, numbers, 1);
    }
    std::vector<long long> chunks() const {
        std::vector<long long> counts;
        for (const Sample& sample : fSamples) {
            if (sample.beginsChunk) counts.push_back(0);
            counts.back()++;
        }
        return counts;
    }
    std::vector<unsigned char> chunk_runs() {
        std::vector<long long> entries;
        long long before = 0;
        long long number = 0;
        for (const long long count : chunks()) {
            number++;
            if (count == before) continue;
            entries.insert(entries.end(), {number, count, 1});
            before = count;
        }
        return table('stsc', 0, entries, 3);
    }
    std::vector<unsigned char> sizes() {
        put(20 + 4 * fSamples.size());
        put('stsz');
        put(0);
        put(0);
        put(fSamples.size());
        for (const Sample& sample : fSamples) put(sample.size);
        return fBytes;
    }
    std::vector<unsigned char> places() {
        std::vector<long long> all;
        for (std::size_t i = 0; i < chunks().size(); i++)
            all.push_back(static_cast<long long>(i) << 33);
        return table('co64', 0, all, 1, 8);
    }

    const std::vector<Sample>& fSamples;
    const long long fLastDuration;
    std::vector<unsigned char> fBytes;
};

/// Grown sample by sample the tables are at every moment what they are when written at once.
TEST(SampleTables, GrownTablesAreThoseWrittenAtOnce) {
    std::mt19937 random(5);
    for (int round = 0; round < 60; round++) {
        SCOPED_TRACE(round);
        const bool reordered = round % 2 == 0;
        const bool variable = round % 3 == 0;
        SampleTables tables(0);
        std::vector<Sample> samples;
        long long time = 0;
        long long chunks = 0;
        for (int i = 0; i < 40; i++) {
            Sample sample{static_cast<unsigned int>(random() % 5000 + 1), time, 0,
                          i == 0 || random() % 5 != 0 || round % 5 == 0,
                          i == 0 || random() % 3 == 0};
            if (reordered) sample.offset = static_cast<int>(random() % 3) * 20 - (round % 4) * 10;
            if (sample.beginsChunk) tables.BeginChunk(chunks++ << 33);
            samples.push_back(sample);
            const long long duration = 20 + (variable ? random() % 2 * 20 : 0);
            tables.AddSample(sample.size, sample.time, duration, sample.offset, sample.key);
            time += variable ? static_cast<long long>(random() % 3) * 20 : 20;
            PlainTables plain(samples, duration);
            for (int kind = 0; kind < kTableKinds; kind++)
                ASSERT_EQ(bytes_of(tables, static_cast<TableKind>(kind)),
                          plain.Of(static_cast<TableKind>(kind)))
                    << "table " << kind << " of " << i + 1 << " samples";
        }
    }
}

/// Entries that have been given stay as they are: a slot in the file adds, and never writes again.
TEST(SampleTables, EntriesNeverChangeOnceTheyAreThere) {
    std::mt19937 random(6);
    SampleTables tables(0);
    std::vector<std::vector<unsigned char>> before(kTableKinds);
    long long time = 0;
    for (int i = 0; i < 30000; i++) {
        if (i % 17 == 0) tables.BeginChunk(i * 1000LL);
        tables.AddSample(random() % 100 + 1, time, 20, static_cast<int>(random() % 3), i % 12 == 0);
        time += static_cast<long long>(random() % 2 + 1) * 20;
        if (i % 5000 != 4999) continue;
        for (int kind = 0; kind < kTableKinds; kind++) {
            const TableView view = tables.View(static_cast<TableKind>(kind));
            std::vector<FileSpan> spans;
            view.entries->Spans(0, view.entries->Count(), spans);
            std::vector<unsigned char> now;
            for (const FileSpan& span : spans) {
                const auto* from = static_cast<const unsigned char*>(span.data);
                now.insert(now.end(), from, from + span.size);
            }
            auto& old = before[static_cast<std::size_t>(kind)];
            ASSERT_TRUE(std::equal(old.begin(), old.end(), now.begin()));
            old = std::move(now);
        }
    }
}

TEST(SampleTables, PlainSoundIsOneRunHoweverItCame) {
    SampleTables tables(4);
    tables.BeginChunk(100);
    tables.AddPackets(1, 1);
    tables.AddPackets(1601, 1);
    tables.BeginChunk(9000);
    tables.AddPackets(1602, 1);
    EXPECT_EQ(tables.SampleCount(), 3204);
    EXPECT_EQ(tables.Duration(), 3204);
    const TableView times = tables.View(kTimeToSample);
    EXPECT_EQ(times.EntriesWithTail(), 1);
    EXPECT_EQ(tables.View(kChunkRuns).EntriesWithTail(), 1);  // both chunks hold as many
    EXPECT_EQ(tables.View(kSizes).EntriesWithTail(), 0);
    EXPECT_FALSE(tables.View(kKeySamples).present);
    EXPECT_FALSE(tables.View(kOffsets).present);
}

TEST(SampleTables, LastDisplayIsThatOfThePictureShownLast) {
    SampleTables tables(0);
    EXPECT_EQ(tables.LastDisplay(), 0);
    tables.BeginChunk(0);
    tables.AddSample(1, 0, 20, 20, true);
    EXPECT_EQ(tables.LastDisplay(), 40);
    tables.AddSample(1, 20, 20, 60, false);  // shown at 80, up to 100
    tables.AddSample(1, 40, 20, 0, false);
    EXPECT_EQ(tables.FirstDisplay(), 20);
    EXPECT_EQ(tables.LastDisplay(), 100);
}

}  // namespace
}  // namespace Quillon::Orb
