#include "tests/movies/BoxText.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <sstream>

namespace {

// Fields of a box, "name:bytes" one after the other. W is 8 bytes in version 1, else 4; x shows
// them as hexadecimal, s as a signed number, c as a code, t as text, m as a place in the media.
// What stands behind the fields are rows, or boxes.
struct Layout {
    bool full;  // starts with version and flags
    std::string fields;
    std::string rows;
    bool boxes = false;
};

const std::map<std::string, Layout> kLayouts = {
    {"moov", {false, "", "", true}},
    {"trak", {false, "", "", true}},
    {"edts", {false, "", "", true}},
    {"mdia", {false, "", "", true}},
    {"minf", {false, "", "", true}},
    {"dinf", {false, "", "", true}},
    {"stbl", {false, "", "", true}},
    {"udta", {false, "", "", true}},
    {"wave", {false, "", "", true}},
    {"ilst", {false, "", "", true}},
    {"(too", {false, "", "", true}},
    {"meta", {true, "", "", true}},
    {"ftyp", {false, "brand:4c version:4x", "brand:4c"}},
    {"mvhd",
     {true,
      "created:W modified:W timescale:4 duration:W rate:4x volume:2x -:10x matrix:36x -:24x "
      "next:4",
      ""}},
    {"tkhd",
     {true,
      "created:W modified:W track:4 -:4x duration:W -:8x layer:2 group:2 volume:2x -:2x "
      "matrix:36x width:4x height:4x",
      ""}},
    {"elst", {true, "count:4", "duration:W media:Ws rate:4x"}},
    {"mdhd", {true, "created:W modified:W timescale:4 duration:W language:2x quality:2", ""}},
    {"hdlr", {true, "component:4c handler:4c -:12x", "name:*t"}},
    {"vmhd", {true, "mode:2 colour:6x", ""}},
    {"smhd", {true, "balance:2 -:2x", ""}},
    {"dref", {true, "count:4", "", true}},
    {"url ", {true, "", ""}},
    {"stsd", {true, "count:4", "", true}},
    {"stts", {true, "count:4", "samples:4 ticks:4"}},
    {"ctts", {true, "count:4", "samples:4 offset:4s"}},
    {"cslg", {true, "shift:4s least:4s greatest:4s first:4s last:4s", ""}},
    {"stss", {true, "count:4", "sample:4"}},
    {"stsc", {true, "count:4", "chunk:4 samples:4 description:4"}},
    {"stsz", {true, "size:4 count:4", "bytes:4"}},
    {"co64", {true, "count:4", "media:8m"}},
    {"sgpd", {true, "type:4c length:4 count:4", "distance:2s"}},
    {"sbgp", {true, "type:4c count:4", "samples:4 group:4"}},
    {"frma", {false, "format:4c", ""}},
    {"enda", {false, "little:2", ""}},
    {"colr", {false, "kind:4c primaries:2 transfer:2 matrix:2", "range:1x"}},
    {"fiel", {false, "fields:1 detail:1", ""}},
    {"pasp", {false, "horizontal:4 vertical:4", ""}},
    {"clap", {false, "width:4 of:4 height:4 of:4 horizontal:4s of:4 vertical:4s of:4", ""}},
    {"(swr", {false, "size:2 language:2x", "text:*t"}},
    {"data", {false, "kind:4 locale:4", "text:*t"}},
};

constexpr const char* kVisualEntry =
    "-:6x reference:2 version:2 revision:2 vendor:4x temporal:4 spatial:4 width:2 height:2 "
    "horizontal:4x vertical:4x size:4 frames:2 name:32t depth:2 colours:2x";
constexpr const char* kSoundEntry =
    "-:6x reference:2 version:2 revision:2 vendor:4x channels:2 bits:2 compression:2s packet:2 "
    "rate:4x";
constexpr const char* kSoundEntry1 = " packetFrames:4 packetBytes:4 frameBytes:4 sampleBytes:4";
constexpr const char* kSoundEntry2 =
    " structure:4 rate:8x channels:4 -:4x bits:4 flags:4x packetBytes:4 packetFrames:4";

class Writer {
public:
    Writer(const std::vector<unsigned char>& bytes, long long media)
        : fBytes(bytes), fMedia(media) {}

    std::string Run() {
        boxes(0, fBytes.size(), 0, "");
        return fText;
    }

private:
    unsigned long long number(std::size_t from, std::size_t size) const {
        unsigned long long value = 0;
        for (std::size_t i = 0; i < size && from + i < fBytes.size(); i++)
            value = value << 8 | fBytes[from + i];
        return value;
    }
    std::string text(std::size_t from, std::size_t size) const {
        std::string result;
        for (std::size_t i = from; i < from + size && i < fBytes.size(); i++) {
            const unsigned char c = fBytes[i];
            if (c >= 32 && c < 127)
                result += static_cast<char>(c);
            else if (c == 0xa9)
                result += '(';
            else if (c != 0 || i + 1 < from + size)
                result += '.';
        }
        return result;
    }
    /// Bytes as hexadecimal, zeros that say nothing in short.
    std::string hex(std::size_t from, std::size_t size) const {
        std::string result;
        for (std::size_t i = from; i < from + size && i < fBytes.size(); i++) {
            char two[3];
            snprintf(two, sizeof two, "%02x", fBytes[i]);
            result += two;
        }
        return result.find_first_not_of('0') == std::string::npos ? "0" : result;
    }

