#pragma once

#include <vector>

#include "FileLayer.h"
#include "IndexLayout.h"

namespace Quillon::Orb {

/// One place in the file that holds a state of the index: a moov box, and a free box from its end
/// to the media data.
///
/// A slot is only written while it is hidden. What an earlier turn wrote stays: a turn adds the
/// entries that are new, and writes the small boxes again.
class IndexSlot {
public:
    /// `dataHeader` is where the media data's box starts, to which the free box reaches.
    IndexSlot(long long position, long long dataHeader, IndexLayout layout);

    long long Position() const { return fPosition; }
    const IndexLayout& Layout() const { return fLayout; }
    /// Bytes of the moov box, once Update has run.
    long long MoovSize() const { return fMoovSize; }
    /// True when the last Update wrote all that there was.
    bool IsUpToDate() const { return fUpToDate; }

    /// Brings the slot up to date with `movie`, which it must hold, writing at most `budget` old
    /// and new entries. 0 or a negative errno; after a failure the next turn writes the rest.
    int Update(FileLayer& file, const Movie& movie, long long& budget);

private:
    int write_table(FileLayer& file, const BoxWriter::Gap& gap, const TableView& view,
                    long long& budget);
    int write_room(FileLayer& file, const BoxWriter::Gap& gap);
    int write_boxes(FileLayer& file, const BoxWriter& moov);
    int reserve(FileLayer& file, const BoxWriter::Gap& gap, long long end);

    struct Progress {
        long long written = 0;   // entries that stand in the file for good
        long long reserved = 0;  // up to here, in the file, the table's blocks are taken
    };

    const long long fPosition;
    const long long fDataHeader;
    const IndexLayout fLayout;
    std::vector<Progress> fProgress;
    std::vector<FileSpan> fSpans;  // kept for its memory
    long long fMoovSize = 0;
    bool fUpToDate = false;
};

}  // namespace Quillon::Orb
