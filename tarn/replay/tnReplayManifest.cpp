#include "tarn/replay/tnReplayManifest.h"

#include <memory>

#include "spar/zDirectory.h"
#include "spar/zFSPath.h"
#include "spar/zFileStream.h"
#include "spar/zThread.h"
#include "tarn/replay/tnReplayManifestPlayer_XI.h"

// Life of a manifest: the registry, construction and end, and recording. What the file looks like
// stands in tnReplayManifest_file.cpp, look-ups in _segments.cpp, deletion in _deletion.cpp.

static constexpr char kRecursiveLock = 1;
static constexpr int kFolderAttempts = 4;
static constexpr unsigned int kFolderPauseUs = 15000;

zMap<zString, tnReplayManifest*, zStringCmp>* tnReplayManifest::fManifests = nullptr;
zCritical* tnReplayManifest::fManifestsCritical = nullptr;

// Registry ---------------------------------------------------------------------------------------

void tnReplayManifest::Startup() {
    fManifestsCritical = zCritical::Factory(kRecursiveLock);
    fManifests = new zMap<zString, tnReplayManifest*, zStringCmp>;
}

void tnReplayManifest::Shutdown() {
    delete fManifests;
    delete fManifestsCritical;
    fManifests = nullptr;
    fManifestsCritical = nullptr;
}

tnReplayManifest* tnReplayManifest::GetManifest(const char* path) {
    const zCriticalLock lock(*fManifestsCritical);
    if (tnReplayManifest** const known = fManifests->Find(path)) {
        (*known)->AddRef();
        return *known;
    }
    auto* const manifest = new tnReplayManifest(path);
    manifest->AddRef();  // the caller's; the first reference is the map's
    (*fManifests)[path] = manifest;
    return manifest;
}

void tnReplayManifest::ReferenceManifest(tnReplayManifest* manifest) {
    const zCriticalLock lock(*fManifestsCritical);
    manifest->AddRef();
}

void tnReplayManifest::ReleaseManifest(tnReplayManifest* manifest) {
    // Counted under the lock, so that nobody is handed a manifest that is about to go.
    const zCriticalLock lock(*fManifestsCritical);
    if (manifest->Release() != 1) return;
    fManifests->Remove(manifest->fPath);
    manifest->Release();
}

void tnReplayManifest::DeleteManifest(const char* path) {
    const zCriticalLock lock(*fManifestsCritical);
    zFSPath folder(path);
    folder.GoParent();
    if (fManifests->Find(path) != nullptr) return;
    if (zFileStream::Exists(path)) zFileStream::RemoveFile(path);
    const std::unique_ptr<zDirectory> directory(zDirectory::Factory());
    if (!zDirectory::Exists(folder.CString())) return;
    // The folder empties as the remover of segment files goes on.
    for (int attempt = 1; directory->Remove(folder.CString()) != 0; ++attempt) {
        if (attempt == kFolderAttempts) return;
        zThread::MicroSleep(kFolderPauseUs);
    }
}

// Construction and end ---------------------------------------------------------------------------

tnReplayManifest::tnReplayManifest(const char* path)
    : fPath(path),
      fSegmentsCritical(zCritical::Factory(kRecursiveLock)),
      fFileCritical(zCritical::Factory(kRecursiveLock)) {
    zFSPath folder(path);
    folder.GoParent();
    fFolder = folder.Path();
    fLeaf = folder.GetLeaf();
}

tnReplayManifest::~tnReplayManifest() {
    StopRecording();
    {
        const zCriticalLock lock(*fSegmentsCritical);
        for (tnReplaySegment* segment : fSegments) segment->Release();
        fSegments.RemoveAll();
        if (fPlayer != nullptr) fPlayer->OnManifestClosing();
        fPlayer = nullptr;
    }
    delete fSegmentsCritical;
    delete fFileCritical;
}

// Recording --------------------------------------------------------------------------------------

int tnReplayManifest::BeginRecording(const tnMediaRecord& video, const tnMediaRecord& audio) {
    if (fRecording.load(std::memory_order_relaxed)) return -1;
    {
        const zCriticalLock lock(*fSegmentsCritical);
        if (!fSegments.IsEmpty()) return -1;
        const zMutexLock formats(fFormatsLock);
        fVideoFormat = video;
        fAudioFormat = audio;
    }
    return begin_recording();
}

int tnReplayManifest::begin_recording() {
    const zCriticalLock lock(*fFileCritical);
    if (fRecording.load(std::memory_order_relaxed)) return -1;
    if (zFileStream::Exists(fPath)) return -1;
    auto stream = std::make_unique<zFileStream>(fPath, Z_FILE_WRITE, false);
    const int opened = stream->Open();
    if (opened != 0) return opened;
    fStream = stream.release();
    fRecording.store(true, std::memory_order_relaxed);
    // A full disk at this moment may have room again when the first segment comes, whose write
    // tells.
    write_begin();
    return 0;
}

bool tnReplayManifest::may_add() const {
    const zCriticalLock lock(*fFileCritical);
    return fRecording.load(std::memory_order_relaxed) && fStream != nullptr;
}

int tnReplayManifest::AddSegment(unsigned int id, long long start, long long stop) {
    if (!may_add()) return -1;
    auto* const segment = new tnReplaySegment(id, start, stop);
    const int result = add_segment(segment);
    segment->Release();
    return result;
}

int tnReplayManifest::add_segment(tnReplaySegment* segment) {
    segment->AddRef();  // the tree's
    // Written before it is listed: what a look-up gives stands in the file too. No lock spans the
    // two, so that look-ups never wait for the disk; a deletion in between, which the host keeps
    // from happening, would write a file without this segment.
    const int written = write_segment(segment);
    if (written != 0) {
        segment->Release();
        return written;
    }
    const zCriticalLock lock(*fSegmentsCritical);
    // A segment that loses its place to this one keeps the tree's reference for good: players that
    // look at it without one of their own rely on it.
    fSegments.Set(segment);
    fVideoDuration = segment->fStop;
    return 0;
}

void tnReplayManifest::StopRecording() {
    const zCriticalLock lock(*fFileCritical);
    if (!fRecording.load(std::memory_order_relaxed)) return;
    write_end();
    fStream->Close();
    delete fStream;
    fStream = nullptr;
    fRecording.store(false, std::memory_order_relaxed);
}

bool tnReplayManifest::IsRecording() const {
    const zCriticalLock lock(*fFileCritical);
    return fRecording.load(std::memory_order_relaxed);
}
