#include "tarn/iso/tnISOValidator.h"

#include "spar/zFSPath.h"
#include "spar/zRecord.h"
#include "spar/zThread.h"
#include "tarn/iso/tnISOAccessor.h"
#include "tarn/iso/tnISOFileLayer.h"

namespace {

constexpr long long kLeastFreeBytes = 0x20000000;

/// Whether `value` was another one.
template <typename T>
bool store(T& value, T const& now) {
    if (value == now) return false;
    value = now;
    return true;
}

/// Of what the output records; empty if the record says neither source nor shot.
std::string recorded_id(zRecord const& settings, tnISOAccessor const& accessor) {
    if (accessor.IsSourceRecording()) return settings.AsString("source_id", "");
    if (accessor.IsShotRecording()) return settings.AsString("shot_id", "");
    return {};
}

bool is_video_on(zRecord const& settings) {
    return settings.AsBool("video_track_enabled", true);
}

bool is_audio_on(zRecord const& settings) {
    return settings.AsBool("audio_track_enabled", true);
}

/// A format with a named quality has no rate, whatever its record says.
bool is_bitrate_out_of_range(tnISOAccessor const& accessor) {
    return !accessor.IsVideoFormatWithQualitySetting() &&
           accessor.VideoBitrateKbps(false) != accessor.VideoBitrateKbps(true);
}

bool is_duration_out_of_range(tnISOAccessor const& accessor) {
    return accessor.FileDurationSeconds(false) != accessor.FileDurationSeconds(true);
}

/// What the file system throws counts as `otherwise`.
template <typename Answer, typename Question>
Answer ask(Question const& question, Answer otherwise) {
    try {
        return question();
    } catch (...) {
        return otherwise;
    }
}

}  // namespace

tnISOValidator::tnISOValidator(zRecord* outputs) : fOutputs(outputs) {}

tnISOValidator::~tnISOValidator() {
    // What the check has handed to the main thread does not run any more once the token is
    // cancelled; what it still hands over while we wait does not either.
    if (fCancel) fCancel->Cancel();
    if (fFolderCheck.valid()) fFolderCheck.wait();
}

void tnISOValidator::Validate(zRecord const& settings) {
    if (fCancel) fCancel->Cancel();
    const tnISOAccessor accessor(settings);
    bool changed = check_source(settings, accessor);
    changed |= check_tracks(settings, accessor);
    changed |= store(fBitrateOutOfRange, is_bitrate_out_of_range(accessor));
    changed |= check_other_outputs(settings, accessor);
    changed |= store(fDurationOutOfRange, is_duration_out_of_range(accessor));
    changed |= store(fBadFilename, zFSPath::NameHasRestrictedCharacters(
                                       settings.AsString("output_filename", ""), true));

    const std::string folder = settings.AsString("output_folder", "");
    if (folder.empty()) {
        // There is no disk to speak of, so the space keeps what was last known.
        changed |= store(fFolderExists, false);
    } else {
        start_folder_check(folder);
    }
    if (changed) fChanged.Notify();
}

bool tnISOValidator::check_source(zRecord const& settings, tnISOAccessor const& accessor) {
    // An output without a source, and one whose source cannot be found, tell so at every check:
    // hosts show the problem anew each time that a user comes back to it.
    const std::string id = recorded_id(settings, accessor);
    bool changed = id.empty() || id != fSourceId;
    fSourceId = id;

    const int number = fSourceLookup && !fSourceId.empty() ? fSourceLookup(accessor) : 0;
    changed |= number == 0 || number != fSourceNumber;
    fSourceNumber = number;
    return changed;
}

bool tnISOValidator::check_tracks(zRecord const& settings, tnISOAccessor const& accessor) {
    bool changed = store(fNoTracksEnabled, !is_video_on(settings) && !is_audio_on(settings));
    bool isUnavailable = false;
    if (!fNoTracksEnabled && !fSourceId.empty() && fSourceNumber != 0 && fTrackLookup) {
        bool hasVideo = false;
        bool hasAudio = false;
        fTrackLookup(accessor, hasVideo, hasAudio);
        isUnavailable =
            !(hasVideo && is_video_on(settings)) && !(hasAudio && is_audio_on(settings));
    }
    changed |= store(fTracksUnavailable, isUnavailable);
    return changed;
}

bool tnISOValidator::check_other_outputs(zRecord const& settings, tnISOAccessor const& accessor) {
    bool isSourceInUse = false;
    bool isPathInUse = false;
    if (fOutputs != nullptr) {
        const std::string guid = settings.AsString('guid', "");
        fOutputs->ForEachChild([&](zRecord* child) {
            const tnISOAccessor other(*child);  // tags it
            // The one that is being checked itself. Two that have no identity yet count as one.
            if (child->AsString('guid', "") == guid) return true;
            if (!fSourceId.empty() && recorded_id(*child, other) == fSourceId) isSourceInUse = true;
            if (accessor.HasSamePath(other)) isPathInUse = true;
            return true;
        });
    }
    bool changed = store(fSourceInUse, isSourceInUse);
    changed |= store(fPathInUse, isPathInUse);
    return changed;
}

void tnISOValidator::start_folder_check(std::string const& folder) {
    fCancel = std::make_shared<zCancelClass>();
    if (fFolderCheck.valid()) fFolderCheck.wait();  // called off above
    fFolderCheck = std::async(std::launch::async, [this, folder, token = fCancel] {
        return check_folder(folder, token);
    });
}

/// On the check's own thread: nothing of the object is touched here.
bool tnISOValidator::check_folder(std::string const& folder,
                                  std::shared_ptr<zCancelClass> const& token) {
    tnISOFileLayer& files = tnISOFileLayer::Current();
    const bool exists = !token->IsCancelled() && ask([&] { return files.IsFolder(folder); }, false);
    const bool isLow = exists && !token->IsCancelled() &&
                       ask([&] { return files.SpaceAvailable(folder) < kLeastFreeBytes; }, false);
    if (token->IsCancelled()) return false;
    zThread::ExecuteOnMainThread(token, 0, {},
                                 [this, exists, isLow] { take_folder(exists, isLow); });
    return true;
}

void tnISOValidator::take_folder(bool exists, bool isLow) {
    bool changed = store(fFolderExists, exists);
    changed |= store(fLowDiskSpace, isLow);
    if (changed) fChanged.Notify();
}

bool tnISOValidator::HasProblems() const {
    return fSourceId.empty() || (fSourceLookup && fSourceNumber == 0) || fNoTracksEnabled ||
           fTracksUnavailable || fBitrateOutOfRange || fSourceInUse || fPathInUse ||
           fDurationOutOfRange || fBadFilename || !fFolderExists || fLowDiskSpace;
}
