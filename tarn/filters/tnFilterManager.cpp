#include "tarn/filters/tnFilterManager.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <mutex>
#include <utility>

#include "spar/zAsSharedPtr.h"
#include "spar/zObject.h"
#include "tarn/foundation/wholeNumber.h"
#include "tarn/movies/tnStreamBuffer.h"

namespace {

// Made in this order when the library is loaded, and destroyed at exit. The mutex guards the
// singleton and every member of the manager; it is recursive because operations that hold it call
// others that take it. A filter's own lock may be taken under it, never the other way round.
std::shared_ptr<tnFilterManager> gSingleton;
std::recursive_mutex gMutex;

using Lock = std::lock_guard<std::recursive_mutex>;

bool is_same_video(const tnMediaRecord& a, const tnMediaRecord& b) {
    return a.fWidth.AsInt32(0) == b.fWidth.AsInt32(0) &&
           a.fHeight.AsInt32(0) == b.fHeight.AsInt32(0) &&
           a.fColourspace.AsInt32(0) == b.fColourspace.AsInt32(0) &&
           a.fColorSpace.AsInt32(0) == b.fColorSpace.AsInt32(0) &&
           a.fFieldOrder.AsInt32(0) == b.fFieldOrder.AsInt32(0) &&
           a.AsFloat('mfps', 0.0f) == b.AsFloat('mfps', 0.0f);
}

bool is_same_audio(const tnMediaRecord& a, const tnMediaRecord& b) {
    return a.fSampleRate.AsInt32(0) == b.fSampleRate.AsInt32(0) &&
           a.fChannels.AsInt32(0) == b.fChannels.AsInt32(0) &&
           a.fBitsPerSample.AsInt32('mbps') == b.fBitsPerSample.AsInt32('mbps');
}

}  // namespace

std::shared_ptr<tnFilterManager> tnFilterManager::Default() {
    const Lock lock(gMutex);
    return gSingleton;
}

void tnFilterManager::Startup() {
    // The last one may end here, and with it what its observers hold: not under the lock.
    std::shared_ptr<tnFilterManager> last;
    const Lock lock(gMutex);
    last = std::exchange(gSingleton, std::make_shared<tnFilterManager>());
}

void tnFilterManager::Shutdown() {
    std::shared_ptr<tnFilterManager> last;
    const Lock lock(gMutex);
    last.swap(gSingleton);
}

void tnFilterManager::RegisterFactory(const std::string& name,
                                      std::function<std::shared_ptr<tnFilter>()> create) {
    const Lock lock(gMutex);
    fFactories.push_back({name, std::move(create)});
}

bool tnFilterManager::FormatsAreEqual(const tnMediaRecord& a, const tnMediaRecord& b) {
    const int type = a.fType.AsInt32(0);
    if (type != b.fType.AsInt32(0)) return false;
    if (type == TN_MEDIA_VIDEO) {
        if (!is_same_video(a, b)) return false;
    } else if (type == TN_MEDIA_AUDIO) {
        if (!is_same_audio(a, b)) return false;
    } else {
        return false;
    }
    return a.AsInt64('tmsc', 0) == b.AsInt64('tmsc', 0) &&
           a.AsInt32('mtbr', 0) == b.AsInt32('mtbr', 0);
}

void tnFilterManager::ObserveVideoFilter(int source, std::shared_ptr<zObject> owner,
                                         const tnMediaRecord& format, InitFunction init,
                                         VideoFunction video) {
    StartObservingFilter(source, std::move(owner), format, std::move(init), {}, std::move(video));
}

void tnFilterManager::ObserveAudioFilter(int source, std::shared_ptr<zObject> owner,
                                         const tnMediaRecord& format, InitFunction init,
                                         AudioFunction audio) {
    StartObservingFilter(source, std::move(owner), format, std::move(init), std::move(audio), {});
}

void tnFilterManager::StartObservingFilter(int source, std::shared_ptr<zObject> owner,
                                           const tnMediaRecord& format, InitFunction init,
                                           AudioFunction audio, VideoFunction video) {
    {
        // In no output, it ends here with what its functions hold: not under the lock.
        const Observer observer{owner, std::move(init), std::move(video), std::move(audio)};
        const Lock lock(gMutex);
        Source& entry = fSources[source];
        entry.fRoads.reset();
        const auto equal = std::find_if(
            entry.fOutputs.begin(), entry.fOutputs.end(),
            [&](const Output& output) { return FormatsAreEqual(format, output.fFormat); });
        if (equal != entry.fOutputs.end()) {
            equal->fObservers.push_back(observer);
            equal->fListeners.reset();
        }

        // Who has joined goes on: where a factory bears the codec's name it makes one more filter,
        // and the observer hears both. Add-ons that count on an encoder of their own lean on this;
        // those that want to share ask without a factory's name.
        const std::string codec = format.AsString('mcon', "");
        const auto factory =
            std::find_if(fFactories.begin(), fFactories.end(),
                         [&](const Factory& known) { return known.fName == codec; });
        if (factory != fFactories.end()) {
            if (const std::shared_ptr<tnFilter> filter = factory->fCreate()) {
                filter->SetOutputFormat(format);
                entry.fOutputs.push_back({filter, format, false, {observer}, {}});
            }
        }
        SetInputFormat(source, entry);
    }
    CallInitializations();
}

