#pragma once

#include <vector>

#include "spar/zXMLShortcut.h"

class tnReplaySegment;

/// Reads the segments of a manifest off its text where they stand as a recording writes them, and
/// puts them in order with those that came as records.
class SegmentRows final : public zXMLShortcut {
public:
    std::string_view Opening() const override;
    /// Takes from the first element named "segments" below the root.
    Taken Take(const zRecord& root, const zRecord& parent, std::string_view text) override;

    unsigned int Count() const { return static_cast<unsigned int>(fRows.size()); }

    /// The valid segments in the document's order; the caller owns each. `segments` is the first
    /// element of that name, with the children that were not taken.
    std::vector<tnReplaySegment*> InOrder(const zRecord& segments) const;

private:
    struct Row {
        unsigned int id;
        unsigned int childrenBefore;  // of the list, in front of this row
        long long start;
        long long stop;
    };

    bool is_list(const zRecord& root, const zRecord& parent);

    const zRecord* fList = nullptr;  // the document's, not owned
    std::vector<Row> fRows;          // valid ones
};
