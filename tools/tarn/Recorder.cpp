#include "Recorder.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fmt/format.h>
#include <system_error>
#include <thread>
#include <vector>

#include "orb/CPixelDataReference.h"
#include "spar/zThread.h"
#include "spar/zTime.h"
#include "tarn/writers/tnWriteORB2.h"
#include "tarn/writers/writerErrors.h"

#include "ClipAudio.h"
#include "ClipVideo.h"
#include "MovieOnDisk.h"
#include "Say.h"
#include "avHandles.h"
#include "bytesOnDisk.h"
#include "clipNames.h"
#include "codeText.h"
#include "exceptionAdvice.h"
#include "folderTrouble.h"
#include "movieContainer.h"

using namespace Quillon::Orb;

namespace {

constexpr int kPollUs = 2000;
constexpr int kLongestWaitUs = 10000;
constexpr int kLongestSleepUs = 100'000;
constexpr double kMicro = 1e6;
// What stopped the file may have said so itself by then, in a line of its own.
constexpr const char* kLookFurther =
    "a line above may say why, else look whether its disk is full or somebody else writes to it";

/// Pixels that are counted for as long as the encoder has not let go of them, and that raise
/// `taken` when it begins with them.
class WaitingPixels final : public CPixelDataReference {
public:
    WaitingPixels(RObject<CPixelDataReference> pixels, std::atomic<long long>& count,
                  zSignal& taken)
        : fPixels(std::move(pixels)), fCount(count), fTaken(taken) {
        ++fCount;
    }
    ~WaitingPixels() override { --fCount; }

    Result Lock(int mode) override {
        fTaken.Raise();
        return fPixels->Lock(mode);
    }
    void Unlock() override { fPixels->Unlock(); }
    unsigned char* GetData() override { return fPixels->GetData(); }
    int GetStride() override { return fPixels->GetStride(); }
    int GetLength() override { return fPixels->GetLength(); }
    int GetWidth() override { return fPixels->GetWidth(); }
    int GetHeight() override { return fPixels->GetHeight(); }

private:
    const RObject<CPixelDataReference> fPixels;
    std::atomic<long long>& fCount;
    zSignal& fTaken;
};

class FrameBuffer final : public tnVideoCompressor2::EncodedBuffer {
public:
    explicit FrameBuffer(const ClipFrame& frame) : fFrame(frame) {}

    // What was written meanwhile, which is nearly nothing: tracks write between the calls.
    void SetBytesWritten(int) override {}
    EncodedBufferTiming GetTiming() override { return {1, fFrame.time, 1, fFrame.duration}; }
    CPixelDataReference* GetPixelData() override {
        fFrame.pixels->Acquire();
        return fFrame.pixels.Get();
    }

private:
    const ClipFrame& fFrame;
};

class SoundBuffer final : public tnAudioCompressor2::EncodedBuffer {
public:
    void SetBytesWritten(int) override {}
};

struct Size {
    int width = 0;
    int height = 0;

    bool operator==(const Size&) const = default;
};

/// The largest size within `size` that the encoder takes.
Size size_that_fits(const std::string& encoder, const Size& size, bool isInterlaced) {
    if (encoder == "MJPEG") return size;
    if (encoder == "Mpeg2") {
        // Its headers hold twelve bits of a side, and they may not all be 0.
        const auto storable = [](int side) { return side % 4096 == 0 ? side - 2 : side; };
        return {storable(size.width), storable(size.height)};
    }
    const int rows = encoder == "ProRes" ? 1 : isInterlaced ? 4 : 2;
    const auto down = [](int side, int step) { return std::max(step, side - side % step); };
    return {down(size.width, 2), down(size.height, rows)};
}

/// Whether the encoder that the library uses has the rate.
bool is_rate_of_aac(int rate) {
    const AVCodec* const encoder = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (!encoder || !encoder->supported_samplerates) return true;
    const int* known = encoder->supported_samplerates;
    while (*known != 0 && *known != rate) ++known;
    return *known != 0;
}

}  // namespace

Recorder::Recorder(const RecordOptions& options) : fOptions(options) {}

