#include "addons/replay/ReplayOutput.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "spar/trace.h"
#include "spar/zDirectory.h"
#include "spar/zFileStream.h"
#include "tarn/replay/tnManifestBefore.h"
#include "tarn/replay/tnReplayManifest.h"
#include "tarn/writers/writerErrors.h"

#include "addons/replay/MovedItem.h"

namespace {

constexpr double kMsPerSecond = 1000.0;
constexpr double kUsPerMs = 1000.0;
constexpr int kNoSuchStream = -1009;
/// How long pictures wait for sound that does not come.
constexpr double kSoundPatienceMs = 3000;
constexpr double kRunUpMs = 200;
/// The longest that sound is kept for a picture to come, by far longer than an encoder holds one.
constexpr double kMostSoundMs = 60000;
/// Deletions come in pieces of this part of the limit: each one writes the manifest anew.
constexpr double kDeletionPart = 0.1;
constexpr MovieOutput::Room kRoom = {16384, std::size_t{256} << 20, false};

long long us_of(double ms) {
    return std::llround(ms * kUsPerMs);
}

/// Milliseconds by which what stands at `ms` is later in the recording, where times were set back;
/// the track that goes back last stays beside the one that went first.
double later_on(PictureLine& line, double ms, const PictureLine& beside) {
    const MoviePlace here = line.Place();
    const MoviePlace there = beside.Place();
    const bool goesBack = ms - here.cutMs < here.endMs - PictureLine::kLongestBackMs;
    // A step forward, however long, is a gap of the recording, and nobody is asked.
    return -line.Follow(ms, goesBack ? &there : nullptr);
}

}  // namespace

ReplayOutput::ReplayOutput(Settings settings, const Wish& wish)
    : MovieOutput(std::move(settings), kRoom), fWish(wish) {}

ReplayOutput::~ReplayOutput() {
    if (fManifest) tnReplayManifest::ReleaseManifest(fManifest);
}

int ReplayOutput::Open() {
    if (!fSettings.hasPictures) return kNoSuchStream;
    const std::unique_ptr<zDirectory> directory(zDirectory::Factory());
    const int made = directory->Create(fSettings.where.c_str());
    if (made != 0) {
        zTrace("'{}': no folder for a replay recording: {}\n", fSettings.where,
               zFileStream::ErrorText(made));
        return kWriterNoFile;
    }
    const std::string path = manifest_path();
    // Of a recorder that was killed there may be nothing but the list from before a deletion.
    if (zFileStream::Exists(path.c_str()) ||
        zFileStream::Exists(tnManifestBefore(path).Path().c_str())) {
        zTrace("'{}': a replay recording stands there already; choose another folder\n",
               fSettings.where);
        return kWriterNoFile;
    }
    fManifest = tnReplayManifest::GetManifest(path.c_str());
    return 0;
}

long long ReplayOutput::BytesWritten(bool ofPictures) const {
    return ofPictures ? fPictureBytes.load() : fSoundBytes.load();
}

bool ReplayOutput::takes_picture(tnVideoCompressor::EncodedBuffer& buffer) {
    // Rendered here, where the encoder stands still, and once for all who share the buffer.
    return buffer.Data() != nullptr;
}

std::string ReplayOutput::manifest_path() const {
    return fSettings.where + "/" + kManifestName;
}

std::string ReplayOutput::path_of(unsigned int id) const {
    return fSettings.where + "/" + std::to_string(id) + ".mov";
}

int ReplayOutput::begin_file(const MovieStart& start) {
    fSoundShiftMs = start.OnLine(0);
    fHasSound = start.HasSound();
    if (!start.HasPictures() || !start.Pictures().front().format) return kWriterFormat;
    tnMediaRecord video(start.Pictures().front().format->output);
    video.SetCString("file_extension", "mov");
    tnMediaRecord audio(TN_MEDIA_AUDIO);
    if (fHasSound && start.Sound().front().format) audio = start.Sound().front().format->output;
    if (fManifest->BeginRecording(video, audio) == 0) return 0;
    zTrace("'{}': its manifest cannot be made\n", fSettings.where);
    return kWriterNoFile;
}

int ReplayOutput::write_picture(const MediaItem& item) {
    fPictures.push_back(MovedItem(item, later_on(fPictureLine, item.decodeMs, fSoundLine)));
    return advance(false);
}

int ReplayOutput::write_sound(const MediaItem& item) {
    const double laterMs = later_on(fSoundLine, item.startMs + fSoundShiftMs, fPictureLine);
    fSounds.push_back(MovedItem(item, laterMs));
    fSoundEndMs = fSounds.back().endMs + fSoundShiftMs;
    while (fSounds.back().endMs - fSounds.front().endMs > kMostSoundMs) fSounds.pop_front();
    return advance(false);
}

/// Whether the sound beside `picture` has come, or will not come any more.
bool ReplayOutput::may_go(const MediaItem& picture) const {
    if (!fHasSound || fSoundEndMs > picture.startMs) return true;
    return fPictures.back().startMs - picture.startMs > kSoundPatienceMs;
}

