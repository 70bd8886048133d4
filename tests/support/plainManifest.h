#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "spar/zFileStream.h"
#include "spar/zRecord.h"
#include "spar/zXML.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/replay/tnReplayManifest.h"

namespace tests {

/// What a manifest says, read the plain way: the whole document as one record, and a question to
/// the disk for each segment. tnReplayManifest::Read takes shorter ways to the same end.
class PlainManifest {
public:
    PlainManifest(std::string folder, const std::string& path) : fFolder(std::move(folder)) {
        fResult = read(path);
    }

    int Result() const { return fResult; }
    long long Duration() const { return fDuration; }
    std::vector<unsigned int> IDs() const {
        std::vector<unsigned int> ids;
        for (const tnReplaySegment* segment : fSegments) ids.push_back(segment->fId);
        return ids;
    }

private:
    static const zRecord* find(const zRecord& record, const char* name) {
        return record.FindChildByStrVariable('xTag', name, true, 0xFFFFFFFF, Z_MATCH_EXACT);
    }

    int read(const std::string& path) {
        zRecord record;
        const int parsed = zXML::ParseFile(zXML::kAttributes, &record, path.c_str());
        if (parsed != 0) return parsed;
        const zRecord* const formats = find(record, "formats");
        if (formats == nullptr || formats->ChildCount() != 2) return -1;
        std::string extension = "mov";
        for (const zRecord* child : formats->Children()) {
            if (child->AsInt32('type', 0) == TN_MEDIA_VIDEO) {
                extension = child->AsCString("file_extension", "mov");
            }
        }
        const zRecord* const segments = find(record, "segments");
        if (segments == nullptr) return -1;
        for (const zRecord* child : segments->Children()) take(*child, extension);
        return 0;
    }

    void take(const zRecord& record, const std::string& extension) {
        auto segment = std::make_unique<tnReplaySegment>();
        if (segment->Read(record, 0) != 0) return;
        const std::string stem = std::to_string(static_cast<int>(segment->fId));
        const std::string path = fFolder + "/" + stem + "." + extension;
        if (!zFileStream::Exists(path.c_str())) return;
        fSegments.Set(segment.get());
        fDuration = segment->fStop;
        fOwned.push_back(std::move(segment));
    }

    const std::string fFolder;
    std::vector<std::unique_ptr<tnReplaySegment>> fOwned;  // displaced ones too
    tnReplayManifest::Segments fSegments;
    long long fDuration = 0;
    int fResult = 0;
};

}  // namespace tests
