#include "SyncMeter.h"

#include <array>
#include <cstddef>
#include <fmt/format.h>
#include <memory>
#include <utility>

#include "spar/zObserverHandler.h"
#include "spar/zRecord.h"
#include "spar/zThread.h"
#include "tarn/sync/tnSync.h"

#include "../ClipAudio.h"
#include "../ClipVideo.h"
#include "LastingTones.h"
#include "SyncFigures.h"

namespace {

constexpr double kMsPerSecond = 1000;

// The detectors' line begins this much before the first picture, for sound that leads it and
// because 0 means "never" to them.
constexpr double kLeadSeconds = 1;

// A block hears a tone that fills it to about seven tenths, and tells of it at its end. So a tone
// is told of between 0.7 and 1.7 blocks after it began: how late exactly is chance. Four detectors
// whose blocks are a quarter apart leave an eighth of a block to chance.
constexpr double kLateBlocks = 1.2;
constexpr int kDetectors = 4;
constexpr int kQuartersPerCall = 2 * kDetectors;  // whole blocks, so that nothing shifts their line
constexpr std::size_t kLeastReports = 2;          // of the detectors, for a pair

/// A tnSync and what it reports.
class Detector final : public zObserverHandler {
public:
    tnSync& Sync() { return *fSync; }
    void Receive(const zNotification& notification) override {
        fDifferences.push_back(notification.fData->AsDouble("diff_ms", 0));
    }
    std::vector<double> Take() { return std::exchange(fDifferences, {}); }

private:
    struct Release {
        void operator()(tnSync* sync) const { sync->Release(); }
    };

    std::vector<double> fDifferences;
    const std::unique_ptr<tnSync, Release> fSync{new tnSync(ObserverID())};
};

using Detectors = std::array<Detector, kDetectors>;

/// The sound of a clip in stereo, silent but for the tones that last, handed to the detectors as
/// the pictures' time goes on.
class ToneSound {
public:
    /// Looks the whole sound through, unless `stop` says so. False with one line in `error`.
    bool Open(const std::string& path, double origin, const std::function<bool()>& stop,
              std::string& error);

    int SampleRate() const { return fClip->SampleRate(); }
    std::size_t Tones() const { return fSpans.size(); }
    /// All calls that end by `seconds` of the detectors' line.
    void FeedUntil(double seconds, Detectors& detectors);

private:
    int quarter() const { return tnSyncDTMF::BlockSize(SampleRate()) / kDetectors; }
    void add_quarter();
    short next_left();
    void call(Detector& detector);
    bool is_tone(long long position);

    std::unique_ptr<ClipAudio> fClip;
    std::vector<ToneSpan> fSpans;
    std::size_t fSpan = 0;
    std::vector<short> fDecoded;
    std::size_t fTaken = 0;  // samples of fDecoded
    bool fOver = false;
    std::vector<short> fStereo;  // the last quarters
    long long fQuarters = 0;     // so far
};

std::unique_ptr<ClipAudio> open_sound(const std::string& path, double origin, std::string& error) {
    std::unique_ptr<ClipAudio> clip = ClipAudio::Open(path, error);
    if (!clip && error.empty()) error = fmt::format("'{}': has no sound to measure", path);
    if (clip) clip->StartAt(origin);
    return clip;
}

bool ToneSound::Open(const std::string& path, double origin, const std::function<bool()>& stop,
                     std::string& error) {
    const std::unique_ptr<ClipAudio> whole = open_sound(path, origin, error);
    if (!whole) return false;
    if (tnSyncDTMF::BlockSize(whole->SampleRate()) == 0) {
        error =
            fmt::format("'{}': sound of {} Hz holds no tone that can be heard; 8000 is the least",
                        path, whole->SampleRate());
        return false;
    }
    LastingTones tones(whole->SampleRate());
    while (!stop() && whole->Next(fDecoded)) {
        const auto channels = static_cast<std::size_t>(whole->Channels());
        tones.Add(fDecoded.data(), static_cast<long long>(fDecoded.size() / channels),
                  whole->Channels());
    }
    fSpans = tones.Spans();
    fDecoded.clear();
    fClip = open_sound(path, origin, error);
    return fClip != nullptr;
}

void ToneSound::FeedUntil(double seconds, Detectors& detectors) {
    const double end = seconds * SampleRate();
    while (static_cast<double>((fQuarters + 1) * quarter()) <= end) {
        add_quarter();
        // Each has its call when all of it is there, a quarter after the one before.
        const long long turn = fQuarters % kQuartersPerCall;
        if (turn < kDetectors && fQuarters >= kQuartersPerCall) {
            call(detectors[static_cast<std::size_t>(turn)]);
        }
    }
}

void ToneSound::call(Detector& detector) {
    const int rate = SampleRate();
    const long long begin = (fQuarters - kQuartersPerCall) * quarter();
    const double time = static_cast<double>(begin) * kMsPerSecond / rate;
    detector.Sync().AudioStereoPCM16(time, rate, fStereo.data(), kQuartersPerCall * quarter());
}

void ToneSound::add_quarter() {
    if (fQuarters >= kQuartersPerCall) {
        fStereo.erase(fStereo.begin(),
                      fStereo.begin() + static_cast<std::ptrdiff_t>(quarter()) * 2);
    }
    for (int frame = 0; frame < quarter(); ++frame) {
        const short left = next_left();
        fStereo.push_back(is_tone(fQuarters * quarter() + frame) ? left : short{0});
        fStereo.push_back(0);
    }
    ++fQuarters;
}

/// Silence once the sound is over.
short ToneSound::next_left() {
    if (fTaken == fDecoded.size() && !fOver) {
        fTaken = 0;
        fOver = !fClip->Next(fDecoded);
    }
    if (fOver) return 0;
    const short left = fDecoded[fTaken];
    fTaken += static_cast<std::size_t>(fClip->Channels());
    return left;
}

bool ToneSound::is_tone(long long position) {
    while (fSpan < fSpans.size() && position >= fSpans[fSpan].end) ++fSpan;
    return fSpan < fSpans.size() && position >= fSpans[fSpan].begin;
}

/// One measurement on its way.
class Meter {
public:
    explicit Meter(SyncMeasurement& measurement) : fMeasurement(measurement) {}

