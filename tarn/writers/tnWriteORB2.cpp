#include "tarn/writers/tnWriteORB2.h"

#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoCompressor.h"
#include "orb/CAssetWriter.h"
#include "orb/CAudioProperties.h"
#include "orb/CContainerWriter.h"
#include "orb/CString.h"
#include "orb/CVideoConverter.h"
#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "spar/trace.h"
#include "spar/zCritical.h"
#include "spar/zFSPath.h"
#include "spar/zPerfLog.h"
#include "spar/zTime.h"
#include "tarn/audio/tnAudioConverter.h"
#include "tarn/foundation/wholeNumber.h"
#include "tarn/writers/writerErrors.h"
#include "tarn/writers/writerParts.h"

using namespace Quillon::Orb;

namespace {

constexpr int kWaitMilliseconds = 100;
constexpr long long kCloseTimeoutUs = 60'000'000;
constexpr int kContainerQueue = 128;
constexpr double kDefaultExpectedSeconds = 13.0 * 3600.0;

}  // namespace

tnWriteORB2::tnWriteORB2()
    : fAudioLock(zCritical::Factory(1)),
      fVideoLock(zCritical::Factory(1)),
      fInitLock(zCritical::Factory(1)),
      fContainerType(0) {}

tnWriteORB2::~tnWriteORB2() {
    Close();
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

int tnWriteORB2::Open(const char* path, unsigned int containerType, int moovRate,
                      double expectedSeconds) {
    fMoovRate = moovRate;
    fExpectedSeconds = expectedSeconds;
    fVideoBytes = 0;
    fAudioBytes = 0;
    fClosedBadly = false;

    const RObject<CString> name(new CString(path));
    fAssetWriter = RObject<CAssetWriter>(new CAssetWriter());
    if (!fAssetWriter) return kWriterNoFile;
    if (fAssetWriter->Create(containerType, name.Get()).Failed()) return kWriterNoFile;

    const zString extension = zFSPath(path).GetExtension();
    if (extension.Length() > 0) {
        const RObject<CContainerWriter> container(fAssetWriter->GetContainerWriter());
        const RObject<CString> text(new CString(extension.CString()));
        if (!container || container->SetExtension(text.Get()).Failed()) return kWriterNoFile;
    }

    MakeFileIfMissing(path);
    fContainerType = containerType;
    return 0;
}

void tnWriteORB2::SetSourceVideoFormat(const tnMediaRecord& format) {
    fSourceVideoFormat = format;
}

void tnWriteORB2::SetEncodedVideoFormat(const tnMediaRecord& format) {
    fEncodedVideoFormat = format;
}

void tnWriteORB2::SetSourceAudioFormat(const tnMediaRecord& format) {
    fSourceAudioFormat = format;
}

void tnWriteORB2::SetEncodedAudioFormat(const tnMediaRecord& format) {
    fEncodedAudioFormat = format;
}

int tnWriteORB2::CompleteInitialization() {
    const zCriticalLock init(*fInitLock);
    if (!fAssetWriter) return kWriterNoFile;
    if (fInitialized) return 0;
    const zCriticalLock audio(*fAudioLock);
    const zCriticalLock video(*fVideoLock);

    if (IsTrackWanted(fSourceVideoFormat, fEncodedVideoFormat)) {
        const int code = complete_initialization_for_video();
        if (code != 0) return code;
    }
    if (IsTrackWanted(fSourceAudioFormat, fEncodedAudioFormat)) {
        const int code = complete_initialization_for_audio();
        if (code != 0) return code;
    }
    if (fContainerType == 'mp4 ' || fContainerType == 'mov ') {
        const int code = announce_duration();
        if (code != 0) return code;
    }
    const RObject<CContainerWriter> container(fAssetWriter->GetContainerWriter());
    if (container) container->SetQueueSize(kContainerQueue);
    if (fAssetWriter->Begin().Failed()) return kWriterNoFile;

    fSpare1 = 0;
    fSpare2 = 0;
    fHeldSample.Clear();
    fInitialized = true;
    return 0;
}

// Tells each track how long it will be, so that the container can make room for its index.
int tnWriteORB2::announce_duration() {
    if (fExpectedSeconds <= 0.0) fExpectedSeconds = kDefaultExpectedSeconds;
    const auto announce = [this](auto& properties) {
        const double ticks = fExpectedSeconds * static_cast<double>(properties.GetTimescale());
        properties.SetDuration(WholeNumberOf<long long>(ticks));
    };
    if (fAudioWriter) {
        const RObject<CMediaProperties> properties(fAudioWriter->GetProperties());
        if (!properties) return kWriterFormat;
        announce(*properties);
    }
    if (fVideoWriter) {
        const RObject<CMediaProperties> properties(fVideoWriter->GetProperties());
        announce(*properties);
    }
    return 0;
}

bool tnWriteORB2::IsVideoReady() {
    return !fVideoWriter || fVideoWriter->IsReady();
}

bool tnWriteORB2::IsAudioReady() {
    return !fAudioWriter || fAudioWriter->IsReady();
}

bool tnWriteORB2::IsAllMediaReady() {
    return IsVideoReady() && IsAudioReady();
}

int tnWriteORB2::CloseStreams(long long timeoutMicroseconds) {
    const zCriticalLock audio(*fAudioLock);
    const zCriticalLock video(*fVideoLock);
    const zCriticalLock init(*fInitLock);
    if (!fInitialized || !fAssetWriter) return 0;

    if (fVideoWriter && fHeldSample) {
        fVideoWriter->WriteSample(fHeldSample.Get());
        fHeldSample.Clear();
    }
    if (!fVideoWriter && !fAudioWriter) return 0;

    static zPerfLog::Variable variable("tnWriteORB2_CloseStreams", 1, 50);
    const zPerfLog timing(variable);
    const int code = wait_for_tracks(timeoutMicroseconds);
    if (code != 0) return code;
    end_tracks();
    return 0;
}

int tnWriteORB2::wait_for_tracks(long long timeoutMicroseconds) {
    const long long start = zTime::MicroNow();
    while (!IsAllMediaReady()) {
        if (zTime::MicroNow() - start >= timeoutMicroseconds) {
            zTrace("tnWriteORB2::CloseStreams - timeout\n");
            return kWriterTimeout;
        }
        fAssetWriter->WaitForMedia(kWaitMilliseconds);
    }
    return 0;
}

void tnWriteORB2::end_tracks() {
    if (fVideoWriter) fVideoWriter->WriteSample(nullptr);
    if (fAudioWriter) fAudioWriter->WriteSample(nullptr);
    if (fVideoWriter) fVideoWriter->End();
    if (fAudioWriter) fAudioWriter->End();
    fEndedVideo = fVideoWriter;
    fEndedAudio = fAudioWriter;
    fVideoWriter.Clear();
    fAudioWriter.Clear();
}

long long tnWriteORB2::BytesWritten(bool ofPictures) const {
    const auto bytes = [](const CAssetTrackWriter* running, const CAssetTrackWriter* ended,
                          long long atEnd) {
        if (running) return running->GetBytesWritten();
        return ended ? ended->GetBytesWritten() : atEnd;
    };
    return ofPictures ? bytes(fVideoWriter.Get(), fEndedVideo.Get(), fVideoBytes)
                      : bytes(fAudioWriter.Get(), fEndedAudio.Get(), fAudioBytes);
}

bool tnWriteORB2::HasFailed() const {
    return fClosedBadly || (fAssetWriter && fAssetWriter->GetFailure().Failed());
}

void tnWriteORB2::Close() {
    // Whether in time or not: the file is worth more than the frames that are stuck.
    CloseStreams(kCloseTimeoutUs);
    // Asked under the lock: a host's end and its clean-up may close at the same time.
    const zCriticalLock init(*fInitLock);
    if (!fAssetWriter) return;

    static zPerfLog::Variable variable("tnWriteORB2_Close", 1, 50);
    const zPerfLog timing(variable);
    fInitialized = false;
    fClosedBadly = fAssetWriter->Finish().Failed();
    fVideoBytes = BytesWritten(true);
    fAudioBytes = BytesWritten(false);
    fEndedVideo.Clear();
    fEndedAudio.Clear();
    fAssetWriter.Clear();
}