void tnFilterManager::StopObservingFilter(int source, std::shared_ptr<zObject> owner) {
    // What the functions hold may end with them, a stream and its sink: not under the lock.
    std::vector<Observer> removed;
    const Lock lock(gMutex);
    Source& entry = fSources[source];
    entry.fRoads.reset();
    for (Output& output : entry.fOutputs) {
        std::deque<Observer>& observers = output.fObservers;
        const auto gone = std::stable_partition(
            observers.begin(), observers.end(),
            [&](const Observer& observer) { return observer.fOwner.lock() != owner; });
        if (gone == observers.end()) continue;
        removed.insert(removed.end(), std::make_move_iterator(gone),
                       std::make_move_iterator(observers.end()));
        observers.erase(gone, observers.end());
        output.fListeners.reset();
    }
    std::erase_if(entry.fOutputs, [](const Output& output) { return output.fObservers.empty(); });
    // All sources, not this one alone: a source that has only been written to ends here too.
    std::erase_if(fSources, [](const auto& known) { return known.second.fOutputs.empty(); });
}

bool tnFilterManager::HasEqualOutput(int source, const tnMediaRecord& format) {
    const Lock lock(gMutex);
    const auto entry = fSources.find(source);
    if (entry == fSources.end()) return false;
    const std::deque<Output>& outputs = entry->second.fOutputs;
    return std::any_of(outputs.begin(), outputs.end(), [&](const Output& output) {
        return FormatsAreEqual(format, output.fFormat);
    });
}

void tnFilterManager::SetInputFormat(int source, const tnMediaRecord& format) {
    {
        const Lock lock(gMutex);
        Source& entry = fSources[source];
        if (entry.fInputFormat) return;
        entry.fInputFormat = std::make_shared<tnMediaRecord>(format);
        SetInputFormat(source, entry);
    }
    CallInitializations();
}

void tnFilterManager::SetInputFormat(int source, Source& entry) {
    const std::shared_ptr<tnMediaRecord> input = entry.fInputFormat;
    if (!input) return;
    const int type = input->fType.AsInt32(0);
    if (type != TN_MEDIA_VIDEO && type != TN_MEDIA_AUDIO) return;
    for (Output& output : entry.fOutputs) {
        if (output.fInitialized) continue;
        // Once, whatever comes of it: a filter that fails here answers each frame with an error.
        output.fInitialized = true;
        if (type == TN_MEDIA_VIDEO) {
            create_video_filter(source, output, *input);
        } else if (auto* compressor = dynamic_cast<tnAudioCompressor*>(output.fFilter.get())) {
            compressor->CreateFilter(*input);
        }
    }
}

void tnFilterManager::create_video_filter(int source, Output& output, const tnMediaRecord& input) {
    auto* compressor = dynamic_cast<tnVideoCompressor*>(output.fFilter.get());
    if (!compressor) return;
    tnMediaRecord format(input);
    if (format.AsInt64('tmsc', 0) < 1) format.SetInt64('tmsc', output.fFormat.AsInt64('tmsc', 0));
    if (!(format.AsFloat('mfps', 0.0f) > 0.0f)) {
        format.SetFloat('mfps', output.fFormat.AsFloat('mfps', 0.0f));
    }
    compressor->CreateFilter(format);
    // The filter is held weakly, since it holds this function.
    const std::weak_ptr<tnFilter> filter = output.fFilter;
    compressor->fOnEncodedBuffer =
        [this, source, filter](std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) {
            deliver_video(source, filter, buffer);
        };
}

void tnFilterManager::CallInitializations() {
    struct Initializer {
        InitFunction fFunction;
        std::shared_ptr<tnFilter> fFilter;
        std::weak_ptr<zObject> fOwner;
    };
    std::vector<Initializer> waiting;
    {
        const Lock lock(gMutex);
        for (auto& [id, source] : fSources) {
            for (Output& output : source.fOutputs) {
                if (!output.fInitialized) continue;
                for (Observer& observer : output.fObservers) {
                    if (!observer.fInitialize || observer.fOwner.expired()) continue;
                    waiting.push_back(
                        {std::move(observer.fInitialize), output.fFilter, observer.fOwner});
                    observer.fInitialize = {};
                }
            }
        }
    }
    for (const Initializer& call : waiting) {
        const std::shared_ptr<zObject> owner = call.fOwner.lock();
        if (owner) call.fFunction(call.fFilter);
    }
}

std::deque<tnFilterManager::Observer> tnFilterManager::ObserversForFilter(
    int source, const std::shared_ptr<tnFilter>& filter) {
    const Lock lock(gMutex);
    for (const Output& output : fSources[source].fOutputs) {
        if (output.fFilter == filter) return output.fObservers;
    }
    return {};
}

