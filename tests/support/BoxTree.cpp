#include "tests/support/BoxTree.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <numeric>
#include <set>

namespace {

/// Where the bytes come from: memory, or a file read in pieces.
class Source {
public:
    explicit Source(const std::vector<unsigned char>& bytes)
        : fBytes(&bytes), fSize(static_cast<long long>(bytes.size())) {}
    explicit Source(const std::string& path) : fFile(fopen(path.c_str(), "rb")) {
        if (!fFile) return;
        fseeko(fFile, 0, SEEK_END);
        fSize = ftello(fFile);
    }
    ~Source() {
        if (fFile) fclose(fFile);
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    long long Size() const { return fSize; }

    /// Zeros where the file ends.
    std::vector<unsigned char> Read(long long position, long long size) const {
        size = std::max(0LL, std::min(size, fSize - position));
        std::vector<unsigned char> data(static_cast<std::size_t>(size));
        if (size == 0) return data;
        if (fBytes) {
            std::memcpy(data.data(), fBytes->data() + position, data.size());
        } else {
            fseeko(fFile, position, SEEK_SET);
            if (fread(data.data(), 1, data.size(), fFile) != data.size()) data.clear();
        }
        return data;
    }

private:
    const std::vector<unsigned char>* fBytes = nullptr;
    FILE* fFile = nullptr;
    long long fSize = 0;
};

std::string name_of(unsigned int type) {
    std::string name;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto c = static_cast<unsigned char>(type >> shift);
        name += c >= 32 && c < 127 ? static_cast<char>(c) : c == 0xa9 ? '(' : '.';
    }
    return name;
}

/// Reads big-endian fields of one box one after the other.
class Fields {
public:
    explicit Fields(std::vector<unsigned char> data) : fData(std::move(data)) {}

    unsigned long long Get(int bytes) {
        // Millions of times over all tests: the members are read once.
        const std::size_t from = fNext;
        fNext += static_cast<std::size_t>(bytes);
        const std::size_t size = fData.size();
        const unsigned char* const data = fData.data();
        unsigned long long value = 0;
        for (std::size_t at = from; at < from + static_cast<std::size_t>(bytes); at++)
            value = value << 8 | (at < size ? data[at] : 0);
        return value;
    }
    long long U32() { return static_cast<long long>(Get(4)); }
    long long S32() { return static_cast<std::int32_t>(Get(4)); }
    long long S64() { return static_cast<long long>(Get(8)); }
    long long Word(bool wide) { return wide ? S64() : U32(); }
    void Skip(std::size_t bytes) { fNext += bytes; }
    bool Overrun() const { return fNext > fData.size(); }
    std::size_t Left() const { return fNext >= fData.size() ? 0 : fData.size() - fNext; }

private:
    std::vector<unsigned char> fData;
    std::size_t fNext = 0;
};

const std::set<std::string> kParents = {"moov", "trak", "edts", "mdia", "minf",
                                        "dinf", "stbl", "udta", "ilst"};

class Parser {
public:
    Parser(const Source& source, BoxFile& file) : fSource(source), fFile(file) {}

    void Run() {
        fFile.size = fSource.Size();
        fFile.boxes = read_boxes(0, fSource.Size(), "file");
        check_top();
        const Box* moov = fFile.Find("moov");
        if (!moov) return;
        Fields mvhd = fields(*moov, "mvhd");
        const bool wide = mvhd.Get(4) >> 24 == 1;
        mvhd.Skip(wide ? 16 : 8);
        fFile.movieTimescale = mvhd.U32();
        fFile.movieDuration = mvhd.Word(wide);
        for (const Box* trak : moov->FindAll("trak")) read_track(*trak);
        long long longest = 0;
        for (const BoxTrack& track : fFile.tracks) longest = std::max(longest, track.movieDuration);
        if (longest != fFile.movieDuration)
            complain("mvhd: duration is not that of the longest track");
    }

private:
    void complain(const std::string& text) { fFile.complaints.push_back(text); }

