#include "ReplayPurge.h"

#include <filesystem>
#include <fmt/format.h>

#include "spar/zThread.h"
#include "tarn/replay/tnManifestBefore.h"
#include "tarn/replay/tnReplayManifest.h"

namespace {

constexpr int kPollUs = 2000;
constexpr int kPatienceUs = 30'000'000;  // without a file that goes

std::size_t count_standing(const std::vector<ReplayPiece>& pieces) {
    std::size_t count = 0;
    std::error_code failed;
    for (const ReplayPiece& piece : pieces) {
        if (std::filesystem::exists(piece.path, failed)) ++count;
    }
    return count;
}

std::string text_of_unwritable(const ReplayRecording& recording) {
    return fmt::format("'{}': cannot be written anew; is the folder writable and not full?",
                       recording.manifest);
}

/// The library removes files on a thread that ends with this process: it is waited for here.
bool wait_until_gone(const std::vector<ReplayPiece>& pieces,
                     const std::function<void(double)>& progress) {
    std::size_t left = count_standing(pieces);
    int idleUs = 0;
    while (left > 0 && idleUs < kPatienceUs) {
        zThread::MicroSleep(kPollUs);
        const std::size_t now = count_standing(pieces);
        idleUs = now < left ? 0 : idleUs + kPollUs;
        left = now;
        progress(1 - static_cast<double>(left) / static_cast<double>(pieces.size()));
    }
    return left == 0;
}

}  // namespace

bool PurgeReplay(const std::string& place, long long keep, bool force,
                 const std::function<void(double)>& progress, ReplayPurged& purged,
                 std::string& error) {
    ReplayRecording recording;
    if (!ReadReplay(place, recording, error)) return false;
    if (!recording.closed && !force) {
        error = fmt::format(
            "'{}': is not closed; wait for its recorder to end, or use --force if it was killed",
            recording.manifest);
        return false;
    }
    // -1 would be no limit at all.
    const long long limit = recording.Stop() - keep == -1 ? -2 : recording.Stop() - keep;
    std::vector<ReplayPiece> going;
    for (const ReplayPiece& piece : recording.pieces) {
        if (piece.stop <= limit) going.push_back(piece);
    }
    purged.kept = recording.pieces.size() - going.size();
    purged.removed = going.size();
    if (going.empty()) return true;
    const tnManifestBefore before(recording.manifest);
    if (recording.listedBefore && !before.BringBack()) {
        error = text_of_unwritable(recording);
        return false;
    }
    const bool isKept = before.Keep();
    tnReplayManifest* const manifest = tnReplayManifest::GetManifest(recording.manifest.c_str());
    bool rewritten = false;
    if (manifest->Read() == 0) {
        tnReplayManifest::Segments active;
        manifest->DeleteNonActiveSegments(active, limit);
        rewritten = before.DropIfListed(*manifest, active);
        for (tnReplaySegment* segment : active) segment->Release();
    }
    tnReplayManifest::ReleaseManifest(manifest);
    if (!rewritten) {
        // A disk may be too full even for the new manifest.
        if (isKept) before.BringBack();
        error = text_of_unwritable(recording);
        return false;
    }
    for (const ReplayPiece& piece : going) purged.bytes += piece.bytes;
    if (wait_until_gone(going, progress)) return true;
    error = fmt::format("'{}': some segment files cannot be removed; look at the folder's rights",
                        recording.folder);
    return false;
}
