#include "ReplayEncode.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <thread>
#include <utility>

#include "spar/zThread.h"

#include "../ClipAudio.h"
#include "../ClipVideo.h"
#include "../Recorder.h"

namespace {

constexpr int kProgressUs = 100'000;
constexpr int kLeastKilobits = 2000;
constexpr double kMoreThanRecorded = 1.5;  // encoding twice costs quality, which bits make up for

/// The stretch of each segment that belongs to a cut, and where it lies in the movie.
struct Stretch {
    const SegmentFile* file = nullptr;
    long long from = 0;  ///< on the recording's timeline
    long long to = 0;
    long long at = 0;  ///< in the movie, gaps closed
};

std::vector<Stretch> stretches_of(const std::vector<SegmentFile>& files,
                                  const ReplayCutWish& wish) {
    std::vector<Stretch> stretches;
    long long at = 0;
    for (const SegmentFile& file : files) {
        const long long from = std::max(wish.in, file.Piece().start);
        const long long to = std::min(wish.out, file.Piece().stop);
        if (from >= to) continue;
        stretches.push_back({&file, from, to, at});
        at += to - from;
    }
    return stretches;
}

/// A clip's line on a segment, with the segment's own name: it is read by another.
std::string with_name(std::string line, const SegmentFile& file) {
    const std::size_t at = line.find(file.Path());
    if (at != std::string::npos) line.replace(at, file.Path().size(), file.Piece().path);
    return line;
}

std::string told_of(const SegmentFile& file, const std::string& problem) {
    return fmt::format("'{}': {}; cut up to it, and from behind it", file.Piece().path, problem);
}

/// Pictures of one segment after the other, those of the stretches alone.
class StretchPictures final : public ClipVideo {
public:
    explicit StretchPictures(std::vector<Stretch> stretches) : fStretches(std::move(stretches)) {}

    bool Open(std::string& error) {
        if (!open_next(error)) return false;
        fFormat = fClip->Format();
        fHasFirst = read(fFirst);
        return true;
    }
    /// Whether there is not one picture, and nothing wrong with the segments.
    bool IsEmpty() const { return !fHasFirst && fProblem.empty(); }
    const tnMediaRecord& Format() const override { return fFormat; }
    double StartSeconds() const override { return 0; }
    double HeaderSeconds() const override {
        const Stretch& last = fStretches.back();
        return ReplaySeconds(last.at + last.to - last.from);
    }
    bool Next(ClipFrame& frame) override {
        if (!std::exchange(fHasFirst, false)) return read(frame);
        frame = std::exchange(fFirst, {});
        return true;
    }
    std::string Problem() const override { return fProblem; }

private:
    bool read(ClipFrame& frame) {
        while (fClip) {
            if (fClip->Next(frame)) {
                if (place(frame)) return true;
                continue;
            }
            const std::string problem = fClip->Problem();
            if (!problem.empty()) {
                fProblem = told_of(*fStretch.file, problem);
                return false;
            }
            if (!open_next(fProblem)) return false;
        }
        return false;
    }
    bool open_next(std::string& error) {
        fClip.reset();
        if (fIndex == fStretches.size()) return false;
        fStretch = fStretches[fIndex++];
        fClip = ClipVideo::Open(fStretch.file->Path(), fFormat.fWidth.AsInt32(0),
                                fFormat.fHeight.AsInt32(0), error);
        error = with_name(error, *fStretch.file);
        return fClip != nullptr;
    }
    /// Whether the picture belongs to the movie; half a frame decides at the ends.
    bool place(ClipFrame& frame) const {
        const long long scale = fFormat.AsInt64('tmsc', 1);
        const auto ticks = [scale](long long time) {
            return av_rescale(time, scale, kReplayUnitsPerSecond);
        };
        const long long own = fClip->Format().AsInt64('tmsc', 1);
        frame.time = av_rescale(frame.time, scale, own);
        frame.duration = av_rescale(frame.duration, scale, own);
        const long long time = ticks(fStretch.file->Piece().start) + frame.time;
        const long long half = frame.duration / 2;
        if (time + half < ticks(fStretch.from) || time + half >= ticks(fStretch.to)) return false;
        // The same shift for all stretches that meet, so that no rounding comes between them.
        frame.time = std::max(0LL, time - ticks(fStretch.from - fStretch.at));
        return true;
    }

    const std::vector<Stretch> fStretches;
    std::size_t fIndex = 0;
    Stretch fStretch;
    std::string fProblem;
    bool fHasFirst = false;  // read, and not yet given
    ClipFrame fFirst;
    std::unique_ptr<ClipVideo> fClip;
    tnMediaRecord fFormat{TN_MEDIA_VIDEO};
};

/// Their sound, each stretch exactly as long as its pictures.
class StretchSound final : public ClipAudio {
public:
    explicit StretchSound(std::vector<Stretch> stretches) : fStretches(std::move(stretches)) {}