    std::vector<Box> read_boxes(long long from, long long to, const std::string& where) {
        std::vector<Box> boxes;
        while (from < to) {
            if (to - from < 8) {
                // A list of items of QuickTime's may end in a zero of 32 bits.
                if (to - from != 4) complain(where + ": bytes left behind the last box");
                break;
            }
            Fields head(fSource.Read(from, 16));
            Box box;
            box.position = from;
            box.size = head.U32();
            box.type = static_cast<unsigned int>(head.Get(4));
            if (box.size == 1) {
                box.size = head.S64();
                box.headSize = 16;
            }
            if (box.size == 0) {
                if (where != "file")
                    complain(where + "/" + name_of(box.type) + ": open end inside a box");
                box.size = to - from;
            }
            if (box.size < box.headSize || from + box.size > to) {
                complain(where + "/" + name_of(box.type) + ": size reaches beyond its parent");
                break;
            }
            const std::string name = name_of(box.type);
            if (kParents.count(name) > 0)
                box.children = read_boxes(from + box.headSize, from + box.size, where + "/" + name);
            from += box.size;
            boxes.push_back(std::move(box));
        }
        return boxes;
    }

    void check_top() {
        int moovs = 0;
        bool mdat = false;
        for (const Box& box : fFile.boxes) {
            const std::string name = name_of(box.type);
            moovs += name == "moov";
            mdat |= name == "mdat";
            if (name != "ftyp" && name != "free" && name != "moov" && name != "mdat")
                complain("file: unknown box " + name);
        }
        if (fFile.boxes.empty() || name_of(fFile.boxes[0].type) != "ftyp")
            complain("file: no ftyp");
        if (moovs != 1) complain("file: " + std::to_string(moovs) + " moov boxes");
        if (!mdat) complain("file: no mdat");
    }

    Fields fields(const Box& parent, const char* path) {
        const Box* box = parent.Find(path);
        if (!box) {
            complain(std::string("no ") + path);
            return Fields({});
        }
        return Fields(fSource.Read(box->position + box->headSize, box->size - box->headSize));
    }

    void read_track(const Box& trak) {
        BoxTrack track;
        Fields tkhd = fields(trak, "tkhd");
        bool wide = tkhd.Get(4) >> 24 == 1;
        tkhd.Skip(wide ? 24 : 16);
        track.movieDuration = tkhd.Word(wide);
        Fields mdhd = fields(trak, "mdia/mdhd");
        wide = mdhd.Get(4) >> 24 == 1;
        mdhd.Skip(wide ? 16 : 8);
        track.timescale = mdhd.U32();
        track.duration = mdhd.Word(wide);
        Fields hdlr = fields(trak, "mdia/hdlr");
        hdlr.Skip(8);
        track.handler = name_of(static_cast<unsigned int>(hdlr.Get(4)));
        read_edits(trak, track);
        if (const Box* stbl = trak.Find("mdia/minf/stbl")) read_tables(*stbl, track);
        fFile.tracks.push_back(std::move(track));
    }

    void read_edits(const Box& trak, BoxTrack& track) {
        if (!trak.Find("edts/elst")) return;
        Fields elst = fields(trak, "edts/elst");
        const bool wide = elst.Get(4) >> 24 == 1;
        const long long count = elst.U32();
        long long sum = 0;
        for (long long i = 0; i < count; i++) {
            BoxTrack::Edit edit;
            edit.duration = elst.Word(wide);
            edit.mediaTime = wide ? elst.S64() : elst.S32();
            if (elst.U32() != 0x10000) complain("elst: rate is not 1");
            sum += edit.duration;
            track.edits.push_back(edit);
        }
        if (elst.Overrun() || elst.Left() > 0) complain("elst: count and size differ");
        if (sum != track.movieDuration) complain("elst: edits do not add up to tkhd's duration");
    }

