#include "IndexSlot.h"

#include <algorithm>
#include <utility>

namespace Quillon::Orb {
namespace {

// A table takes its blocks this far ahead, so that a disk which fills with media data still has
// room for the last checkpoint.
constexpr long long kReserveAhead = 16384;

void put_free_header(unsigned char* header, long long size) {
    PutBig(header, static_cast<unsigned long long>(size), 4);
    PutBig(header + 4, 'free', 4);
}

}  // namespace

IndexSlot::IndexSlot(long long position, long long dataHeader, IndexLayout layout)
    : fPosition(position),
      fDataHeader(dataHeader),
      fLayout(std::move(layout)),
      fProgress(fLayout.tracks.size() * kTableKinds) {}

int IndexSlot::Update(FileLayer& file, const Movie& movie, long long& budget) {
    fUpToDate = false;
    BoxWriter moov;
    WriteMoov(moov, movie, fLayout);
    fMoovSize = moov.Position();
    bool complete = true;
    for (const BoxWriter::Gap& gap : moov.Gaps()) {
        const auto track = static_cast<std::size_t>(gap.id / kTableKinds);
        const auto kind = static_cast<TableKind>(gap.id % kTableKinds);
        const TableView view = movie.tracks[track]->Tables().View(kind);
        const int error =
            view.present ? write_table(file, gap, view, budget) : write_room(file, gap);
        if (error != 0) return error;
        const long long written = fProgress[static_cast<std::size_t>(gap.id)].written;
        complete = complete && (!view.present || written == view.entries->Count());
    }
    if (!complete) return 0;
    const int error = write_boxes(file, moov);
    fUpToDate = error == 0;
    return error;
}

int IndexSlot::write_table(FileLayer& file, const BoxWriter::Gap& gap, const TableView& view,
                           long long& budget) {
    Progress& progress = fProgress[static_cast<std::size_t>(gap.id)];
    const int entrySize = view.entries->EntrySize();
    const long long area = fPosition + gap.position;
    const long long first = progress.written;
    const long long last = first + std::clamp(budget, 0LL, view.entries->Count() - first);
    const long long from = area + view.headerSize + first * entrySize;
    unsigned char room[8];
    fSpans.clear();
    view.entries->Spans(first, last, fSpans);
    long long end = from + (last - first) * entrySize;
    if (last == view.entries->Count()) {
        end += view.tailSize;
        put_free_header(room, area + gap.size - end);
        fSpans.push_back({view.tail, static_cast<std::size_t>(view.tailSize)});
        fSpans.push_back({room, sizeof room});
    }
    if (const int error = reserve(file, gap, end)) return error;
    if (const int error = file.WriteAt(from, fSpans.data(), static_cast<int>(fSpans.size())))
        return error;
    budget -= last - first;
    progress.written = last;
    if (last < view.entries->Count()) return 0;
    return file.WriteAt(area, view.header, static_cast<std::size_t>(view.headerSize));
}

int IndexSlot::write_room(FileLayer& file, const BoxWriter::Gap& gap) {
    unsigned char room[8];
    put_free_header(room, gap.size);
    return file.WriteAt(fPosition + gap.position, room, sizeof room);
}

int IndexSlot::write_boxes(FileLayer& file, const BoxWriter& moov) {
    for (const BoxWriter::Piece& piece : moov.Pieces())
        if (const int error = file.WriteAt(fPosition + piece.position, piece.data, piece.size))
            return error;
    unsigned char rest[8];
    const long long end = fPosition + fMoovSize;
    put_free_header(rest, fDataHeader - end);
    return file.WriteAt(end, rest, sizeof rest);
}

int IndexSlot::reserve(FileLayer& file, const BoxWriter::Gap& gap, long long end) {
    Progress& progress = fProgress[static_cast<std::size_t>(gap.id)];
    const long long area = fPosition + gap.position;
    if (end + kReserveAhead / 2 <= progress.reserved) return 0;
    const long long from = std::max(progress.reserved, area);
    const long long to = std::min(end + kReserveAhead, area + gap.size);
    if (to <= from) return 0;
    // A disk without room for this may still have it for the write itself.
    (void)!file.Reserve(from, to - from);
    progress.reserved = to;
    return 0;
}

}  // namespace Quillon::Orb
