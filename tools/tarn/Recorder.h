#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "spar/zSignal.h"
#include "tarn/foundation/tnMediaRecord.h"

class ClipAudio;
class ClipVideo;
struct ClipFrame;
struct MovieOnDisk;
class tnWriteORB2;

/// What a recording is to be.
struct RecordOptions {
    std::string input;
    std::string output;
    std::string video = "x264";  ///< encoder name, or "none"
    std::string audio = "aac";   ///< "pcm", "aac" or "none"
    std::string audioInput;      ///< clip for the sound; empty for the input itself
    std::string quality;         ///< "codec_quality" of the encoder
    int bitRate = 8000;          ///< thousands of bits a second
    int keyFrameRate = 0;        ///< frames between key frames, 0 for the writer's own default
    int width = 0;               ///< 0 keeps the clip's
    int height = 0;
    int moovRate = 0;   ///< seconds between crash-proof states, 0 for the container's own
    double limit = 0;   ///< seconds, 0 for the whole clip
    bool live = false;  ///< at the clip's own pace
};

/// Figures of a recording, readable from any thread while it runs.
struct RecordFigures {
    std::atomic<long long> frames{0};
    std::atomic<long long> audioFrames{0};
    std::atomic<long long> videoBytes{0};  ///< in the file; known once it is closed
    std::atomic<long long> audioBytes{0};
    std::atomic<long long> queued{0};    ///< pictures that the encoder has yet to take in
    std::atomic<double> seconds{0};      ///< how far the picture (or sound) has come
    std::atomic<double> lateSeconds{0};  ///< largest lag behind the clip's pace, with `live`
};

/// Records one clip through the movie file writer, as an output add-on would: pictures and sound
/// from two threads, each polling the writer's readiness before it hands something over.
class Recorder {
public:
    explicit Recorder(const RecordOptions& options);
    /// The same from pictures and sound that come from elsewhere; the options' inputs stay empty,
    /// and a problem is told in the words of these two alone.
    Recorder(const RecordOptions& options, std::unique_ptr<ClipVideo> video,
             std::unique_ptr<ClipAudio> audio);
    ~Recorder();

    /// Opens the clip and the file. False with one line in Error().
    bool Prepare();
    /// Records to the end, the limit or `stop`, and closes the file. False with one line in
    /// Error().
    bool Run(const std::atomic<bool>& stop);

    const RecordFigures& Figures() const { return fFigures; }
    /// What the file takes of the disk by now. From any thread.
    long long FileBytes() const;
    const std::string& Error() const { return fError; }
    /// Whether the pictures, or sound alone, ended with their clip or the limit. False where `stop`
    /// cut them short. After Run.
    bool CameToEnd() const { return fCameToEnd; }
    /// Seconds that the recording is going to have; 0 when nobody can tell.
    double ExpectedSeconds() const;

private:
    bool is_output(const std::string& input) const;
    bool open_clips();
    bool open_writer();
    std::string refusal_text(int code) const;
    tnMediaRecord encoded_video() const;
    tnMediaRecord encoded_audio() const;
    bool has_ended(const std::atomic<bool>& stop) const;
    void fail(const std::string& line);
    void judge_clips();
    void judge_file();
    double sound_kept(const MovieOnDisk& movie) const;
    std::string kept_in(const MovieOnDisk& movie) const;

    void guarded(void (Recorder::*record)(const std::atomic<bool>&), const std::atomic<bool>& stop);
    void record_video(const std::atomic<bool>& stop);
    bool wait_for_room(const std::atomic<bool>& stop);
    bool write_video(ClipFrame& frame);
    void record_audio(const std::atomic<bool>& stop);
    bool write_audio(const short* pcm, std::size_t samples, const std::atomic<bool>& stop);
    long long audio_frames_due(bool& final) const;
    bool keep_pace(double seconds, const std::atomic<bool>& stop);

    RecordOptions fOptions;
    RecordFigures fFigures;
    std::unique_ptr<ClipVideo> fVideo;
    std::unique_ptr<ClipAudio> fAudio;
    tnWriteORB2* fWriter = nullptr;
    unsigned int fContainer = 0;
    long long fStartUs = 0;

    bool fCameToEnd = false;  // written by the thread of the pictures, or of sound alone
    zSignal fPictureTaken;    // the encoder has begun with a picture

    // between the two threads
    std::atomic<bool> fFailed{false};
    std::atomic<bool> fVideoStarted{false};
    std::atomic<bool> fVideoEnded{false};
    std::atomic<double> fVideoStartSeconds{0};
    std::string fError;  // written once, by whoever sets fFailed first
};