    /// The entries of a table: its count, then `size` bytes each.
    Fields table(const Box& stbl, const char* name, int entrySize, long long& count) {
        count = 0;
        if (!stbl.Find(name)) return Fields({});
        Fields data = fields(stbl, name);
        data.Skip(4);
        count = data.U32();
        if (static_cast<long long>(data.Left()) != count * entrySize)
            complain(std::string(name) + ": count and size differ");
        return data;
    }

    void read_tables(const Box& stbl, BoxTrack& track) {
        check_order(stbl);
        Fields stsd = fields(stbl, "stsd");
        stsd.Skip(4);
        if (stsd.U32() != 1) complain("stsd: not one entry");
        stsd.Skip(4);
        track.format = name_of(static_cast<unsigned int>(stsd.Get(4)));
        read_sizes(stbl, track);
        read_times(stbl, track);
        read_offsets(stbl, track);
        read_keys(stbl, track);
        read_chunks(stbl, track);
        check_roll(stbl, track);
    }

    void check_order(const Box& stbl) {
        for (const char* needed : {"stsd", "stts", "stsc", "stsz", "co64"})
            if (stbl.FindAll(needed).size() != 1) complain(std::string("stbl: not one ") + needed);
        if (!stbl.children.empty() && name_of(stbl.children[0].type) != "stsd")
            complain("stbl: stsd is not first");
    }

    void read_sizes(const Box& stbl, BoxTrack& track) {
        Fields stsz = fields(stbl, "stsz");
        stsz.Skip(4);
        const long long size = stsz.U32();
        const long long count = stsz.U32();
        const long long entries = size == 0 ? count : 0;
        if (static_cast<long long>(stsz.Left()) != entries * 4) {
            complain("stsz: count and size differ");
            return;
        }
        track.samples.resize(static_cast<std::size_t>(count));
        for (auto& sample : track.samples)
            sample = {0, size == 0 ? stsz.U32() : size, 0, 0, 0, true};
    }

    void read_times(const Box& stbl, BoxTrack& track) {
        long long runs;
        Fields stts = table(stbl, "stts", 8, runs);
        std::size_t next = 0;
        long long time = 0;
        for (long long i = 0; i < runs; i++) {
            const long long count = stts.U32();
            const long long delta = stts.S32();
            if (count == 0) complain("stts: an empty run");
            if (delta < 0) complain("stts: time goes back");
            for (long long j = 0; j < count && next < track.samples.size(); j++) {
                track.samples[next].time = time;
                track.samples[next++].duration = delta;
                time += delta;
            }
            if (next == track.samples.size() && i + 1 < runs) complain("stts: more than samples");
        }
        if (next != track.samples.size()) complain("stts: fewer than samples");
        if (time != track.duration) complain("mdhd: duration is not the sum of stts");
    }

    void read_offsets(const Box& stbl, BoxTrack& track) {
        if (!stbl.Find("ctts")) return;
        const bool isSigned = fields(stbl, "ctts").Get(4) >> 24 == 1;
        long long runs;
        Fields ctts = table(stbl, "ctts", 8, runs);
        std::size_t next = 0;
        for (long long i = 0; i < runs; i++) {
            const long long count = ctts.U32();
            const long long offset = isSigned ? ctts.S32() : ctts.U32();
            if (!isSigned && offset > INT32_MAX) complain("ctts: a negative offset in version 0");
            for (long long j = 0; j < count && next < track.samples.size(); j++)
                track.samples[next++].offset = offset;
        }
        if (next != track.samples.size()) complain("ctts: does not cover the samples");
    }

    void read_keys(const Box& stbl, BoxTrack& track) {
        if (!stbl.Find("stss")) return;
        for (auto& sample : track.samples) sample.key = false;
        long long count;
        Fields stss = table(stbl, "stss", 4, count);
        long long before = 0;
        for (long long i = 0; i < count; i++) {
            const long long number = stss.U32();
            if (number <= before || number > static_cast<long long>(track.samples.size()))
                complain("stss: out of order or out of range");
            else
                track.samples[static_cast<std::size_t>(number - 1)].key = true;
            before = number;
        }
    }

