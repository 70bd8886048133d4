#include "ReplayWatch.h"

#include <cerrno>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "spar/zTime.h"

#include "../Say.h"

namespace {

/// Only for what comes without an event: Ctrl-C, and a folder that is replaced.
constexpr int kLookAgainMs = 250;
/// How long a manifest has to stand as closed before it is taken for the recording's end.
constexpr long long kSettledUs = 1'000'000;

/// Wakes when something in a folder is written, made, renamed or removed.
class FolderEvents {
public:
    explicit FolderEvents(const std::string& folder)
        : fQueue(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        if (fQueue >= 0) fWatch = inotify_add_watch(fQueue, folder.c_str(), kEvents);
    }
    ~FolderEvents() {
        if (fQueue >= 0) close(fQueue);
    }
    FolderEvents(const FolderEvents&) = delete;
    FolderEvents& operator=(const FolderEvents&) = delete;

    bool IsGood() const { return fWatch >= 0; }
    void Wait() const {
        pollfd wait{fQueue, POLLIN, 0};
        if (poll(&wait, 1, kLookAgainMs) <= 0) return;
        char events[4096];
        while (read(fQueue, events, sizeof events) > 0) {
        }
    }

private:
    static constexpr unsigned int kEvents =
        IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_CLOSE_WRITE;
    int fQueue;
    int fWatch = -1;
};

class Watcher {
public:
    explicit Watcher(const std::function<void(const ReplayNews&)>& tell) : fTell(tell) {}

    /// A manifest is written anew at times and then lists less for a moment: what is gone is known
    /// by its file alone.
    void Look(const ReplayRecording& recording) {
        for (auto known = fKnown.begin(); known != fKnown.end();) {
            std::error_code failed;
            if (std::filesystem::exists(known->second.path, failed)) {
                ++known;
                continue;
            }
            fTell({ReplayNews::Kind::kRemoved, known->second});
            known = fKnown.erase(known);
        }
        for (const ReplayPiece& piece : recording.pieces) {
            if (fKnown.emplace(piece.id, piece).second) fTell({ReplayNews::Kind::kAdded, piece});
        }
    }

private:
    const std::function<void(const ReplayNews&)>& fTell;
    std::map<unsigned int, ReplayPiece> fKnown;
};

/// Whether a recording has ended. A recorder that deletes old segments closes its manifest too, and
/// begins another in its place at once: an end is one that stays.
class Ending {
public:
    bool HasCome(const ReplayRecording& recording) {
        std::error_code failed;
        const auto written = std::filesystem::last_write_time(recording.manifest, failed);
        if (!recording.closed || failed || written != fWritten) {
            fWritten = written;
            fSince = zTime::MicroNow();
            return false;
        }
        return zTime::MicroNow() - fSince >= kSettledUs;
    }

private:
    std::filesystem::file_time_type fWritten{};
    long long fSince = 0;
};

}  // namespace

bool WatchReplay(const std::string& place, const std::atomic<bool>& stop,
                 const std::function<void(const ReplayNews&)>& tell, std::string& error) {
    const std::string manifest = ReplayManifestPath(place);
    std::filesystem::path folder = std::filesystem::path(manifest).parent_path();
    if (folder.empty()) folder = ".";
    const FolderEvents events(folder.string());
    if (!events.IsGood()) {
        error = fmt::format("'{}': there is no such folder to watch", folder.string());
        return false;
    }
    Watcher watcher(tell);
    Ending ending;
    while (!stop && HasReader()) {
        ReplayRecording recording;
        // A manifest that is not there, or not whole, is one that is about to be.
        std::string passing;
        if (ReadReplay(manifest, recording, passing)) {
            watcher.Look(recording);
            if (ending.HasCome(recording)) {
                tell({ReplayNews::Kind::kClosed, {}});
                return true;
            }
        }
        events.Wait();
    }
    return true;
}
