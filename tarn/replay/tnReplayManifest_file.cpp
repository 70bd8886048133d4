#include <optional>
#include <string>

#include "spar/zFileStream.h"
#include "spar/zRecord.h"
#include "spar/zXML.h"
#include "tarn/replay/SegmentListing.h"
#include "tarn/replay/SegmentRows.h"
#include "tarn/replay/tnReplayManifest.h"

// The manifest's text:
//
//     <larkspur_replay_manifest>
//     <formats>
//     <_xrecord type="int32:1986618479" .../>
//     <_xrecord type="int32:1635083375" .../>
//     </formats>
//     <segments>
//     <segment id="uint32:17" start="int64:0" stop="int64:40000"/>
//     ...
//     </segments>
//     </larkspur_replay_manifest>
//
// Flushed at <segments>, after each segment and at the end, so that all that a crash can cost is
// the closing lines, and these a reader does without.

static constexpr unsigned int kXmlForm = zXML::kAttributes | zXML::kNoDeclaration;
static constexpr unsigned long long kTagID = 'xTag';
static constexpr unsigned int kAllLevels = 0xFFFFFFFF;
static constexpr unsigned int kFormatCount = 2;   // video and audio
static constexpr unsigned int kListingPays = 64;  // segments

// Writing ----------------------------------------------------------------------------------------

int tnReplayManifest::write_record(const zRecord& record) {
    return zXML::WriteStream(kXmlForm, &record, fStream, "\n", 0);
}

int tnReplayManifest::write_begin() {
    const zCriticalLock lock(*fFileCritical);
    if (fStream == nullptr) return -1;
    const int result = write_head();
    if (result != 0) blank_from(0);
    return result;
}

int tnReplayManifest::write_head() {
    tnMediaRecord video;
    tnMediaRecord audio;
    {
        const zMutexLock formats(fFormatsLock);
        video = fVideoFormat;
        audio = fAudioFormat;
    }
    fStream->WriteString("<larkspur_replay_manifest>\n");
    fStream->WriteString("<formats>\n");
    int result = write_record(video);
    if (result != 0) return result;
    result = write_record(audio);
    if (result != 0) return result;
    fStream->WriteString("</formats>\n");
    fStream->WriteString("<segments>\n");
    return fStream->Flush();
}

int tnReplayManifest::write_segment(const tnReplaySegment* segment) {
    const zCriticalLock lock(*fFileCritical);
    if (fStream == nullptr) return -1;
    // The disk may have been full when the file was created.
    int result = fStream->Position() == 0 ? write_begin() : 0;
    if (result != 0) return result;
    zRecord record;
    tnReplaySegment(*segment).Write(record, true);
    const long long before = fStream->Position();
    result = write_record(record);
    if (result == 0) result = fStream->Flush();
    if (result != 0) blank_from(before);
    return result;
}

/// Half an element in the middle would make the whole file unreadable: what a full disk took of it
/// turns to spaces, and the next element is written over them.
void tnReplayManifest::blank_from(long long position) {
    const long long end = fStream->Position();
    if (end <= position || fStream->SetPosition(position) != 0) return;
    fStream->WriteString(std::string(static_cast<std::size_t>(end - position), ' '));
    fStream->Flush();
    fStream->SetPosition(position);
}

int tnReplayManifest::write_end() {
    const zCriticalLock lock(*fFileCritical);
    if (fStream == nullptr) return -1;
    fStream->WriteString("</segments>\n");
    fStream->WriteString("</larkspur_replay_manifest>");
    fStream->Flush();
    return 0;
}

// Reading ----------------------------------------------------------------------------------------

static const zRecord* find_element(const zRecord& record, const char* name) {
    return record.FindChildByStrVariable(kTagID, name, true, kAllLevels, Z_MATCH_EXACT);
}

int tnReplayManifest::Read() {
    // Both locks to the end, in the order in which a deletion takes them.
    const zCriticalLock fileLock(*fFileCritical);
    if (fRecording.load(std::memory_order_relaxed)) return 0;
    const zCriticalLock segmentsLock(*fSegmentsCritical);
    if (!fSegments.IsEmpty()) return 0;
    zRecord record;
    SegmentRows rows;
    const int parsed = zXML::ParseFile(zXML::kAttributes, &record, fPath, &rows);
    if (parsed != 0) return parsed;
    const zRecord* const formats = find_element(record, "formats");
    if (formats == nullptr || formats->ChildCount() != kFormatCount) return -1;
    take_formats(*formats);
    const zRecord* const segments = find_element(record, "segments");
    // A recording without segments yet is a good one, unlike one without formats: only a missing
    // list is an error.
    if (segments == nullptr) return -1;
    take_segments(*segments, rows);
    return 0;
}

void tnReplayManifest::take_formats(const zRecord& formats) {
    const zMutexLock lock(fFormatsLock);
    for (const zRecord* child : formats.Children()) {
        const tnMediaRecord format(*child);
        const int type = format.fType.AsInt32(0);
        if (type == TN_MEDIA_AUDIO) fAudioFormat = format;
        if (type == TN_MEDIA_VIDEO) fVideoFormat = format;
    }
}

zString tnReplayManifest::file_extension() const {
    const zMutexLock lock(fFormatsLock);
    return fVideoFormat.AsCString("file_extension", "mov");
}

void tnReplayManifest::take_segments(const zRecord& segments, const SegmentRows& rows) {
    std::optional<SegmentListing> listing;
    if (segments.ChildCount() + rows.Count() >= kListingPays) {
        listing.emplace(fFolder, file_extension());
    }
    const auto hasFile = [&](const tnReplaySegment* segment) {
        zString path;
        return (listing && listing->Has(segment->fId)) || GetSegmentPath(segment, path) == 0;
    };
    for (tnReplaySegment* segment : rows.InOrder(segments)) {
        if (!hasFile(segment)) {
            segment->Release();
            continue;
        }
        fSegments.Set(segment);
        fVideoDuration = segment->fStop;
    }
}
