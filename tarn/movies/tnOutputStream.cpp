#include "tarn/movies/tnOutputStream.h"

#include <utility>

#include "spar/zObject.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/movies/tnStreamBuffer.h"

namespace {

constexpr int kProblem = 2;

}  // namespace

tnOutputStream::tnOutputStream(int source, const tnMediaRecord& format,
                               std::shared_ptr<tnOutputStreamSync> sync)
    : fSync(std::move(sync)), fSource(source), fDisplayFormat(format), fEncodedFormat(format) {}

tnOutputStream::~tnOutputStream() = default;

int tnOutputStream::SetFormat(const tnMediaRecord& format) {
    fDisplayFormat = format;
    return 0;
}

int tnOutputStream::WriteSample(void*, unsigned int, long long, unsigned int, long long, zRecord&) {
    return 0;
}

int tnOutputStream::WriteSample(tnStreamBuffer& buffer, long long, zRecord&, int) {
    buffer.ReleaseWriting();
    return 0;
}

int tnOutputStream::CanOutputFormat(tnMediaRecord& format, bool) const {
    const bool isVideo = format.fType.AsInt32(0) == TN_MEDIA_VIDEO;
    return isVideo && format.fColourspace.AsInt32(0) == 'Grgb' ? -1 : 0;
}

int tnOutputStream::GetOutputStatistics(tn_output_statistics& statistics) {
    const std::lock_guard<std::mutex> lock(fStatisticsMutex);
    statistics.fState = fStatus != 0 ? kProblem : 0;
    statistics.fStatus = fStatus;
    statistics.fStatusValue = fStatusValue;
    return 0;
}

void tnOutputStream::SetStatus(int status, long long value) {
    const std::lock_guard<std::mutex> lock(fStatisticsMutex);
    fStatus = status;
    fStatusValue = value;
}

void tnOutputStream::CreateFilters() {
    create_filters(fEncodedFormat, nullptr);
}

void tnOutputStream::create_filters(const tnMediaRecord& request,
                                    const std::shared_ptr<void>& life) {
    fObserverToken = std::make_shared<zObject>();
    const std::shared_ptr<tnFilterManager> manager = tnFilterManager::Default();
    if (!manager) return;  // before the library's start or after its end there is nothing to hear
    const auto arrived = [this, life](std::shared_ptr<tnFilter> filter) {
        filter_arrived(std::move(filter));
    };
    const int type = fEncodedFormat.fType.AsInt32(0);
    if (type == TN_MEDIA_VIDEO) {
        manager->ObserveVideoFilter(
            fSource, fObserverToken, request, arrived,
            [this, life](std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) {
                video_arrived(std::move(buffer));
            });
    }
    if (type == TN_MEDIA_AUDIO) {
        manager->ObserveAudioFilter(
            fSource, fObserverToken, request, arrived,
            [this, life](std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) {
                audio_arrived(std::move(buffer));
            });
    }
}

void tnOutputStream::DestroyFilters() {
    const std::shared_ptr<tnFilterManager> manager = tnFilterManager::Default();
    if (manager) manager->StopObservingFilter(fSource, fObserverToken);
    fObserverToken.reset();
}

void tnOutputStream::filter_arrived(std::shared_ptr<tnFilter> filter) {
    std::atomic_store(&fFilter, std::move(filter));
    fHasFilter.store(true, std::memory_order_relaxed);
}

void tnOutputStream::video_arrived(std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) {
    const double time = buffer->fSyncTime != -1 ? static_cast<double>(buffer->fSyncTime)
                                                : buffer->BufferTimeInMilliseconds();
    if (!fSync->CanSendFrame(this, static_cast<long long>(time), buffer->IsKeyFrame())) {
        fPendingVideo.push_back(std::move(buffer));
        return;
    }
    const std::shared_ptr<tnFilter> filter = std::atomic_load(&fFilter);
    for (const auto& pending : fPendingVideo) fSink->WriteVideo(filter, pending);
    fPendingVideo.clear();
    fSink->WriteVideo(filter, std::move(buffer));
}

void tnOutputStream::audio_arrived(std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) {
    const long long stamp = buffer->fTimestamps[0];
    const long long time = stamp >= 0 ? stamp : static_cast<long long>(buffer->Timestamp(0));
    if (!fSync->CanSendFrame(this, time, false)) {
        fPendingAudio.push_back(std::move(buffer));
        return;
    }
    const std::shared_ptr<tnFilter> filter = std::atomic_load(&fFilter);
    for (const auto& pending : fPendingAudio) fSink->WriteAudio(filter, pending);
    fPendingAudio.clear();
    fSink->WriteAudio(filter, std::move(buffer));
}
