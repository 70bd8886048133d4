#include "IndexSlot.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Quillon::Orb {
namespace {

void put_free_header(unsigned char* header, long long size) {
    PutBig(header, static_cast<unsigned long long>(size), 4);
    PutBig(header + 4, 'free', 4);
}

}  // namespace

IndexSlot::IndexSlot(long long position, long long dataHeader, IndexLayout layout)
    : fPosition(position),
      fDataHeader(dataHeader),
      fLayout(std::move(layout)),
      fWritten(fLayout.tracks.size() * kTableKinds) {}

int IndexSlot::Update(FileLayer& file, const Movie& movie, long long& budget) {
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
        const long long entries = fWritten[static_cast<std::size_t>(gap.id)].entries;
        complete = complete && (!view.present || entries == view.entries->Count());
    }
    return complete ? write_boxes(file, moov) : 0;
}

int IndexSlot::write_table(FileLayer& file, const BoxWriter::Gap& gap, const TableView& view,
                           long long& budget) {
    Written& written = fWritten[static_cast<std::size_t>(gap.id)];
    const long long first = written.entries;
    const long long last = first + std::clamp(budget, 0LL, view.entries->Count() - first);
    const bool whole = last == view.entries->Count();
    if (whole && last == first && written.HasEnd(view)) return 0;
    const long long area = fPosition + gap.position;
    const long long from = area + view.headerSize + first * view.entries->EntrySize();
    fSpans.clear();
    view.entries->Spans(first, last, fSpans);
    unsigned char room[8];
    if (whole) {
        const long long end = from + (last - first) * view.entries->EntrySize() + view.tailSize;
        put_free_header(room, area + gap.size - end);
        fSpans.push_back({view.tail, static_cast<std::size_t>(view.tailSize)});
        fSpans.push_back({room, sizeof room});
    }
    written.ended = false;
    if (const int error = file.WriteAt(from, fSpans.data(), static_cast<int>(fSpans.size())))
        return error;
    budget -= last - first;
    written.entries = last;
    if (!whole) return 0;
    if (const int error =
            file.WriteAt(area, view.header, static_cast<std::size_t>(view.headerSize)))
        return error;
    written.SetEnd(view);
    return 0;
}

int IndexSlot::write_room(FileLayer& file, const BoxWriter::Gap& gap) {
    Written& written = fWritten[static_cast<std::size_t>(gap.id)];
    if (written.isRoom) return 0;
    unsigned char room[8];
    put_free_header(room, gap.size);
    const int error = file.WriteAt(fPosition + gap.position, room, sizeof room);
    // A table never goes away again, so that this is true until it comes.
    written.isRoom = error == 0;
    return error;
}

int IndexSlot::write_boxes(FileLayer& file, const BoxWriter& moov) {
    const bool known = fBoxes.size() == moov.Memory().size();
    for (const BoxWriter::Piece& piece : moov.Pieces()) {
        const auto offset = piece.data - moov.Memory().data();
        if (known &&
            std::memcmp(piece.data, &fBoxes[static_cast<std::size_t>(offset)], piece.size) == 0)
            continue;
        const int error = file.WriteAt(fPosition + piece.position, piece.data, piece.size);
        if (error != 0) {
            fBoxes.clear();
            return error;
        }
    }
    if (!known) {
        unsigned char rest[8];
        const long long end = fPosition + fMoovSize;
        put_free_header(rest, fDataHeader - end);
        if (const int error = file.WriteAt(end, rest, sizeof rest)) return error;
    }
    fBoxes = moov.Memory();
    return 0;
}

void IndexSlot::Written::SetEnd(const TableView& view) {
    ended = true;
    tailSize = view.tailSize;
    std::memcpy(header, view.header, sizeof header);
    std::memcpy(tail, view.tail, sizeof tail);
}

bool IndexSlot::Written::HasEnd(const TableView& view) const {
    return ended && tailSize == view.tailSize &&
           std::memcmp(header, view.header, static_cast<std::size_t>(view.headerSize)) == 0 &&
           std::memcmp(tail, view.tail, static_cast<std::size_t>(tailSize)) == 0;
}

}  // namespace Quillon::Orb