    void boxes(std::size_t from, std::size_t to, int depth, const std::string& parent) {
        while (from + 8 <= to) {
            std::size_t size = number(from, 4);
            const std::size_t head = size == 1 ? 16 : 8;
            if (size == 1) size = number(from + 8, 8);
            if (size < head || from + size > to) {
                fText += std::string(static_cast<std::size_t>(depth) * 2, ' ') + "broken\n";
                return;
            }
            const std::string name = text(from + 4, 4);
            if (name != "free" && name != "mdat")
                one(name, from + head, from + size, depth, parent);
            from += size;
        }
        if (from < to) fText += std::string(static_cast<std::size_t>(depth) * 2, ' ') + "rest\n";
    }

    void one(const std::string& name, std::size_t from, std::size_t to, int depth,
             const std::string& parent) {
        fText += std::string(static_cast<std::size_t>(depth) * 2, ' ') + name;
        const auto known = kLayouts.find(name);
        if (parent == "stsd") {
            entry(name, from, to, depth);
        } else if (known == kLayouts.end()) {
            fText.append(" ").append(hex(from, to - from)).append("\n");
        } else {
            described(known->second, name, from, to, depth);
        }
    }

    void described(const Layout& layout, const std::string& name, std::size_t from, std::size_t to,
                   int depth) {
        fVersion = 0;
        if (layout.full) {
            fVersion = static_cast<int>(fBytes[from]);
            fText.append(" version=").append(std::to_string(fVersion));
            fText.append(" flags=").append(hex(from + 1, 3));
            from += 4;
        }
        from = fields(layout.fields, from, to);
        if (layout.boxes) {
            fText += "\n";
            boxes(from, to, depth + 1, name);
            return;
        }
        while (!layout.rows.empty() && from < to) {
            fText += ",";
            from = fields(layout.rows, from, to);
        }
        if (from != to) fText.append(" rest=").append(hex(from, to - from));
        fText += "\n";
    }

    void entry(const std::string& name, std::size_t from, std::size_t to, int depth) {
        const bool sound = name == "mp4a" || name == "sowt" || name == "twos" || name == "lpcm" ||
                           name.substr(0, 2) == "in" || name.substr(0, 2) == "fl";
        const unsigned long long version = number(from + 8, 2);
        std::string layout = sound ? kSoundEntry : kVisualEntry;
        if (sound && version == 1) layout += kSoundEntry1;
        if (sound && version == 2) layout += kSoundEntry2;
        from = fields(layout, from, to);
        fText += "\n";
        boxes(from, to, depth + 1, name);
    }

    /// Appends the fields that stand from `from` on; gives where they end.
    std::size_t fields(const std::string& layout, std::size_t from, std::size_t to) {
        std::istringstream words(layout);
        for (std::string word; words >> word;) {
            const auto colon = word.find(':');
            const std::string name = word.substr(0, colon);
            std::string kind = word.substr(colon + 1);
            std::size_t size;
            if (kind[0] == '*') {
                size = to - from;
                kind.erase(0, 1);
            } else if (kind[0] == 'W') {
                size = fVersion == 1 ? 8 : 4;
                kind.erase(0, 1);
            } else {
                std::size_t used = 0;
                size = static_cast<std::size_t>(std::stoi(kind, &used));
                kind.erase(0, used);
            }
            const std::string shown = value(kind, from, size);
            from += size;
            if (name == "-" && shown == "0") continue;
            fText.append(" ").append(name).append("=").append(shown);
        }
        return from;
    }

    std::string value(const std::string& kind, std::size_t from, std::size_t size) const {
        if (kind == "x") return hex(from, size);
        if (kind == "c" || kind == "t")
            return std::string(1, '\'').append(text(from, size)).append(1, '\'');
        const unsigned long long bits = number(from, size);
        if (kind == "m") return std::to_string(static_cast<long long>(bits) - fMedia);
        if (kind != "s") return std::to_string(bits);
        const int shift = 64 - 8 * static_cast<int>(size);
        return std::to_string(static_cast<std::int64_t>(bits << shift) >> shift);
    }

    const std::vector<unsigned char>& fBytes;
    const long long fMedia;
    int fVersion = 0;
    std::string fText;
};

}  // namespace

std::string BoxText(const std::vector<unsigned char>& bytes, long long media) {
    return Writer(bytes, media).Run();
}
