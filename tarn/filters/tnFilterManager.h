#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tarn/export.h"
#include "tarn/filters/tnAudioCompressor.h"
#include "tarn/filters/tnVideoCompressor.h"
#include "tarn/foundation/tnMediaRecord.h"

class tnStreamBuffer;
class zObject;

/// Brings frames and sound of the host's numbered sources to encoders, and what they make to the
/// output streams that asked for it. Equal wishes may share one encoder: see StartObservingFilter.
///
/// One instance serves the process. One recursive lock guards it and every entry. Factories,
/// encoder set-up and encoder teardown run under that lock; encoding and observers never do. The
/// host never writes one source on two threads at once; an initialisation function is called by
/// whoever made the filter ready, a sample function by whoever writes.
class TARN_API tnFilterManager {
public:
    using InitFunction = std::function<void(std::shared_ptr<tnFilter>)>;
    using VideoFunction = std::function<void(std::shared_ptr<tnVideoCompressor::EncodedBuffer>)>;
    using AudioFunction = std::function<void(std::shared_ptr<tnAudioCompressor::EncodedBuffer>)>;

    struct Observer {
        std::weak_ptr<zObject> fOwner;  ///< identity and liveness
        InitFunction fInitialize;       ///< gets the filter once that is ready, and never again
        VideoFunction fVideo;           ///< may be empty
        AudioFunction fAudio;           ///< may be empty
    };
    /// An observer as writes need it.
    struct Listener {
        std::weak_ptr<zObject> fOwner;
        VideoFunction fVideo;
        AudioFunction fAudio;
    };
    using Listeners = std::shared_ptr<const std::vector<Listener>>;
    /// An output as writes need it.
    struct Road {
        std::shared_ptr<tnFilter> fFilter;
        Listeners fListeners;
    };
    struct Output {
        std::shared_ptr<tnFilter> fFilter;
        tnMediaRecord fFormat;  ///< the wish that caused this output
        bool fInitialized = false;
        std::deque<Observer> fObservers;
        Listeners fListeners;  ///< fObservers as writes see them; null until a write needs them
    };
    struct Source {
        std::shared_ptr<tnMediaRecord> fInputFormat;  ///< set once
        std::deque<Output> fOutputs;
        long long fFirstSampleTime = -1;  ///< milliseconds: sync time of the first video write
        long long fFirstBufferTime = -1;  ///< milliseconds: where its encoder put the first buffer
        /// fOutputs as writes see them; null until a write needs them, and with every change.
        std::shared_ptr<const std::vector<Road>> fRoads;
    };
    struct Factory {
        std::string fName;  ///< codec name that requests carry
        std::function<std::shared_ptr<tnFilter>()> fCreate;
    };

    /// The manager of the process; null before Startup and after Shutdown.
    static std::shared_ptr<tnFilterManager> Default();
    static void Startup();
    static void Shutdown();

    /// From now on requests with this codec name get a filter of `create`, which runs under the
    /// manager's lock and may give null. Of equal names the first registered wins.
    void RegisterFactory(const std::string& name,
                         std::function<std::shared_ptr<tnFilter>()> create);

    // Joins the first output of an equal format, and, if a factory bears the format's codec name,
    // makes an output of its own as well: the observer then hears both. Whoever wants to share asks
    // with a codec name that no factory bears. Without an equal output and without a factory
    // nothing happens and nothing is reported. `init` may run before these return.
    void ObserveVideoFilter(int source, std::shared_ptr<zObject> owner, const tnMediaRecord& format,
                            InitFunction init, VideoFunction video);
    void ObserveAudioFilter(int source, std::shared_ptr<zObject> owner, const tnMediaRecord& format,
                            InitFunction init, AudioFunction audio);
    void StartObservingFilter(int source, std::shared_ptr<zObject> owner,
                              const tnMediaRecord& format, InitFunction init, AudioFunction audio,
                              VideoFunction video);
    /// Removes the owner from every output of the source; a null owner removes those that have
    /// died. Outputs without observers end here, and every source that is left without outputs,
    /// with its input format.
    void StopObservingFilter(int source, std::shared_ptr<zObject> owner);

    /// Whether the source has an output that a request of this format would join.
    bool HasEqualOutput(int source, const tnMediaRecord& format);

    /// What the host writes to the source. The first call holds as long as the source has outputs.
    void SetInputFormat(int source, const tnMediaRecord& format);

    /// Who hears this filter of the source, as copies.
    std::deque<Observer> ObserversForFilter(int source, const std::shared_ptr<tnFilter>& filter);

    /// Whether a request would join an output: shape, rate, timescale and target bit rate decide,
    /// and nothing else, the codec's name included.
    static bool FormatsAreEqual(const tnMediaRecord& a, const tnMediaRecord& b);

    /// Encodes one frame for every output of `source` and delivers what is finished.
    ///
    /// `syncTime` milliseconds on the host's line; `time` ticks of the timescale that the outputs
    /// ask for ('tmsc'), each of which takes it as its own. Each output takes a writing reference
    /// of `buffer` of its own and gives it back on every path. Blocks as long as the encoders do.
    /// Reports nothing: a frame that cannot be encoded is gone.
    void WriteVideoSample(int source, long long syncTime, long long time, tnStreamBuffer& buffer,
                          const tnMediaRecord& format);

    /// Encodes one block of PCM for every output of `source` and delivers what is finished.
    ///
    /// `time` milliseconds on the host's line; `sizeBits` the length of `data` in bits; `position`
    /// the block's first sample frame at the source's rate. The last two arguments are not used.
    /// Outputs of the codec "PCM" hear blocks of 16-bit stereo that last 1/30 s, and no others.
    void WriteAudioSamples(int source, long long time, const void* data, unsigned int sizeBits,
                           long long position, unsigned int, long long);

private:
    using Roads = std::shared_ptr<const std::vector<Road>>;

    /// Offers the source's input format to each output that has not been offered one. Under the
    /// lock.
    void SetInputFormat(int source, Source& entry);
    /// Calls what waits for a filter that is ready by now. Without the lock.
    void CallInitializations();

    static Roads roads_of(Source& entry);
    static Listeners listeners_of(Output& output);
    void create_video_filter(int source, Output& output, const tnMediaRecord& input);
    void deliver_video(int source, const std::weak_ptr<tnFilter>& filter,
                       const std::shared_ptr<tnVideoCompressor::EncodedBuffer>& buffer);
    static void stamp_sync_time(Source& entry, tnVideoCompressor::EncodedBuffer& buffer);
    static void deliver_audio(const Road& road, tnAudioCompressor::EncodedBuffer& encoded,
                              long long& running);

    // under the process-wide lock
    std::map<int, Source> fSources;
    std::vector<Factory> fFactories;
};
