#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "tarn/filters/tnAudioCompressor.h"
#include "tarn/filters/tnVideoCompressor.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/movies/tnEncodedSink.h"
#include "tarn/movies/tnOutputStreamSync.h"
#include "tarn/movies/tnStream.h"

class zObject;

/// One track of an output add-on, at the far end of an encoder that others may be listening to too.
///
/// Raw samples do not come here: the host writes them to the filter manager. From the manager this
/// stream hears what an encoder makes in its encoded format, on the thread that brings it. It keeps
/// that until the tracks of its movie may begin, and from then on hands it to its sink, oldest
/// first. No buffer is dropped. The owner begins the work with CreateFilters and ends it with
/// DestroyFilters.
class TARN_API tnOutputStream : public tnStream {
public:
    /// All streams of a movie get the same `sync`. Observes nothing yet.
    tnOutputStream(int source, const tnMediaRecord& format,
                   std::shared_ptr<tnOutputStreamSync> sync);
    /// The owner has called DestroyFilters before. Buffers still pending are dropped.
    ~tnOutputStream() override;

    /// Changes what DisplayFormat shows and nothing of the filter in use: 0.
    int SetFormat(const tnMediaRecord& format) override;
    /// Both take what comes and do nothing with it: it is the filter manager that feeds encoders.
    int WriteSample(void* data, unsigned int size, long long time, unsigned int samples,
                    long long duration, zRecord& info) override;
    int WriteSample(tnStreamBuffer& buffer, long long time, zRecord& info, int flags) override;
    const tnMediaRecord& DisplayFormat() const override { return fDisplayFormat; }
    const tnMediaRecord& EncodedFormat() const override { return fEncodedFormat; }
    /// -1 for video of raster type 'Grgb', else 0.
    int CanOutputFormat(tnMediaRecord& format, bool flag) const override;
    int GetOutputStatistics(tn_output_statistics& statistics) override;

    /// The source's number at the filter manager.
    int Source() const { return fSource; }

    /// Starts observing. The sink is set before. Streams that want to share go through
    /// tnSharedEncoders instead, which also keeps a stream until its last delivery is over.
    void CreateFilters();
    /// Stops observing. What is pending stays so, for a later CreateFilters.
    void DestroyFilters();

    /// Comes before CreateFilters and is never null: a delivery does not look whether it is there.
    void SetSink(std::shared_ptr<tnEncodedSink> sink) { fSink = std::move(sink); }
    /// The sink's report of a problem, 0 for none. Any thread.
    void SetStatus(int status, long long value);

protected:
    int fStatus = 0;
    long long fStatusValue = 0;
    std::mutex fStatisticsMutex;  // guards the two above
    std::shared_ptr<tnEncodedSink> fSink;
    // A stream that joins a running encoder hears it while its filter arrives on another thread:
    // std::atomic_load and atomic_store.
    std::shared_ptr<tnFilter> fFilter;
    std::shared_ptr<tnOutputStreamSync> fSync;
    std::atomic<bool> fHasFilter{false};

private:
    friend class tnSharedEncoders;

    /// Observes with a request that need not be the encoded format. `life` is held as long as a
    /// function that calls this stream exists anywhere.
    void create_filters(const tnMediaRecord& request, const std::shared_ptr<void>& life);
    void filter_arrived(std::shared_ptr<tnFilter> filter);
    void video_arrived(std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer);
    void audio_arrived(std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer);

    const int fSource;
    tnMediaRecord fDisplayFormat;
    tnMediaRecord fEncodedFormat;
    std::shared_ptr<zObject> fObserverToken;  // who observes, for the manager; only while it does
    // delivery thread; oldest first
    std::vector<std::shared_ptr<tnVideoCompressor::EncodedBuffer>> fPendingVideo;
    std::vector<std::shared_ptr<tnAudioCompressor::EncodedBuffer>> fPendingAudio;
};
