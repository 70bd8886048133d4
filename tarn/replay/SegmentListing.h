#pragma once

#include <vector>

class zString;

/// The segment files that one listing of a folder shows. For many segments that is far less work
/// than asking for the file of each.
class SegmentListing {
public:
    /// Files that are named by their id and this extension.
    SegmentListing(const zString& folder, const zString& extension);

    /// Whether the segment's file was in the folder. False says nothing: links, say, are not
    /// followed here, so that the file has to be asked for.
    bool Has(unsigned int id);

private:
    std::vector<unsigned int> fIDs;                   // sorted
    std::vector<unsigned int>::const_iterator fNext;  // what will be asked for, if ids just rise
};