Recorder::Recorder(const RecordOptions& options, std::unique_ptr<ClipVideo> video,
                   std::unique_ptr<ClipAudio> audio)
    : fOptions(options), fVideo(std::move(video)), fAudio(std::move(audio)) {}

Recorder::~Recorder() {
    if (fWriter) fWriter->Release();
}

void Recorder::fail(const std::string& line) {
    if (fFailed.exchange(true)) return;
    fError = line;
}

double Recorder::ExpectedSeconds() const {
    // Without it a short clip would get the index room of a recording that nobody announced.
    const double whole = fVideo ? fVideo->HeaderSeconds() : fAudio ? fAudio->HeaderSeconds() : 0;
    if (fOptions.limit > 0) return whole > 0 ? std::min(whole, fOptions.limit) : fOptions.limit;
    return whole;
}

long long Recorder::FileBytes() const {
    return BytesOnDisk(fOptions.output);
}

bool Recorder::Prepare() {
    fContainer = ContainerOf(fOptions.output);
    if (fContainer == 0) {
        fail(UnknownContainer(fOptions.output));
        return false;
    }
    if (fOptions.video == "none" && fOptions.audio == "none") {
        fail("--video none with --audio none leaves nothing to record");
        return false;
    }
    if (is_output(fOptions.input) || is_output(fOptions.audioInput)) {
        fail(fmt::format("'{}': is the input too; choose another output", fOptions.output));
        return false;
    }
    const bool given = fVideo || fAudio;
    return (given || open_clips()) && open_writer();
}

bool Recorder::is_output(const std::string& input) const {
    const std::vector<std::string> files = FilesOfClip(input);
    return std::any_of(files.begin(), files.end(), [this](const std::string& file) {
        std::error_code missing;
        return std::filesystem::equivalent(file, fOptions.output, missing);
    });
}

bool Recorder::open_clips() {
    const std::string& sound = fOptions.audioInput.empty() ? fOptions.input : fOptions.audioInput;
    const bool takesBoth = fOptions.video != "none" && fOptions.audio != "none";
    if (takesBoth && sound == fOptions.input && IsReadOnce(sound)) {
        fail(
            fmt::format("'{}': can be read once, and picture and sound each read it; take one of "
                        "them with --audio none or --video none, or make it a file first",
                        sound));
        return false;
    }
    std::string error;
    if (fOptions.video != "none") {
        fVideo = ClipVideo::Open(fOptions.input, fOptions.width, fOptions.height, error);
        if (!fVideo) {
            fail(error);
            return false;
        }
        for (const std::string& line : fVideo->Cautions()) Say(stderr, "tarn record: {}\n", line);
    }
    if (fOptions.audio == "none") return true;
    fAudio = ClipAudio::Open(sound, error);
    if (!error.empty()) {
        fail(error);
        return false;
    }
    if (!fAudio && (!fVideo || !fOptions.audioInput.empty())) {
        fail(fmt::format("'{}': has no sound to record; use --audio none", sound));
        return false;
    }
    return true;
}

tnMediaRecord Recorder::encoded_video() const {
    tnMediaRecord record(fVideo->Format());
    record.SetBool('mena', true, 0);
    record.SetBool('momp', true, 0);
    record.SetCString('mcon', fOptions.video.c_str(), 0);
    record.SetInt32('mtbr', fOptions.bitRate, 0);
    if (!fOptions.quality.empty()) record.SetCString("codec_quality", fOptions.quality.c_str(), 0);
    if (fOptions.keyFrameRate > 0) record.SetInt32("key_frame_rate", fOptions.keyFrameRate, 0);
    return record;
}

tnMediaRecord Recorder::encoded_audio() const {
    tnMediaRecord record(fAudio->Format());
    record.SetBool('mena', true, 0);
    record.SetCString('mcon', fOptions.audio == "aac" ? "MPEG-4 Audio" : "PCM", 0);
    return record;
}

