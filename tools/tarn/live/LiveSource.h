#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "spar/zMutex.h"
#include "tarn/clocks/tnClockWatcher.h"
#include "tarn/foundation/tnMediaRecord.h"

#include "Show.h"

class LivePictures;
class LiveSound;
class tnStreamBuffer;
class tnStreamBufferGroup;

/// Figures of a source, readable from any thread while it runs.
struct LiveSourceFigures {
    std::atomic<long long> frames{0};   ///< handed to the outputs
    std::atomic<long long> ticks{0};    ///< received
    std::atomic<long long> late{0};     ///< ticks received half a period late or more
    std::atomic<long long> lost{0};     ///< ticks that the watcher was too busy for
    std::atomic<long long> skipped{0};  ///< frames given up since too many ticks were lost
    std::atomic<long long> worstLateUs{0};
    std::atomic<bool> ended{false};  ///< a clip that is played once is over
};

/// One source of a show: a watcher of its clock, whose thread decodes or draws each frame and
/// writes it, and the sound that belongs to it, to the filter manager.
///
/// A frame stands for a tick. Ticks that are lost while an encoder is busy are made up for by
/// frames without a pause, up to the source's `catchUp`; a longer hole is skipped, and shows as a
/// longer frame. Sound goes out in blocks of a thirtieth of a second, ahead of the picture that
/// begins within them, and is never skipped.
///
/// An output that takes the source's frames sets up its observers of VideoNumber and AudioNumber,
/// with tracks made by VideoTrack and AudioTrack, and then calls BeginUse; before its observers
/// leave it calls EndUse. Nothing is written to a number that nobody uses: the manager dates the
/// first buffer of a number by the first write, and writes from before would shift that date.
///
/// All operations but the figures belong to the control thread.
class LiveSource final : public tnClockWatcher {
public:
    /// Null with one line in `error`.
    static std::unique_ptr<LiveSource> Open(const ShowSource& source, std::string& error);
    /// `sound` may be null. For tests; Open does the same with what the show asks for.
    LiveSource(const ShowSource& source, std::unique_ptr<LivePictures> pictures,
               std::unique_ptr<LiveSound> sound);
    ~LiveSource() override;

    const std::string& Name() const { return fSource.name; }
    /// Raw pictures as they are written; timescale, frame duration and rate are the source's.
    const tnMediaRecord& VideoFormat() const { return fVideoFormat; }
    /// Null for a source without sound.
    const tnMediaRecord* AudioFormat() const;
    double FramesPerSecond() const { return fFramesPerSecond; }
    /// How fast its clock will tick, if not at the rate of frames; before Start.
    void SetPace(double ticksPerSecond) { fTicksPerSecond = ticksPerSecond; }

    /// What pictures and sound are called at the filter manager.
    int VideoNumber() const { return fNumber; }
    int AudioNumber() const { return fNumber + 1; }
    /// `track` as an output asks for it: what the source renders, "source_id" and what the track
    /// itself says. AudioTrack only for a source with sound.
    tnMediaRecord VideoTrack(const tnMediaRecord& track) const;
    tnMediaRecord AudioTrack(const tnMediaRecord& track) const;
    void BeginUse(bool video, bool audio);
    void EndUse(bool video, bool audio);

    const LiveSourceFigures& Figures() const { return fFigures; }
    /// Seconds that have been handed to the outputs, or passed over.
    double Seconds() const;

    void Stop() override;
    void ReceiveTime(const tn_time_rec& time) override;

private:
    void note_tick(const tn_time_rec& time);
    void write_frames_until(long long frame);
    bool write_frame();
    bool skip_frame();
    bool next_picture(tnStreamBuffer* buffer);
    void write_sound_until(double seconds) SPAR_REQUIRES(fGate);
    void use(int video, int audio);
    void let_control_in() const;

    const ShowSource fSource;
    const int fNumber;
    std::unique_ptr<LivePictures> fPictures;
    std::unique_ptr<LiveSound> fSound;  // may be null
    tnMediaRecord fVideoFormat;
    std::unique_ptr<tnStreamBufferGroup> fBuffers;
    double fFramesPerSecond = 25;
    double fTicksPerSecond = 25;
    LiveSourceFigures fFigures;

    // the watcher's thread
    long long fLastTick = -1;  // none yet
    long long fNextFrame = 0;
    long long fRoundStart = -1;  // of the clip's last round that the sound was told of
    long long fBlocks = 0;       // of sound
    std::vector<short> fBlock;

    // any thread
    std::atomic<bool> fEnding{false};
    std::atomic<long long> fFramesPassed{0};
    std::atomic<int> fWaitingForGate{0};

    // Held by the watcher's thread for the length of a frame, so that a number is never written to
    // while its observers come or go.
    zMutex fGate;
    int fVideoUsers SPAR_GUARDED_BY(fGate) = 0;
    int fAudioUsers SPAR_GUARDED_BY(fGate) = 0;
};
