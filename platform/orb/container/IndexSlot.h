#pragma once

#include <vector>

#include "FileLayer.h"
#include "IndexLayout.h"

namespace Quillon::Orb {

/// One place in the file that holds a state of the index: a moov box, and a free box from its end
/// to the media data.
///
/// A slot is only written while it is hidden. What an earlier turn wrote stays: a turn adds the
/// entries that are new, and of the small boxes those that have changed.
class IndexSlot {
public:
    /// `dataHeader` is where the media data's box starts, to which the free box reaches.
    IndexSlot(long long position, long long dataHeader, IndexLayout layout);

    long long Position() const { return fPosition; }
    const IndexLayout& Layout() const { return fLayout; }
    /// Bytes of the moov box, once Update has run.
    long long MoovSize() const { return fMoovSize; }
    /// Brings the slot up to date with `movie`, which it must hold, writing at most `budget` old
    /// and new entries. 0 or a negative errno; after a failure the next turn writes the rest.
    int Update(FileLayer& file, const Movie& movie, long long& budget);

private:
    int write_table(FileLayer& file, const BoxWriter::Gap& gap, const TableView& view,
                    long long& budget);
    int write_room(FileLayer& file, const BoxWriter::Gap& gap);
    int write_boxes(FileLayer& file, const BoxWriter& moov);

    /// What of one table stands in the file.
    struct Written {
        long long entries = 0;  // for good
        bool isRoom = false;    // a free box in its place
        bool ended = false;     // with the header and tail below
        int tailSize = 0;
        unsigned char header[TableView::kLargestHeader];
        unsigned char tail[TableView::kLargestTail];

        void SetEnd(const TableView& view);
        bool HasEnd(const TableView& view) const;
    };

    const long long fPosition;
    const long long fDataHeader;
    const IndexLayout fLayout;
    std::vector<Written> fWritten;
    std::vector<unsigned char> fBoxes;  // as written last, without the tables
    std::vector<FileSpan> fSpans;       // kept for its memory
    long long fMoovSize = 0;
};

}  // namespace Quillon::Orb
