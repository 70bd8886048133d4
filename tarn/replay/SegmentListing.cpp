#include "tarn/replay/SegmentListing.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "spar/zDirectory.h"
#include "spar/zString.h"

/// The id of the segment that a file of exactly this name belongs to, 0 if it belongs to none. Ids
/// past 2147483647 have negative names.
static unsigned int id_of(std::string_view name, std::string_view extension) {
    const std::size_t digits = name.starts_with('-') ? 1 : 0;
    if (digits >= name.size() || name[digits] == '0') return 0;  // "%d" writes no zeros in front
    int id = 0;
    const auto read = std::from_chars(name.data(), name.data() + name.size(), id);
    if (read.ec != std::errc()) return 0;
    name.remove_prefix(static_cast<std::size_t>(read.ptr - name.data()));
    const bool isSegment = name.starts_with('.') && name.substr(1) == extension;
    return isSegment ? static_cast<unsigned int>(id) : 0;
}

SegmentListing::SegmentListing(const zString& folder, const zString& extension) {
    zDirectory::ForEachEntry(folder, [&](const char* name) {
        const unsigned int id = id_of(name, extension.View());
        if (id != 0) fIDs.push_back(id);
    });
    std::sort(fIDs.begin(), fIDs.end());
    fNext = fIDs.begin();
}

bool SegmentListing::Has(unsigned int id) {
    if (fNext == fIDs.end() || *fNext != id) fNext = std::lower_bound(fIDs.begin(), fIDs.end(), id);
    if (fNext == fIDs.end() || *fNext != id) return false;
    ++fNext;
    return true;
}