bool Recorder::open_writer() {
    const std::string trouble = FolderTrouble(std::filesystem::path(fOptions.output).parent_path());
    if (!trouble.empty()) {
        fail(fmt::format("'{}': {}", fOptions.output, trouble));
        return false;
    }
    std::error_code unknown;
    if (std::filesystem::is_directory(fOptions.output, unknown)) {
        fail(fmt::format("'{}': that is a folder; name a file in it", fOptions.output));
        return false;
    }
    const bool isNew = !std::filesystem::exists(fOptions.output, unknown);
    fWriter = new tnWriteORB2();
    int code =
        fWriter->Open(fOptions.output.c_str(), fContainer, fOptions.moovRate, ExpectedSeconds());
    if (code == 0) {
        if (fVideo) {
            fWriter->SetSourceVideoFormat(fVideo->Format());
            fWriter->SetEncodedVideoFormat(encoded_video());
        }
        if (fAudio) {
            fWriter->SetSourceAudioFormat(fAudio->Format());
            fWriter->SetEncodedAudioFormat(encoded_audio());
        }
        code = fWriter->CompleteInitialization();
    }
    if (code == 0) return true;
    fail(fmt::format("'{}': {}", fOptions.output, refusal_text(code)));
    // An empty file would look like a recording that was lost.
    fWriter->Release();
    fWriter = nullptr;
    if (isNew) std::filesystem::remove(fOptions.output, unknown);
    return false;
}

// Where it is the clip's own size or rate that is refused, nobody has set what could be checked.
std::string Recorder::refusal_text(int code) const {
    if (code == kWriterVideoBegin && fVideo) {
        const tnMediaRecord& format = fVideo->Format();
        const Size size = {format.fWidth.AsInt32(0), format.fHeight.AsInt32(0)};
        const Size fits = size_that_fits(fOptions.video, size, format.fFieldOrder.AsInt32(1) > 1);
        if (fits != size) {
            return fmt::format(
                "{} takes no pictures of {}x{}; use --size {}x{} or --video MJPEG (code {})",
                fOptions.video, size.width, size.height, fits.width, fits.height, code);
        }
    }
    if (code == kWriterAudioBegin && fAudio && fOptions.audio == "aac" &&
        !is_rate_of_aac(fAudio->SampleRate())) {
        return fmt::format("AAC takes no sound of {} samples a second; use --audio pcm (code {})",
                           fAudio->SampleRate(), code);
    }
    return WriterText(code, fOptions.video);
}

bool Recorder::has_ended(const std::atomic<bool>& stop) const {
    return stop || fFailed;
}

bool Recorder::Run(const std::atomic<bool>& stop) {
    fStartUs = zTime::MicroNow();
    if (!fVideo) fVideoStarted = true;
    std::thread video;
    std::thread audio;
    try {
        if (fVideo) video = std::thread([&] { guarded(&Recorder::record_video, stop); });
        if (fAudio) audio = std::thread([&] { guarded(&Recorder::record_audio, stop); });
    } catch (const std::system_error& error) {
        fail(fmt::format("'{}': no thread to record with: {}; {}", fOptions.output, error.what(),
                         ExceptionAdvice(error)));
    }
    if (video.joinable()) video.join();
    if (audio.joinable()) audio.join();
    fWriter->Close();
    if (!fFailed && (!stop || fCameToEnd)) judge_clips();
    judge_file();
    return !fFailed;
}

// An exception that leaves a thread ends the program, and with it a file that can still be closed.
void Recorder::guarded(void (Recorder::*record)(const std::atomic<bool>&),
                       const std::atomic<bool>& stop) {
    try {
        (this->*record)(stop);
    } catch (const std::exception& trouble) {
        fail(fmt::format("'{}': the recording had to end: {}; {}", fOptions.output, trouble.what(),
                         ExceptionAdvice(trouble)));
    }
}

