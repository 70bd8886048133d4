#include "MoovWriter.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <string_view>

#include "SampleDescription.h"

namespace Quillon::Orb {
namespace {

constexpr long long kFrom1904To1970 = 2082844800;
constexpr long long kFinestMovieTimescale = 10000000;
constexpr int kFreeHeader = 8;
constexpr unsigned int kEncoderMov = 0xa9737772;  // (c)swr
constexpr unsigned int kEncoderMp4 = 0xa9746f6f;  // (c)too
constexpr std::string_view kEncoder = "libtarn";
constexpr unsigned int kOne = 0x00010000;

using Box = BoxWriter::Box;

/// One writing of the index: what every box of it needs.
struct Moov {
    BoxWriter& out;
    const Movie& movie;
    const IndexLayout& layout;

    unsigned int Version() const { return layout.wide ? 1 : 0; }
    void Word(long long value) const {
        out.Word(layout.wide, static_cast<unsigned long long>(value));
    }
    void Times() const {
        Word(movie.created + kFrom1904To1970);
        Word(movie.created + kFrom1904To1970);
    }
};

void write_matrix(BoxWriter& out) {
    constexpr unsigned int kMatrix[] = {kOne, 0, 0, 0, kOne, 0, 0, 0, 0x40000000};
    for (const unsigned int value : kMatrix) out.U32(value);
}

void write_mvhd(const Moov& moov) {
    BoxWriter& out = moov.out;
    Box mvhd(out, 'mvhd', moov.Version(), 0);
    moov.Times();
    out.U32(static_cast<unsigned long long>(moov.movie.timescale));
    moov.Word(moov.movie.Duration());
    out.U32(kOne);   // rate
    out.U16(0x100);  // volume
    out.Zeros(10);
    write_matrix(out);
    out.Zeros(24);
    out.U32(moov.movie.tracks.size() + 1);
}

/// The first track of each kind plays; the others are its alternatives.
bool is_first_of_kind(const Movie& movie, std::size_t index) {
    for (std::size_t i = 0; i < index; i++)
        if (movie.tracks[i]->IsVideo() == movie.tracks[index]->IsVideo()) return false;
    return true;
}

void write_tkhd(const Moov& moov, std::size_t index) {
    constexpr unsigned int kEnabled = 1, kInMovie = 2;
    BoxWriter& out = moov.out;
    const TrackIndex& track = *moov.movie.tracks[index];
    const MovieTrack& description = track.Description();
    const bool first = is_first_of_kind(moov.movie, index);
    Box tkhd(out, 'tkhd', moov.Version(), first ? kEnabled | kInMovie : kInMovie);
    moov.Times();
    out.U32(index + 1);
    out.U32(0);
    moov.Word(moov.movie.EmptyTicks(track) + moov.movie.MediaTicks(track));
    out.Zeros(8);
    out.U16(0);                        // layer
    out.U16(track.IsVideo() ? 0 : 1);  // alternate group
    out.U16(track.IsVideo() ? 0 : 0x100);
    out.U16(0);
    write_matrix(out);
    const int width = description.cleanWidth > 0 ? description.cleanWidth : description.width;
    const int height = description.cleanHeight > 0 ? description.cleanHeight : description.height;
    out.U32(static_cast<unsigned long long>(Rescale(static_cast<long long>(width) * kOne,
                                                    description.pixelAspectNumerator,
                                                    description.pixelAspectDenominator)));
    out.U32(static_cast<unsigned long long>(height) * kOne);
}

/// The edit list, and free room up to the size that it has at most.
void write_edts(const Moov& moov, const TrackIndex& track) {
    constexpr int kMostEntries = 2;
    BoxWriter& out = moov.out;
    const long long entrySize = moov.layout.wide ? 20 : 12;
    const long long end = out.Position() + 8 + 16 + kMostEntries * entrySize;
    const TrackEdit edit = track.Edit();
    if (edit.needed) {
        Box edts(out, 'edts');
        Box elst(out, 'elst', moov.Version(), 0);
        out.U32(edit.emptyTicks > 0 ? 2 : 1);
        if (edit.emptyTicks > 0) {
            moov.Word(moov.movie.EmptyTicks(track));
            moov.Word(-1);
            out.U32(kOne);
        }
        moov.Word(moov.movie.MediaTicks(track));
        moov.Word(edit.mediaTime);
        out.U32(kOne);
    }
    out.Free(end - out.Position());
}

void write_mdhd(const Moov& moov, const TrackIndex& track) {
    constexpr unsigned int kUnspecifiedQuickTime = 0x7fff, kUndetermined = 0x55c4;
    Box mdhd(moov.out, 'mdhd', moov.Version(), 0);
    moov.Times();
    moov.out.U32(static_cast<unsigned long long>(track.Description().timescale));
    moov.Word(track.Tables().Duration());
    moov.out.U16(moov.movie.quickTime ? kUnspecifiedQuickTime : kUndetermined);
    moov.out.U16(0);
}

void write_hdlr(const Moov& moov, unsigned int type, unsigned int subtype, std::string_view name) {
    BoxWriter& out = moov.out;
    Box hdlr(out, 'hdlr', 0, 0);
    out.U32(moov.movie.quickTime ? type : 0);
    out.U32(subtype);
    out.Zeros(12);
    if (moov.movie.quickTime) out.U8(static_cast<unsigned int>(name.size()));
    out.Text(name);
    if (!moov.movie.quickTime) out.U8(0);
}

void write_dinf(BoxWriter& out) {
    Box dinf(out, 'dinf');
    Box dref(out, 'dref', 0, 0);
    out.U32(1);
    Box url(out, 'url ', 0, 1);  // the media stands in this file
}

void write_cslg(const Moov& moov, const SampleTables& tables) {
    constexpr long long kSize = 8 + 4 + 20;
    BoxWriter& out = moov.out;
    // Its 32-bit form says nothing of longer tracks; the box may be missing.
    const bool fits = tables.LastDisplay() <= std::numeric_limits<int>::max();
    if (tables.LeastOffset() >= 0 || !fits) {
        out.Free(kSize);
        return;
    }
    Box cslg(out, 'cslg', 0, 0);
    out.U32(static_cast<unsigned long long>(-static_cast<long long>(tables.LeastOffset())));
    out.U32(static_cast<unsigned long long>(tables.LeastOffset()));
    out.U32(static_cast<unsigned long long>(tables.GreatestOffset()));
    out.U32(static_cast<unsigned long long>(tables.FirstDisplay()));
    out.U32(static_cast<unsigned long long>(tables.LastDisplay()));
}

/// Says that an AAC packet decodes rightly once the one before it has been decoded.
void write_roll(const Moov& moov, const TrackIndex& track) {
    BoxWriter& out = moov.out;
    {
        Box sgpd(out, 'sgpd', 1, 0);
        out.U32('roll');
        out.U32(2);
        out.U32(1);
        out.U16(0xffff);  // -1
    }
    Box sbgp(out, 'sbgp', 0, 0);
    out.U32('roll');
    out.U32(1);
    out.U32(static_cast<unsigned long long>(track.Tables().SampleCount()));
    out.U32(1);
}

void write_stbl(const Moov& moov, std::size_t index) {
    BoxWriter& out = moov.out;
    const TrackIndex& track = *moov.movie.tracks[index];
    Box stbl(out, 'stbl');
    WriteSampleDescription(out, track.Description(), moov.movie.quickTime);
    for (int i = 0; i < kTableKinds; i++) {
        const auto kind = static_cast<TableKind>(i);
        out.Leave(IndexLayout::GapId(index, kind),
                  IndexLayout::Area(kind, moov.layout.tracks[index][kind]));
        if (kind == kOffsets && track.IsVideo()) write_cslg(moov, track.Tables());
    }
    if (!track.IsVideo() && !track.IsPlain()) write_roll(moov, track);
}

void write_minf(const Moov& moov, std::size_t index) {
    BoxWriter& out = moov.out;
    Box minf(out, 'minf');
    if (moov.movie.tracks[index]->IsVideo()) {
        Box vmhd(out, 'vmhd', 0, 1);
        out.Zeros(8);
    } else {
        Box smhd(out, 'smhd', 0, 0);
        out.Zeros(4);
    }
    if (moov.movie.quickTime) write_hdlr(moov, 'dhlr', 'url ', "DataHandler");
    write_dinf(out);
    write_stbl(moov, index);
}

void write_trak(const Moov& moov, std::size_t index) {
    const TrackIndex& track = *moov.movie.tracks[index];
    Box trak(moov.out, 'trak');
    write_tkhd(moov, index);
    write_edts(moov, track);
    Box mdia(moov.out, 'mdia');
    write_mdhd(moov, track);
    if (track.IsVideo())
        write_hdlr(moov, 'mhlr', 'vide', "VideoHandler");
    else
        write_hdlr(moov, 'mhlr', 'soun', "SoundHandler");
    write_minf(moov, index);
}

void write_udta_mov(BoxWriter& out) {
    constexpr unsigned int kUndeterminedLanguage = 0x55c4;
    Box udta(out, 'udta');
    Box name(out, kEncoderMov);
    out.U16(static_cast<unsigned int>(kEncoder.size()));
    out.U16(kUndeterminedLanguage);
    out.Text(kEncoder);
}

void write_udta_mp4(BoxWriter& out) {
    constexpr unsigned int kUtf8 = 1;
    Box udta(out, 'udta');
    Box meta(out, 'meta', 0, 0);
    {
        Box hdlr(out, 'hdlr', 0, 0);
        out.U32(0);
        out.U32('mdir');
        out.U32('appl');
        out.Zeros(9);
    }
    Box ilst(out, 'ilst');
    Box name(out, kEncoderMp4);
    Box data(out, 'data');
    out.U32(kUtf8);
    out.U32(0);
    out.Text(kEncoder);
}

}  // namespace

namespace {

/// A track may begin so late that no 64 bits count it in a finer scale; two such numbers still add
/// up.
long long ticks_of(__int128 ticks) {
    constexpr long long kMost = std::numeric_limits<long long>::max() / 2;
    return static_cast<long long>(std::min<__int128>(ticks, kMost));
}

}  // namespace

long long Movie::EmptyTicks(const TrackIndex& track) const {
    const long long scale = track.Description().timescale;
    const auto product = static_cast<__int128>(track.Edit().emptyTicks) * timescale + scale / 2;
    return ticks_of(product / scale);
}

long long Movie::MediaTicks(const TrackIndex& track) const {
    // Where the movie's scale cannot say it exactly a tick more is said: less would cut the end.
    const long long scale = track.Description().timescale;
    const auto product = static_cast<__int128>(track.Edit().mediaTicks) * timescale + scale - 1;
    return ticks_of(product / scale);
}

long long Movie::Duration() const {
    long long longest = 0;
    for (const auto& track : tracks)
        longest = std::max(longest, EmptyTicks(*track) + MediaTicks(*track));
    return longest;
}

double Movie::Seconds() const {
    double longest = 0;
    for (const auto& track : tracks) longest = std::max(longest, track->Seconds());
    return longest;
}

void Movie::ChooseTimescale() {
    long long common = 1;
    long long finest = 1;
    for (const auto& track : tracks) {
        const long long scale = track->Description().timescale;
        finest = std::max(finest, scale);
        if (common <= kFinestMovieTimescale) common = std::lcm(common, scale);
    }
    timescale = common <= kFinestMovieTimescale ? common : finest;
    if (tracks.empty()) timescale = 600;  // QuickTime's own
}

long long IndexLayout::Area(TableKind kind, long long capacity) {
    return SampleTables::HeaderSize(kind) + capacity * SampleTables::EntrySize(kind) + kFreeHeader;
}

void WriteMoov(BoxWriter& writer, const Movie& movie, const IndexLayout& layout) {
    const Moov moov{writer, movie, layout};
    Box box(writer, 'moov');
    write_mvhd(moov);
    for (std::size_t i = 0; i < movie.tracks.size(); i++) write_trak(moov, i);
    if (movie.quickTime)
        write_udta_mov(writer);
    else
        write_udta_mp4(writer);
}

void WriteFileType(BoxWriter& writer, const Movie& movie) {
    Box ftyp(writer, 'ftyp');
    if (movie.quickTime) {
        writer.U32('qt  ');
        writer.U32(0x200);
        writer.U32('qt  ');
        writer.Zeros(12);
        return;
    }
    writer.U32('mp42');
    writer.U32(0);
    writer.U32('mp42');
    writer.U32('iso4');
    writer.U32('isom');
    writer.U32('avc1');
}

}  // namespace Quillon::Orb