int ReplayOutput::advance(bool ending) {
    while (!fPictures.empty() && (ending || may_go(fPictures.front()))) {
        const MediaItem item = std::move(fPictures.front());
        fPictures.pop_front();
        const int code = take_picture(item);
        if (code == 0) continue;
        fFailed = true;
        return code;
    }
    return 0;
}

int ReplayOutput::take_picture(const MediaItem& item) {
    // Half a frame more or less: lengths of whole frames seldom meet whole seconds.
    const double nearMs = (item.endMs - item.startMs) / 2;
    const bool isLong = item.startMs - fStartMs >= fWish.segmentSeconds * kMsPerSecond - nearMs;
    if (!fMovie || (item.isKey && isLong)) {
        int code = fMovie ? end_segment(item.startMs) : 0;
        if (code == 0) code = begin_segment(item);
        if (code != 0) return code;
    }
    const int code = write_sound_until(item.startMs);
    if (code != 0) return code;
    fPictureEndMs = std::max(fPictureEndMs, item.endMs);
    return fMovie->WritePicture(item);
}

int ReplayOutput::begin_segment(const MediaItem& key) {
    ++fID;
    fStartMs = key.startMs;
    fPictureEndMs = key.endMs;
    int code = open_movie(key, fHasSound);
    for (const MediaItem& sound : fRunUp) {
        if (code == 0 && fHasSound) code = fMovie->WriteSound(sound);
    }
    return code;
}

int ReplayOutput::open_movie(const MediaItem& key, bool hasSound) {
    MovieStart start(true, hasSound);
    start.Add(key);
    for (const MediaItem& sound : fRunUp) {
        if (hasSound) start.Add(sound);
    }
    for (const MediaItem& sound : fSounds) {
        if (hasSound) start.Add(sound);
    }
    // Sound that ran dry leaves a segment, and all that follow, without.
    if (!start.Decide()) {
        fHasSound = false;
        return hasSound ? open_movie(key, false) : kWriterFormat;
    }
    fMovie = std::make_unique<SegmentMovie>(path_of(fID), hasSound, 2 * fWish.segmentSeconds);
    int code = fMovie->Open();
    if (code == 0) code = fMovie->Begin(start);
    // Nothing stands in it that could be ended or listed.
    if (code != 0) fMovie.reset();
    return code;
}

int ReplayOutput::write_sound_until(double timeMs) {
    while (!fSounds.empty() && fSounds.front().startMs + fSoundShiftMs < timeMs) {
        const int code = fHasSound ? fMovie->WriteSound(fSounds.front()) : 0;
        if (code != 0) return code;
        fRunUp.push_back(std::move(fSounds.front()));
        fSounds.pop_front();
    }
    while (fRunUp.size() > 1 && fRunUp.front().endMs + fSoundShiftMs < timeMs - kRunUpMs) {
        fRunUp.pop_front();
    }
    return 0;
}

/// Completes the segment on the disk and only then lists it.
int ReplayOutput::end_segment(double timeMs) {
    int code = write_sound_until(timeMs);
    const int finished = fMovie->Finish();
    if (code == 0) code = finished;
    fPictureBytes += fMovie->BytesWritten(true);
    fSoundBytes += fMovie->BytesWritten(false);
    fMovie.reset();
    if (code == 0) code = zFileStream::SyncFolder(fSettings.where.c_str());
    return code != 0 ? code : list_segment(timeMs);
}

int ReplayOutput::list_segment(double stopMs) {
    const long long stopUs = us_of(stopMs);
    const int code = fManifest->AddSegment(fID, us_of(fStartMs), stopUs);
    if (code == 0) return delete_old(stopUs);
    zTrace("'{}': its manifest takes no more segments: {}\n", fSettings.where,
           zFileStream::ErrorText(code));
    return kWriterNoFile;
}

int ReplayOutput::delete_old(long long newestUs) {
    if (fWish.keepSeconds <= 0) return 0;
    tnReplaySegment* const first = fManifest->GetFirstSegment();
    if (first == nullptr) return 0;
    const long long oldestUs = first->fStop;
    first->Release();
    const double keepMs = fWish.keepSeconds * kMsPerSecond;
    const long long limitUs = newestUs - us_of(keepMs);
    // From the last limit where an old segment is held: it stays the first one, deletion or not.
    const long long deletedToUs = std::max(oldestUs, fDeletedToUs);
    if (limitUs - deletedToUs < us_of(keepMs * kDeletionPart)) return 0;
    fDeletedToUs = limitUs;
    return delete_before(limitUs);
}

int ReplayOutput::delete_before(long long limitUs) {
    const tnManifestBefore before(manifest_path());
    before.Keep();
    tnReplayManifest::Segments kept;
    fManifest->DeleteNonActiveSegments(kept, limitUs);
    if (!before.DropIfListed(*fManifest, kept)) {
        zTrace("'{}': its manifest cannot be written anew as a whole; make room on the disk\n",
               fSettings.where);
    }
    for (tnReplaySegment* segment : kept) segment->Release();
    return fManifest->IsRecording() ? 0 : kWriterNoFile;
}

int ReplayOutput::finish_file() {
    int code = fFailed ? 0 : advance(true);
    if (fMovie) {
        const int ended = end_segment(fPictureEndMs);
        if (code == 0) code = ended;
    }
    fManifest->StopRecording();
    return code;
}