// A clip that was cut off is recorded as far as it goes, and yet is no success: whoever relies on
// the recording has to know.
void Recorder::judge_clips() {
    const std::string& sound = fOptions.audioInput.empty() ? fOptions.input : fOptions.audioInput;
    // What was not read from the options' inputs names its file itself.
    const auto line = [](const std::string& input, const char* what, const std::string& problem) {
        return input.empty() ? problem
                             : fmt::format("'{}': {}{}; get the whole clip and record it again",
                                           input, what, problem);
    };
    if (fVideo && !fVideo->Problem().empty()) {
        fail(line(fOptions.input, "", fVideo->Problem()));
    } else if (fVideo && fFigures.frames == 0) {
        fail(fmt::format("'{}': not one of its pictures could be decoded; is the clip whole?",
                         fOptions.input.empty() ? fOptions.output : fOptions.input));
    } else if (fAudio && !fAudio->Problem().empty()) {
        fail(line(sound, "its sound ", fAudio->Problem()));
    } else if (!fVideo && fFigures.audioFrames == 0) {
        fail(fmt::format("'{}': none of its sound could be decoded; is the clip whole?", sound));
    }
}

// Seconds of sound by the file's index. Its track may be as long as ever with sound missing at its
// end, and its last packet of AAC may stand for less than it could.
double Recorder::sound_kept(const MovieOnDisk& movie) const {
    constexpr int kFramesOfPacket = 1024;
    const long long frameBytes = fAudio->Channels() * static_cast<long long>(sizeof(short));
    const long long frames = fOptions.audio == "aac" ? movie.audioPackets * kFramesOfPacket
                                                     : movie.audioBytes / frameBytes;
    return static_cast<double>(std::min(frames, fFigures.audioFrames.load())) /
           fAudio->SampleRate();
}

std::string Recorder::kept_in(const MovieOnDisk& movie) const {
    if (!movie.opens) return fmt::format("nothing can be read ({})", movie.trouble);
    return fVideo ? fmt::format("{} frames, {:.1f} s, were kept", movie.frames, movie.seconds)
                  : fmt::format("{:.1f} s were kept", movie.seconds);
}

// The file has the last word on what was kept: what was handed over may have been lost on the way.
void Recorder::judge_file() {
    const MovieOnDisk movie = ReadMovieOnDisk(fOptions.output);
    fFigures.videoBytes = movie.videoBytes;
    fFigures.audioBytes = movie.audioBytes;
    if (fFailed) {
        fError += fmt::format("; in '{}' {}", fOptions.output, kept_in(movie));
    } else if (!movie.opens) {
        fail(
            fmt::format("'{}': cannot be read to see what was kept ({}); a line above may say why, "
                        "else look whether it was moved or removed",
                        fOptions.output, movie.trouble));
    } else if (fVideo && movie.frames != fFigures.frames) {
        fail(fmt::format("'{}': is not complete: of {} frames {}; {}", fOptions.output,
                         fFigures.frames.load(), kept_in(movie), kLookFurther));
    } else if (fAudio) {
        const double given = static_cast<double>(fFigures.audioFrames) / fAudio->SampleRate();
        if (sound_kept(movie) >= given) return;
        fail(fmt::format("'{}': is not complete: of {:.2f} s of sound {:.2f} s were kept; {}",
                         fOptions.output, given, sound_kept(movie), kLookFurther));
    }
}

// False when the recording ended meanwhile. It looks every now and then: the next picture of a clip
// with a gap may be far away.
bool Recorder::keep_pace(double seconds, const std::atomic<bool>& stop) {
    if (!fOptions.live) return true;
    const long long due = fStartUs + static_cast<long long>(seconds * kMicro);
    const long long late = zTime::MicroNow() - due;
    if (late >= 0) {
        fFigures.lateSeconds =
            std::max(fFigures.lateSeconds.load(), static_cast<double>(late) / kMicro);
        return true;
    }
    while (!has_ended(stop)) {
        const long long now = zTime::MicroNow();
        if (now >= due) return true;
        zThread::MicroSleepUntil(std::min(due, now + kLongestSleepUs), true);
    }
    return false;
}

void Recorder::record_video(const std::atomic<bool>& stop) {
    const double tick = 1.0 / static_cast<double>(fVideo->Format().AsInt64('tmsc', 1));
    while (wait_for_room(stop)) {
        ClipFrame frame;
        const bool decoded = fVideo->Next(frame);
        fVideoStartSeconds = fVideo->StartSeconds();
        fVideoStarted = true;
        const double at = static_cast<double>(frame.time) * tick;
        fCameToEnd = decoded ? fOptions.limit > 0 && at >= fOptions.limit : !fVideo->GaveUp();
        if (!decoded || fCameToEnd) break;
        if (!keep_pace(at, stop) || !write_video(frame)) break;
        fFigures.seconds = static_cast<double>(frame.time + frame.duration) * tick;
    }
    fVideoStarted = true;
    fVideoEnded = true;
}

