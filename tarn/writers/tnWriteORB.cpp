#include "tarn/writers/tnWriteORB.h"

#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoCompressor.h"
#include "orb/CAssetWriter.h"
#include "orb/CByteArray.h"
#include "orb/CString.h"
#include "orb/CVideoConverter.h"
#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "spar/zCritical.h"
#include "spar/zTime.h"
#include "tarn/audio/tnAudioConverter.h"
#include "tarn/writers/writerErrors.h"
#include "tarn/writers/writerParts.h"

using namespace Quillon::Orb;

namespace {

constexpr int kWaitMilliseconds = 100;
constexpr long long kPatienceUs = 2'999'999;
constexpr long long kUnknownSeconds = -1;
constexpr long long kDefaultExpectedSeconds = 13LL * 3600;

/// Tells the track how long it will be, so that the container can make room for its index.
void announce(CMediaProperties& properties, long long seconds) {
    long long ticks = 0;
    // What no 64 bits can count is as good as unknown.
    if (__builtin_mul_overflow(properties.GetTimescale(), seconds, &ticks)) ticks = 0;
    properties.SetDuration(ticks);
}

}  // namespace

tnWriteORB::tnWriteORB()
    : fAudioLock(zCritical::Factory(1)),
      fVideoLock(zCritical::Factory(1)),
      fInitLock(zCritical::Factory(1)) {}

tnWriteORB::~tnWriteORB() {
    close();
    delete fAudioConverter;
    delete[] fConvertBuffer;
    if (fVideoConverter) {
        fVideoConverter->End();
        fVideoConverter.Clear();
    }
    delete fAudioLock;
    delete fVideoLock;
    delete fInitLock;
}

bool tnWriteORB::Open(const char* path, int moovRate, long long expectedSeconds) {
    fMoovRate = moovRate;
    fExpectedSeconds = expectedSeconds;
    const RObject<CString> name(new CString(path));
    fAssetWriter = RObject<CAssetWriter>(new CAssetWriter());
    if (fAssetWriter->Create('mov ', name.Get()).Failed()) return false;
    MakeFileIfMissing(path);
    return true;
}

void tnWriteORB::SetSourceVideoFormat(const tnMediaRecord& format) {
    fSourceVideoFormat = format;
}

void tnWriteORB::SetEncodedVideoFormat(const tnMediaRecord& format) {
    fEncodedVideoFormat = format;
}

void tnWriteORB::SetSourceAudioFormat(const tnMediaRecord& format) {
    fSourceAudioFormat = format;
}

void tnWriteORB::SetEncodedAudioFormat(const tnMediaRecord& format) {
    fEncodedAudioFormat = format;
}

int tnWriteORB::CompleteInitialization() {
    const zCriticalLock init(*fInitLock);
    if (!fAssetWriter) return -1;
    if (fInitialized) return 0;
    const zCriticalLock audio(*fAudioLock);
    const zCriticalLock video(*fVideoLock);

    drop_earlier_set_up();
    const bool hasVideo = IsTrackWanted(fSourceVideoFormat, fEncodedVideoFormat);
    if (hasVideo && !complete_initialization_for_video()) return kWriterNoFile;
    const bool hasAudio = IsTrackWanted(fSourceAudioFormat, fEncodedAudioFormat);
    if (hasAudio && !complete_initialization_for_audio()) return kWriterNoFile;
    if (!announce_duration()) return kWriterNoFile;
    if (fAssetWriter->Begin().Failed()) return kWriterNoFile;
    fInitialized = true;
    return 0;
}

// The formats may be others than at a set-up before, one that failed or that of another file.
void tnWriteORB::drop_earlier_set_up() {
    fVideoWriter.Clear();
    for (auto& track : fAudioWriters) track.Clear();
    if (fVideoConverter) fVideoConverter->End();
    fVideoConverter.Clear();
    fWrapFrames = false;
    delete fAudioConverter;
    fAudioConverter = nullptr;
}

bool tnWriteORB::announce_duration() {
    if (fExpectedSeconds == kUnknownSeconds) fExpectedSeconds = kDefaultExpectedSeconds;
    // One audio track speaks for all: they are written alike.
    for (const auto& track : fAudioWriters) {
        if (!track) continue;
        const RObject<CMediaProperties> properties(track->GetProperties());
        if (!properties) return false;
        announce(*properties, fExpectedSeconds);
        break;
    }
    if (fVideoWriter) {
        const RObject<CMediaProperties> properties(fVideoWriter->GetProperties());
        announce(*properties, fExpectedSeconds);
    }
    return true;
}

bool tnWriteORB::are_all_tracks_ready() {
    if (fVideoWriter && !fVideoWriter->IsReady()) return false;
    for (const auto& track : fAudioWriters) {
        if (track && !track->IsReady()) return false;
    }
    return true;
}

void tnWriteORB::end_tracks() {
    if (fVideoWriter) fVideoWriter->WriteSample(nullptr);
    for (const auto& track : fAudioWriters) {
        if (track) track->WriteSample(nullptr);
    }
    if (fVideoWriter) fVideoWriter->End();
    for (const auto& track : fAudioWriters) {
        if (track) track->End();
    }
    fVideoWriter.Clear();
    for (auto& track : fAudioWriters) track.Clear();
}

void tnWriteORB::close() {
    const zCriticalLock audio(*fAudioLock);
    const zCriticalLock video(*fVideoLock);
    if (!fAssetWriter) return;
    const zCriticalLock init(*fInitLock);
    if (fInitialized) {
        const long long start = zTime::MicroNow();
        while (!are_all_tracks_ready() && zTime::MicroNow() - start <= kPatienceUs) {
            fAssetWriter->WaitForMedia(kWaitMilliseconds);
        }
        // Ready or not: what a track holds is worth more than a close in time.
        end_tracks();
    }
    fInitialized = false;
    fAssetWriter->Finish();
    fAssetWriter.Clear();
    release_all_frames();
}
