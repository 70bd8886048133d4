#include "orb/CAssetWriter.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "orb/MovieFileInventory.h"
#include "orb/MovieQueue.h"
#include "orb/TrackPipe.h"
#include "orb/filterSupport.h"
#include "spar/trace.h"

namespace Quillon::Orb {

namespace {

/// Why no file can be written at `path`, or an empty text. Nothing is made or touched.
std::string obstacle_at(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) return "it is a folder";
        return access(path.c_str(), W_OK) == 0 ? "" : std::strerror(errno);
    }
    if (errno != ENOENT) return std::strerror(errno);
    const std::size_t slash = path.rfind('/');
    if (slash == path.size() - 1) return "it names no file";
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    if (stat(folder.c_str(), &status) != 0)
        return "its folder: " + std::string(std::strerror(errno));
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        return "its folder: " + std::string(std::strerror(errno));
    }
    return "";
}

/// Streams of transport packets need no file: they go wherever libavformat can send them.
bool is_address(unsigned int containerType, const std::string& path) {
    return containerType == 'ts  ' && path.find("://") != std::string::npos;
}

long long steady_now() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// Properties speak a scale of their own, which need not be that of the file. 0 for none.
long long ticks_of(long long duration, long long scale, long long fileScale) {
    if (scale <= 0) return 0;
    return static_cast<long long>(static_cast<__int128>(duration) * fileScale / scale);
}

}  // namespace

CAssetWriter::CAssetWriter() : CObject(kType, nullptr) {}
CAssetWriter::~CAssetWriter() = default;

Result CAssetWriter::Create(unsigned int containerType, CString* path) {
    if (!path || path->GetLength() == 0) {
        zTrace("a movie file needs a path\n");
        return ResultNullPointer("a movie file needs a path");
    }
    if (fBegun) return ResultError("the file has begun already");
    if (!MovieFileInventory::Find(containerType)) {
        const std::string type = four_text(containerType);
        zTrace("'{}': nobody writes containers of type {}\n", path->GetText(), type);
        return ResultNotSupported("nobody writes containers of type %s", type.c_str());
    }
    const bool needsFile = !is_address(containerType, path->GetText());
    const std::string obstacle = needsFile ? obstacle_at(path->GetText()) : "";
    if (!obstacle.empty()) {
        zTrace("'{}' cannot be written: {}\n", path->GetText(), obstacle);
        return ResultError("'%s' cannot be written: %s", path->GetText(), obstacle.c_str());
    }
    fContainer = new CContainerWriter(containerType, path->GetText());
    // Tracks of a file that was created before stand in that one for good.
    fTracks.clear();
    return fContainer ? Result(0) : Result(ResultOutOfMemory());
}

CContainerWriter* CAssetWriter::GetContainerWriter() const {
    return RObject<CContainerWriter>(fContainer).Detach();
}

Result CAssetWriter::AddVideoWriter(CAssetVideoWriter* track) {
    return add(track);
}
Result CAssetWriter::AddAudioWriter(CAssetAudioWriter* track) {
    return add(track);
}

Result CAssetWriter::add(CAssetTrackWriter* track) {
    if (!track) return ResultNullPointer("no track");
    if (!fContainer) return ResultError("the file was not created");
    if (fBegun) return ResultError("the file has begun already");
    Result result = track->Pipe().Join(fContainer.Get());
    if (result.Succeeded()) fTracks.push_back(RObject<CAssetTrackWriter>::Share(track));
    return result;
}

Result CAssetWriter::Begin() {
    if (!fContainer) return ResultError("the file was not created");
    if (fBegun) return ResultError("the file has begun already");
    // A host whose set-up failed half way makes new tracks and lets go of the old ones, which
    // nobody can write to any more: they get no place in the file.
    std::erase_if(fTracks, [](const auto& track) { return !track->IsShared(); });
    std::vector<MovieTrack> descriptions;
    std::vector<TrackPipe*> pipes;
    for (const auto& track : fTracks) {
        if (!track->Pipe().HasBegun()) continue;
        RObject<CMediaProperties> properties(track->GetProperties());
        MovieTrack description = track->Pipe().GetDescription();
        description.expectedDuration =
            ticks_of(properties->GetDuration(), properties->GetTimescale(), description.timescale);
        descriptions.push_back(std::move(description));
        pipes.push_back(&track->Pipe());
    }
    const MovieFileOptions options = fContainer->options();
    MovieFileMaker maker = MovieFileInventory::Find(options.containerType);
    std::unique_ptr<MovieFile> file = maker ? maker(fContainer->GetPath(), options) : nullptr;
    if (!file) return ResultNotSupported("nobody writes this container any more");
    Result result =
        fContainer->Queue().Begin(std::move(file), descriptions, fContainer->GetQueueSize());
    if (result.Failed()) return result;
    for (std::size_t i = 0; i < pipes.size(); ++i) pipes[i]->SetIndex(static_cast<int>(i));
    fBegun = true;
    return 0;
}

Result CAssetWriter::Finish() {
    if (!fBegun) return 0;
    for (const auto& track : fTracks) {
        if (track->Pipe().EndOrCutOff(kFinishPatienceMs * 1000LL)) continue;
        zTrace("'{}': a track did not come to its end and is cut off\n", fContainer->GetPath());
    }
    Result result = fContainer->Queue().Finish();
    fTracks.clear();
    fBegun = false;
    return result;
}

Result CAssetWriter::GetFailure() const {
    return fBegun ? fContainer->Queue().GetFailure() : Result(0);
}

bool CAssetWriter::WaitForMedia(int milliseconds) {
    if (!fContainer) return true;
    ReadyBell& bell = fContainer->Queue().Bell();
    const long long end = steady_now() + milliseconds * 1000LL;
    std::vector<TrackPipe*> waitedFor;
    for (const auto& track : fTracks) {
        if (!track->IsReady()) waitedFor.push_back(&track->Pipe());
    }
    if (waitedFor.empty()) return true;
    for (;;) {
        const long long count = bell.GetCount();
        for (const TrackPipe* pipe : waitedFor) {
            if (pipe->IsReady()) return true;
        }
        const long long left = end - steady_now();
        if (left <= 0) return false;
        bell.WaitBeyond(count, left);
    }
}

}  // namespace Quillon::Orb