// A write works on a copy of the outputs, taken under the lock, so that encoders and observers run
// without it and what joins or leaves meanwhile does not disturb it. The copy is made once and
// shared until something changes, and then only the output that changed is copied anew: writes come
// a thousand times as often as changes, and each holds up all others.
tnFilterManager::Roads tnFilterManager::roads_of(Source& entry) {
    if (!entry.fRoads) {
        std::vector<Road> roads;
        roads.reserve(entry.fOutputs.size());
        for (Output& output : entry.fOutputs) {
            roads.push_back({output.fFilter, listeners_of(output)});
        }
        entry.fRoads = std::make_shared<const std::vector<Road>>(std::move(roads));
    }
    return entry.fRoads;
}

tnFilterManager::Listeners tnFilterManager::listeners_of(Output& output) {
    if (!output.fListeners) {
        std::vector<Listener> listeners;
        listeners.reserve(output.fObservers.size());
        for (const Observer& observer : output.fObservers) {
            listeners.push_back({observer.fOwner, observer.fVideo, observer.fAudio});
        }
        output.fListeners = std::make_shared<const std::vector<Listener>>(std::move(listeners));
    }
    return output.fListeners;
}

void tnFilterManager::WriteVideoSample(int source, long long syncTime, long long time,
                                       tnStreamBuffer& buffer, const tnMediaRecord& format) {
    Roads roads;
    {
        const Lock lock(gMutex);
        Source& entry = fSources[source];
        roads = roads_of(entry);
        if (entry.fFirstSampleTime == -1) entry.fFirstSampleTime = syncTime;
    }
    for (const Road& road : *roads) {
        auto* compressor = dynamic_cast<tnVideoCompressor*>(road.fFilter.get());
        if (!compressor) continue;
        buffer.AddWritingRef();
        compressor->EncodeFrame(buffer, format, time, false, nullptr, nullptr);
    }
}

void tnFilterManager::deliver_video(
    int source, const std::weak_ptr<tnFilter>& filter,
    const std::shared_ptr<tnVideoCompressor::EncodedBuffer>& buffer) {
    Roads roads;
    {
        const Lock lock(gMutex);
        Source& entry = fSources[source];
        stamp_sync_time(entry, *buffer);
        roads = roads_of(entry);
    }
    const tnFilter* const from = filter.lock().get();
    if (!from) return;
    const auto road = std::find_if(roads->begin(), roads->end(), [&](const Road& candidate) {
        return candidate.fFilter.get() == from;
    });
    if (road == roads->end()) return;
    for (const Listener& listener : *road->fListeners) {
        if (listener.fVideo && !listener.fOwner.expired()) listener.fVideo(buffer);
    }
}

// The source's first encoded buffer of all is laid on the sync time of its first write; from there
// buffers keep the distances that their encoders gave them.
void tnFilterManager::stamp_sync_time(Source& entry, tnVideoCompressor::EncodedBuffer& buffer) {
    if (entry.fFirstSampleTime == -1) return;
    const auto time = WholeNumberOf<long long>(buffer.BufferTimeInMilliseconds());
    if (entry.fFirstBufferTime == -1) entry.fFirstBufferTime = time;
    buffer.fSyncTime = time - entry.fFirstBufferTime + entry.fFirstSampleTime;
}

void tnFilterManager::WriteAudioSamples(int source, long long time, const void* data,
                                        unsigned int sizeBits, long long position, unsigned int,
                                        long long) {
    Roads roads;
    std::shared_ptr<tnMediaRecord> input;
    {
        const Lock lock(gMutex);
        Source& entry = fSources[source];
        roads = roads_of(entry);
        input = entry.fInputFormat;
    }
    if (!input) return;
    const double rate = input->fSampleRate.AsInt32(0);
    const double timeMs = std::floor(1000.0 / rate * static_cast<double>(position));

    // A later output's packets go on from the earlier one's end: hosts that mix several audio
    // outputs rely on stamps that never repeat within one write.
    long long running = time;
    for (const Road& road : *roads) {
        auto* compressor = dynamic_cast<tnAudioCompressor*>(road.fFilter.get());
        if (!compressor) continue;
        tnAudioCompressor::EncodedBuffer* encoded = nullptr;
        const int result =
            compressor->EncodeFrame(&encoded, timeMs, const_cast<void*>(data), sizeBits >> 3);
        if (result == 0 && encoded) deliver_audio(road, *encoded, running);
        if (encoded) encoded->Release();
    }
}

void tnFilterManager::deliver_audio(const Road& road, tnAudioCompressor::EncodedBuffer& encoded,
                                    long long& running) {
    constexpr int kStamps = 32;
    for (int i = 0; i < encoded.PacketCount(); ++i) {
        // Readers take a stored 0 for no time at all.
        if (i < kStamps)
            encoded.fTimestamps[static_cast<std::size_t>(i)] = running == 0 ? 1 : running;
        running = WholeNumberOf<long long>(encoded.DurationMilli(i) + static_cast<double>(running));
    }
    const std::shared_ptr<tnAudioCompressor::EncodedBuffer> shared = zAsSharedPtr(&encoded);
    // Unlike with video, an owner that has died still hears its sound out.
    for (const Listener& listener : *road.fListeners) {
        if (listener.fAudio) listener.fAudio(shared);
    }
}
