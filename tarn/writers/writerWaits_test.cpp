// The functions that the linker puts in front of the clock, the sleeps and the media library's
// assets in this program.

#include "tests/support/writerWaits.h"

#include <utility>

#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoWriter.h"
#include "orb/CAssetWriter.h"

using namespace Quillon::Orb;
using writerWaits::Waits;

namespace {

std::atomic<Waits*> gWaits{nullptr};

}  // namespace

// The shared libraries refer to some of them, and the linker wants what stands in front to be as
// visible; they call the real ones all the same.
#pragma GCC visibility push(default)

// zTime::MicroNow, zThread::MicroSleep, CAssetWriter::WaitForMedia, CAssetTrackWriter::IsReady and
// GetBytesWritten, CAssetWriter::AddVideoWriter and AddAudioWriter
extern "C" {

long long __real__ZN5zTime8MicroNowEv();
void __real__ZN7zThread10MicroSleepEj(unsigned int microseconds);
bool __real__ZN7Quillon3Orb12CAssetWriter12WaitForMediaEi(CAssetWriter* asset, int milliseconds);
bool __real__ZNK7Quillon3Orb17CAssetTrackWriter7IsReadyEv(const CAssetTrackWriter* track);
long long __real__ZNK7Quillon3Orb17CAssetTrackWriter15GetBytesWrittenEv(
    const CAssetTrackWriter* track);

long long __wrap__ZN5zTime8MicroNowEv() {
    const Waits* waits = gWaits;
    return waits ? waits->fNow.load() : __real__ZN5zTime8MicroNowEv();
}

void __wrap__ZN7zThread10MicroSleepEj(unsigned int microseconds) {
    Waits* waits = gWaits;
    if (!waits) return __real__ZN7zThread10MicroSleepEj(microseconds);
    waits->fNow += microseconds;
    waits->fSleeps.push_back(microseconds);
    if (waits->fOnSleep) waits->fOnSleep();
}

bool __wrap__ZN7Quillon3Orb12CAssetWriter12WaitForMediaEi(CAssetWriter* asset, int milliseconds) {
    Waits* waits = gWaits;
    if (!waits) return __real__ZN7Quillon3Orb12CAssetWriter12WaitForMediaEi(asset, milliseconds);
    waits->fNow += milliseconds * 1000LL;
    ++waits->fWaits;
    if (waits->fOnWait) waits->fOnWait();
    return false;
}

bool __wrap__ZNK7Quillon3Orb17CAssetTrackWriter7IsReadyEv(const CAssetTrackWriter* track) {
    if (Waits* waits = gWaits) waits->fTrack = track;
    return __real__ZNK7Quillon3Orb17CAssetTrackWriter7IsReadyEv(track);
}

long long __wrap__ZNK7Quillon3Orb17CAssetTrackWriter15GetBytesWrittenEv(
    const CAssetTrackWriter* track) {
    const long long bytes = __real__ZNK7Quillon3Orb17CAssetTrackWriter15GetBytesWrittenEv(track);
    Waits* waits = gWaits;
    if (!waits) return bytes;
    waits->fTrack = track;
    if (const auto told = std::exchange(waits->fOnByteCount, nullptr)) told();
    return bytes;
}

}  // extern "C"

// These give objects, which functions with the linkage of C do not.
Result real_add_video(CAssetWriter* asset, CAssetVideoWriter* track) __asm__(
    "__real__ZN7Quillon3Orb12CAssetWriter14AddVideoWriterEPNS0_17CAssetVideoWriterE");
Result real_add_audio(CAssetWriter* asset, CAssetAudioWriter* track) __asm__(
    "__real__ZN7Quillon3Orb12CAssetWriter14AddAudioWriterEPNS0_17CAssetAudioWriterE");
Result add_video_or_refuse(CAssetWriter* asset, CAssetVideoWriter* track) __asm__(
    "__wrap__ZN7Quillon3Orb12CAssetWriter14AddVideoWriterEPNS0_17CAssetVideoWriterE");
Result add_audio_or_refuse(CAssetWriter* asset, CAssetAudioWriter* track) __asm__(
    "__wrap__ZN7Quillon3Orb12CAssetWriter14AddAudioWriterEPNS0_17CAssetAudioWriterE");

Result add_video_or_refuse(CAssetWriter* asset, CAssetVideoWriter* track) {
    const Waits* waits = gWaits;
    if (waits && waits->fRefuseTracks) return ResultError("told to refuse");
    if (waits && waits->fOnVideoTrack) waits->fOnVideoTrack(*asset);
    return real_add_video(asset, track);
}

Result add_audio_or_refuse(CAssetWriter* asset, CAssetAudioWriter* track) {
    const Waits* waits = gWaits;
    if (waits && waits->fRefuseTracks) return ResultError("told to refuse");
    return real_add_audio(asset, track);
}

#pragma GCC visibility pop

namespace writerWaits {

Waits::Waits() {
    gWaits = this;
}
Waits::~Waits() {
    gWaits = nullptr;
}

bool Waits::IsReady() const {
    return __real__ZNK7Quillon3Orb17CAssetTrackWriter7IsReadyEv(fTrack);
}

long long Waits::BytesWritten() const {
    return __real__ZNK7Quillon3Orb17CAssetTrackWriter15GetBytesWrittenEv(fTrack);
}

}  // namespace writerWaits