    bool Open(const std::string& path, const std::function<bool(double)>& progress,
              std::string& error);
    void Run(const std::function<bool(double)>& progress);

private:
    double seconds_of(long long ticks) const { return static_cast<double>(ticks) * fTick; }
    void see(const ClipFrame& frame);
    void collect();
    void conclude_flash();

    SyncMeasurement& fMeasurement;
    std::unique_ptr<ClipVideo> fVideo;
    ToneSound fSound;
    ClipFrame fFrame;  // the next one
    double fTick = 1;  // seconds
    int fWidth = 0;
    int fHeight = 0;

    Detectors fDetectors;
    tnSyncVideo fFlashes;
    bool fFlashOn = false;

    // of the last flash that began
    double fFlashSeconds = 0;  // from the first picture on
    std::vector<double> fDifferences;
};

bool Meter::Open(const std::string& path, const std::function<bool(double)>& progress,
                 std::string& error) {
    fVideo = ClipVideo::Open(path, 0, 0, error, '2vuy');
    if (!fVideo) return false;
    if (!fVideo->Next(fFrame)) {
        error = fmt::format("'{}': none of its pictures can be decoded; is the clip whole?", path);
        return false;
    }
    const auto stop = [&] { return fMeasurement.stopped = progress(0); };
    if (!fSound.Open(path, fVideo->StartSeconds() - kLeadSeconds, stop, error)) return false;
    const tnMediaRecord& format = fVideo->Format();
    fTick = 1.0 / static_cast<double>(format.AsInt64('tmsc', 1));
    fWidth = format.fWidth.AsInt32(0);
    fHeight = format.fHeight.AsInt32(0);
    fMeasurement.frameMs = seconds_of(format.AsInt64('dura', 0)) * kMsPerSecond;
    const int rate = fSound.SampleRate();
    fMeasurement.blockMs = tnSyncDTMF::BlockSize(rate) * kMsPerSecond / rate;
    fMeasurement.tones = static_cast<int>(fSound.Tones());
    return true;
}

void Meter::Run(const std::function<bool(double)>& progress) {
    if (fMeasurement.stopped) return;
    const double whole = fVideo->HeaderSeconds();
    do {
        fSound.FeedUntil(seconds_of(fFrame.time) + kLeadSeconds, fDetectors);
        see(fFrame);
        fMeasurement.seconds = seconds_of(fFrame.time + fFrame.duration);
        fMeasurement.stopped = progress(whole > 0 ? fMeasurement.seconds / whole : 0);
    } while (!fMeasurement.stopped && fVideo->Next(fFrame));
    // A tone behind the last picture may still belong to a flash: any frame has it looked at.
    fSound.FeedUntil(fMeasurement.seconds + 2 * kLeadSeconds, fDetectors);
    for (Detector& detector : fDetectors) detector.Sync().VideoFrame(0, 0, 0, 0, 0, nullptr, 0);
    collect();
    conclude_flash();
}

void Meter::see(const ClipFrame& frame) {
    const double seconds = seconds_of(frame.time);
    const double time = (seconds + kLeadSeconds) * kMsPerSecond;
    const unsigned char* const pixels = frame.pixels->GetData();
    const int stride = frame.pixels->GetStride();
    const bool on = fFlashes.FrameSyncOn(time, fWidth, fHeight, '2vuy', stride, pixels, 0);
    if (on && !fFlashOn) {
        conclude_flash();
        ++fMeasurement.flashes;
        fFlashSeconds = seconds;
    }
    fFlashOn = on;
    for (Detector& detector : fDetectors) {
        detector.Sync().VideoFrame(time, fWidth, fHeight, '2vuy', stride, pixels, 0);
    }
    collect();
}

void Meter::collect() {
    zThread::DrainMainQueue();
    for (Detector& detector : fDetectors) {
        for (const double difference : detector.Take()) fDifferences.push_back(difference);
    }
}

/// The detectors speak of a flash when each has heard its tone, so the last word comes with the
/// next flash.
void Meter::conclude_flash() {
    if (fDifferences.size() >= kLeastReports) {
        const double late = kLateBlocks * fMeasurement.blockMs;
        fMeasurement.pairs.push_back({fFlashSeconds, MedianOf(fDifferences) + late});
    }
    fDifferences.clear();
}

}  // namespace

bool MeasureSync(const std::string& path, const std::function<bool(double)>& progress,
                 SyncMeasurement& measurement, std::string& error) {
    measurement = {};
    Meter meter(measurement);
    if (!meter.Open(path, progress, error)) return false;
    meter.Run(progress);
    return true;
}