    void read_chunks(const Box& stbl, BoxTrack& track) {
        long long runs;
        Fields stsc = table(stbl, "stsc", 12, runs);
        Fields co64 = table(stbl, "co64", 8, track.chunks);
        std::map<long long, long long> perChunk;  // first chunk of a run -> samples
        long long before = 0;
        for (long long i = 0; i < runs; i++) {
            const long long first = stsc.U32();
            perChunk[first] = stsc.U32();
            if (first <= before || first > track.chunks)
                complain("stsc: out of order or out of range");
            if (stsc.U32() != 1) complain("stsc: description is not 1");
            before = first;
        }
        if (runs > 0 && perChunk.begin()->first != 1) complain("stsc: does not start at chunk 1");
        std::size_t next = 0;
        long long count = 0;
        auto run = perChunk.begin();
        for (long long chunk = 1; chunk <= track.chunks; chunk++) {
            long long position = co64.S64();
            for (; run != perChunk.end() && run->first <= chunk; ++run) count = run->second;
            if (count == 0) complain("stsc: an empty chunk");
            for (long long j = 0; j < count && next < track.samples.size(); j++) {
                track.samples[next].position = position;
                position += track.samples[next++].size;
            }
            if (next == track.samples.size() && chunk < track.chunks)
                complain("stsc: more than samples");
            check_in_media(position);
        }
        if (next != track.samples.size()) complain("stsc: chunks do not hold all samples");
    }

    void check_in_media(long long end) {
        for (const Box& box : fFile.boxes)
            if (box.type == 'mdat' && end > box.position && end <= box.position + box.size) return;
        complain("co64: a chunk is not inside the media data");
    }

    void check_roll(const Box& stbl, const BoxTrack& track) {
        if (!stbl.Find("sbgp")) return;
        Fields sbgp = fields(stbl, "sbgp");
        sbgp.Skip(12);
        if (sbgp.U32() != static_cast<long long>(track.samples.size()))
            complain("sbgp: does not cover the samples");
    }

    const Source& fSource;
    BoxFile& fFile;
};

const Box* find_in(const std::vector<Box>& boxes, const char* path) {
    const char* slash = std::strchr(path, '/');
    const std::string head = slash ? std::string(path, slash) : std::string(path);
    for (const Box& box : boxes) {
        if (name_of(box.type) != head) continue;
        if (!slash) return &box;
        if (const Box* found = find_in(box.children, slash + 1)) return found;
    }
    return nullptr;
}

BoxFile parse(const Source& source) {
    BoxFile file;
    Parser(source, file).Run();
    return file;
}

}  // namespace

const Box* Box::Find(const char* path) const {
    return find_in(children, path);
}

std::vector<const Box*> Box::FindAll(const char* name) const {
    std::vector<const Box*> found;
    for (const Box& child : children)
        if (name_of(child.type) == name) found.push_back(&child);
    return found;
}

const Box* BoxFile::Find(const char* path) const {
    return find_in(boxes, path);
}

std::string BoxFile::Text() const {
    std::string text;
    const std::function<void(const std::vector<Box>&, int)> add = [&](const std::vector<Box>& list,
                                                                      int depth) {
        for (const Box& box : list) {
            text.append(static_cast<std::size_t>(depth) * 2, ' ');
            text += name_of(box.type) + " " + std::to_string(box.size) + "\n";
            add(box.children, depth + 1);
        }
    };
    add(boxes, 0);
    return text;
}

std::string BoxFile::Complaints() const {
    return std::accumulate(
        complaints.begin(), complaints.end(), std::string(),
        [](const std::string& all, const std::string& one) { return all + one + "\n"; });
}

BoxFile ParseBoxes(const std::vector<unsigned char>& bytes) {
    return parse(Source(bytes));
}
BoxFile ParseBoxFile(const std::string& path) {
    return parse(Source(path));
}
