#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <string>

#include "spar/zMutex.h"
#include "spar/zThread.h"

#include "addons/support/MediaItem.h"
#include "addons/support/MovieStart.h"
#include "addons/support/WaitAllowance.h"

/// One running output of a movie: takes encoded buffers on the threads that deliver them, and
/// writes on a thread of its own from where its tracks start together.
///
/// It is opened, started, written to and stopped. A failure stops it alone: it takes nothing more,
/// says so to whoever asks, and keeps what stands in its file. A queue that is full is such a
/// failure, but for an output that says otherwise: its writes wait, as long as WaitAllowance lets
/// them, and then what has no room is left out until the output has caught up.
class MovieOutput : public std::enable_shared_from_this<MovieOutput> {
public:
    /// The status of an output that could not keep up.
    static constexpr int kTooSlow = -14;
    static constexpr int kNoThread = -1;
    static constexpr int kNoMemory = -1024;

    struct Settings {
        std::string where;  ///< path or address
        bool hasPictures = false;
        bool hasSound = false;
        double expectedSeconds = 0;  ///< 0 for the file's own choice
        int moovRate = 0;         ///< seconds between two states that survive a crash; 0 likewise
        double stopSeconds = 75;  ///< that Stop waits for an output that does not end
    };
    /// How much may wait in front of the output's thread. `waits`: a write waits for room, and
    /// leaves out what gets none; sound then has room of its own beside that for pictures.
    struct Room {
        std::size_t items;
        std::size_t bytes;
        bool waits;
    };

    virtual ~MovieOutput();
    MovieOutput(const MovieOutput&) = delete;
    MovieOutput& operator=(const MovieOutput&) = delete;

    /// Looks whether there can be an output: 0 or a negative code. Control thread.
    virtual int Open() = 0;
    /// Starts the thread, which keeps this object while it runs. 0, or kNoThread with a trace line,
    /// and nothing runs, when the system has no thread to give.
    int Start();
    /// Takes nothing more, writes what waits, completes the file. Control thread; once. Blocks as
    /// long as that takes, but no longer than the settings say: a disk that never answers then
    /// keeps the output's thread, which ends when it may, and nothing else.
    void Stop() SPAR_EXCLUDES(fLock);

    void WriteVideo(const std::shared_ptr<tnFilter>& filter,
                    std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer);
    void WriteAudio(const std::shared_ptr<tnFilter>& filter,
                    std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer);

    /// The first failure, which stopped it, or 0. Any thread.
    int Failure() SPAR_EXCLUDES(fLock);
    /// What the pictures, or the sound, of an output that goes on are without: 0, kOutputLeavesOut
    /// or kOutputGetsNothing. Any thread.
    int Trouble(bool ofPictures) SPAR_EXCLUDES(fLock);

    /// Bytes of the pictures, or of the sound, that the file has taken. Any thread.
    virtual long long BytesWritten(bool ofPictures) const = 0;
    /// Pictures that the file has taken. Any thread.
    long long PicturesWritten() const { return fPictureCount.load(std::memory_order_relaxed); }

protected:
    static constexpr int kLeftOut = 1;

    MovieOutput(Settings settings, Room room);

    // On the output's thread. All but the last give 0 or a negative code.

    /// Makes the tracks and begins the file at `start`.
    virtual int begin_file(const MovieStart& start) = 0;
    /// Or kLeftOut: the file goes on without this one.
    virtual int write_picture(const MediaItem& item) = 0;
    virtual int write_sound(const MediaItem& item) = 0;
    /// Completes the file; also after a failure, if it had begun.
    virtual int finish_file() = 0;

    /// On the thread that delivers: whether the buffer is of a kind that this output takes.
    virtual bool takes_picture(tnVideoCompressor::EncodedBuffer& buffer);
    virtual bool takes_sound(tnAudioCompressor::EncodedBuffer& buffer);

    const Settings fSettings;

private:
    class Body;

    bool has_ended() SPAR_EXCLUDES(fLock);
    /// What waits, and what is missing, of one track.
    struct Track {
        const char* what;
        std::size_t items = 0;
        std::size_t bytes = 0;
        bool leavesOut = false;
        long long leftOut = 0;
        double silentMs = 0;  // of the other track, since the last piece of this one
        bool isSilent = false;
    };

    void put(MediaItem item) SPAR_EXCLUDES(fLock);
    bool place(MediaItem& item, std::string& news) SPAR_EXCLUDES(fLock);
    Track& track_of(const MediaItem& item) SPAR_REQUIRES(fLock);
    void note_silence(const MediaItem& item, std::string& news) SPAR_REQUIRES(fLock);
    void keep_time(const MediaItem& item) SPAR_REQUIRES(fLock);
    void note_room(std::string& news) SPAR_REQUIRES(fLock);
    bool wait_for_room(const MediaItem& item) SPAR_REQUIRES(fLock);
    bool is_full(const MediaItem& item) const SPAR_REQUIRES(fLock);
    bool has_caught_up() const SPAR_REQUIRES(fLock);
    void leave_out(const MediaItem& item, std::string& news) SPAR_REQUIRES(fLock);
    void note_lost_track() SPAR_EXCLUDES(fLock);
    bool take(MediaItem& item) SPAR_EXCLUDES(fLock);
    void run() SPAR_EXCLUDES(fLock);
    void attempt(void (MovieOutput::*step)());
    void write_items();
    void complete();
    int handle(MediaItem item);
    int begin();
    void begin_at_end();
    int write(const MediaItem& item);
    void fail(int code) SPAR_EXCLUDES(fLock);

    const Room fRoom;
    std::unique_ptr<zThread> fThread;

    // the thread that delivers pictures, and the one that delivers sound
    std::shared_ptr<const TrackFormat> fPictureFormat;
    std::shared_ptr<const TrackFormat> fSoundFormat;

    // the output's thread
    MovieStart fStart;

    std::atomic<bool> fBegun{false};
    std::atomic<long long> fPictureCount{0};

    zMutex fLock;
    zCondition fChanged;
    std::deque<MediaItem> fItems SPAR_GUARDED_BY(fLock);
    Track fPictures SPAR_GUARDED_BY(fLock) = {"pictures"};
    Track fSound SPAR_GUARDED_BY(fLock) = {"sound"};
    bool fWithoutSound SPAR_GUARDED_BY(fLock) = false;  // it began so
    WaitAllowance fAllowance SPAR_GUARDED_BY(fLock);
    bool fEnding SPAR_GUARDED_BY(fLock) = false;
    bool fEnded SPAR_GUARDED_BY(fLock) = false;
    int fFailure SPAR_GUARDED_BY(fLock) = 0;
};