// Before a picture is read: one that waits beside those of the encoder is memory for nothing.
// Looking again where the encoder begins with a picture, and not at any time, puts the reading of
// the next one where an encoder in slices leaves a core free, instead of in the midst of a slice.
bool Recorder::wait_for_room(const std::atomic<bool>& stop) {
    while (!fWriter->IsVideoReady() && !has_ended(stop)) fPictureTaken.WaitFor(kLongestWaitUs);
    return !has_ended(stop);
}

bool Recorder::write_video(ClipFrame& frame) {
    frame.pixels = RObject<CPixelDataReference>(
        new WaitingPixels(std::move(frame.pixels), fFigures.queued, fPictureTaken));
    FrameBuffer buffer(frame);
    const int code = fWriter->WriteVideo(buffer);
    if (code != 0) {
        fail(fmt::format("'{}': {}", fOptions.output, WriterText(code, fOptions.video)));
        return false;
    }
    ++fFigures.frames;
    return true;
}

// Sound follows the picture and never leads it, so that the two are equally long wherever it ends.
long long Recorder::audio_frames_due(bool& final) const {
    constexpr long long kAll = 1LL << 62;
    const double rate = fAudio->SampleRate();
    if (!fVideo) {
        final = false;
        return fOptions.limit > 0 ? static_cast<long long>(fOptions.limit * rate) : kAll;
    }
    final = fVideoEnded;
    return static_cast<long long>(fFigures.seconds * rate);
}

bool Recorder::write_audio(const short* pcm, std::size_t samples, const std::atomic<bool>& stop) {
    while (!fWriter->IsAudioReady() && !has_ended(stop)) zThread::MicroSleep(kPollUs);
    SoundBuffer buffer;
    const int bytes = static_cast<int>(samples * sizeof(short));
    const int code = fWriter->WriteAudioPacket(&buffer, 0, 0,
                                               reinterpret_cast<const unsigned char*>(pcm), bytes);
    if (code != 0) {
        fail(fmt::format("'{}': {}", fOptions.output, WriterText(code, "sound")));
        return false;
    }
    fFigures.audioFrames += static_cast<long long>(samples) / fAudio->Channels();
    if (!fVideo)
        fFigures.seconds = static_cast<double>(fFigures.audioFrames) / fAudio->SampleRate();
    return true;
}

void Recorder::record_audio(const std::atomic<bool>& stop) {
    while (!fVideoStarted && !has_ended(stop)) zThread::MicroSleep(kPollUs);
    if (fVideo && fOptions.audioInput.empty()) fAudio->StartAt(fVideoStartSeconds);

    const auto channels = static_cast<std::size_t>(fAudio->Channels());
    const auto silence =
        static_cast<std::size_t>(std::max(1, fAudio->SampleRate() / 10)) * channels;
    std::vector<short> pcm;
    std::size_t taken = 0;
    bool clipEnded = false;
    while (!fFailed && !(stop && !fVideo)) {
        if (taken == pcm.size() && !clipEnded) {
            taken = 0;
            clipEnded = !fAudio->Next(pcm);
            if (clipEnded && !fVideo) {
                fCameToEnd = !fAudio->GaveUp();
                return;
            }
        }
        if (clipEnded) {
            pcm.assign(silence, 0);
            taken = 0;
        }
        bool final = false;
        const long long room = audio_frames_due(final) - fFigures.audioFrames;
        if (room <= 0) {
            if (!fVideo) fCameToEnd = true;
            if (final || !fVideo) return;
            zThread::MicroSleep(kPollUs);
            continue;
        }
        const std::size_t count =
            std::min(pcm.size() - taken, static_cast<std::size_t>(room) * channels);
        if (!fVideo && !keep_pace(fFigures.seconds, stop)) return;
        if (!write_audio(pcm.data() + taken, count, stop)) return;
        taken += count;
    }
}
