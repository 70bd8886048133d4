#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "tarn/filters/tnFilterManager.h"
#include "tarn/movies/tnStreamBufferGroup.h"

#include "tests/support/filterDoubles.h"

namespace filterDoubles {

constexpr int kSource = 3;

/// A manager of its own with factories "codec" and "sound", one source, and observers that note
/// what they hear.
class FilterManager : public testing::Test {
protected:
    FilterManager() {
        fManager->RegisterFactory("codec", [this] { return make_video(); });
        fManager->RegisterFactory("codec", [] { return std::shared_ptr<tnFilter>(); });
        fManager->RegisterFactory("sound", [this] { return make_audio(); });
        fGroup.CreateBuffers(2, 64, false);
        fGroup.GetBuffer(&fBuffer, false);
        fBuffer->AddWritingRef();
    }

    std::shared_ptr<tnFilter> make_video() {
        auto* made = new VideoCompressor();
        fVideo.push_back(made);
        return std::shared_ptr<tnFilter>(made, [](tnFilter* filter) { filter->Release(); });
    }

    std::shared_ptr<tnFilter> make_audio() {
        auto* made = new AudioCompressor();
        made->fMilliseconds = fAudioMilliseconds;
        fAudio.push_back(made);
        return std::shared_ptr<tnFilter>(made, [](tnFilter* filter) { filter->Release(); });
    }

    /// What one observer was told.
    struct Heard {
        std::vector<tnFilter*> filters;
        std::vector<long long> syncTimes;
        std::vector<std::vector<long long>> stamps;
    };

    void observe_video(const std::shared_ptr<zObject>& owner, const tnMediaRecord& format,
                       Heard& heard) {
        fManager->ObserveVideoFilter(
            kSource, owner, format,
            [&heard](const std::shared_ptr<tnFilter>& filter) {
                heard.filters.push_back(filter.get());
            },
            [&heard](const std::shared_ptr<tnVideoCompressor::EncodedBuffer>& buffer) {
                heard.syncTimes.push_back(buffer->fSyncTime);
            });
    }

    void observe_audio(const std::shared_ptr<zObject>& owner, const tnMediaRecord& format,
                       Heard& heard) {
        fManager->ObserveAudioFilter(
            kSource, owner, format,
            [&heard](const std::shared_ptr<tnFilter>& filter) {
                heard.filters.push_back(filter.get());
            },
            [&heard](const std::shared_ptr<tnAudioCompressor::EncodedBuffer>& buffer) {
                heard.stamps.push_back(buffer->fTimestamps);
            });
    }

    void write_video(long long syncTime, long long time) {
        fManager->WriteVideoSample(kSource, syncTime, time, *fBuffer, VideoFormat(nullptr));
    }

    void write_audio(long long time, long long position = 0) {
        const char block[8] = {};
        fManager->WriteAudioSamples(kSource, time, block, sizeof block * 8, position, 0, 0);
    }

    std::shared_ptr<tnFilterManager> fManager = std::make_shared<tnFilterManager>();
    std::vector<VideoCompressor*> fVideo;
    std::vector<AudioCompressor*> fAudio;
    double fAudioMilliseconds = 10.0;
    tnStreamBufferGroup fGroup;
    tnStreamBuffer* fBuffer = nullptr;
    std::shared_ptr<zObject> fOwner = std::make_shared<zObject>();
    std::shared_ptr<zObject> fOther = std::make_shared<zObject>();
    Heard fHeard;
    Heard fHeardByOther;
};

}  // namespace filterDoubles