    /// False with an empty line for a recording without sound.
    bool Open(std::string& error) { return open_next(error); }
    const tnMediaRecord& Format() const override { return fFormat; }
    int SampleRate() const override { return fFormat.fSampleRate.AsInt32(0); }
    int Channels() const override { return fFormat.fChannels.AsInt32(0); }
    void StartAt(double) override {}
    bool Next(std::vector<short>& pcm) override {
        const auto channels = static_cast<std::size_t>(Channels());
        while (fLeft <= 0) {
            std::string error;
            if (!open_next(error)) return false;
            note(error);
        }
        if (!fClip || !fClip->Next(pcm)) {
            if (fClip && !fClip->Problem().empty()) {
                note(told_of(*fStretches[fIndex - 1].file, "its sound " + fClip->Problem()));
            }
            fClip.reset();
            pcm.assign(static_cast<std::size_t>(fLeft) * channels, 0);
        }
        auto frames = static_cast<long long>(pcm.size() / channels);
        const long long skipped = std::min(fSkip, frames);
        pcm.erase(pcm.begin(), pcm.begin() + skipped * static_cast<long long>(channels));
        fSkip -= skipped;
        frames = std::min(frames - skipped, fLeft);
        pcm.resize(static_cast<std::size_t>(frames) * channels);
        fLeft -= frames;
        return true;
    }
    std::string Problem() const override { return fProblem; }

private:
    /// Keeps the first line; the sound goes on, in silence.
    void note(const std::string& problem) {
        if (fProblem.empty()) fProblem = problem;
    }
    bool open_next(std::string& error) {
        if (fIndex == fStretches.size()) return false;
        const Stretch& stretch = fStretches[fIndex++];
        fClip = ClipAudio::Open(stretch.file->Path(), error);
        error = with_name(error, *stretch.file);
        if (fIndex == 1) {
            if (!fClip) return false;
            fFormat = fClip->Format();
        }
        // A segment whose sound does not go on as the first one's is silent, and as long.
        if (!fClip || fClip->SampleRate() != SampleRate() || fClip->Channels() != Channels()) {
            fClip.reset();
        }
        const auto frames = [this](long long time) {
            return av_rescale(time, SampleRate(), kReplayUnitsPerSecond);
        };
        fSkip = frames(stretch.from - stretch.file->Piece().start);
        fLeft = frames(stretch.at + stretch.to - stretch.from) - frames(stretch.at);
        if (fClip) fClip->StartAt(0);
        return true;
    }

    const std::vector<Stretch> fStretches;
    std::size_t fIndex = 0;
    std::string fProblem;
    std::unique_ptr<ClipAudio> fClip;
    tnMediaRecord fFormat{TN_MEDIA_AUDIO};
    long long fSkip = 0;  // frames of the segment before its stretch
    long long fLeft = 0;  // frames of its stretch
};

/// What stands in a movie that has come as far as `time`.
void tell_written(const std::vector<Stretch>& stretches, long long time, ReplayCutResult& result) {
    result.from = stretches.front().from;
    result.to = result.from;
    result.segments = 0;
    for (const Stretch& stretch : stretches) {
        if (stretch.at >= time) break;
        result.to = std::min(stretch.to, stretch.from + time - stretch.at);
        ++result.segments;
    }
    result.gaps = std::max(0LL, result.to - result.from - time);
}

int kilobits_of(const std::vector<Stretch>& stretches) {
    double bits = 0;
    double seconds = 0;
    for (const Stretch& stretch : stretches) {
        const ReplayPiece& piece = stretch.file->Piece();
        bits += static_cast<double>(piece.bytes) * 8;
        seconds += ReplaySeconds(piece.stop - piece.start);
    }
    return std::max(kLeastKilobits, static_cast<int>(kMoreThanRecorded * bits / seconds / 1000));
}

}  // namespace

bool EncodeReplay(const std::vector<SegmentFile>& files, const ReplayCutWish& wish,
                  const std::atomic<bool>& stop, const std::function<void(double)>& progress,
                  ReplayCutResult& result, std::string& error) {
    const std::vector<Stretch> stretches = stretches_of(files, wish);
    auto pictures = std::make_unique<StretchPictures>(stretches);
    if (!pictures->Open(error)) return false;
    // Before a file takes the place of another one.
    if (pictures->IsEmpty() && !stop) {
        error = fmt::format("no picture begins between {:.3f} and {:.3f} s; make the cut longer",
                            ReplaySeconds(wish.in), ReplaySeconds(wish.out));
        return false;
    }
    auto sound = std::make_unique<StretchSound>(stretches);
    if (!sound->Open(error)) {
        if (!error.empty()) return false;
        sound.reset();
    }
    const double seconds = pictures->HeaderSeconds();
    RecordOptions options;
    options.output = wish.output;
    options.bitRate = kilobits_of(stretches);
    Recorder recorder(options, std::move(pictures), std::move(sound));
    bool written = recorder.Prepare();
    if (written) {
        std::atomic<bool> ended{false};
        std::thread encoding([&] {
            written = recorder.Run(stop);
            ended = true;
        });
        while (!ended) {
            progress(recorder.Figures().seconds / seconds);
            zThread::MicroSleep(kProgressUs);
        }
        encoding.join();
    }
    error = recorder.Error();
    result.stopped = stop && !recorder.CameToEnd();
    // The ends of a whole cut are those that were asked for; a picture may stand over either.
    const double reached = result.stopped ? recorder.Figures().seconds.load() : seconds;
    tell_written(stretches, std::llround(reached * kReplayUnitsPerSecond), result);
    result.frames = recorder.Figures().frames;
    result.encoded = true;
    return written;
}
