#include "LiveSource.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "spar/zThread.h"
#include "spar/zTime.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/movies/tnStreamBuffer.h"
#include "tarn/movies/tnStreamBufferGroup.h"

#include "LivePictures.h"
#include "LivePoints.h"
#include "LiveSound.h"

namespace {

constexpr int kBuffers = 4;
constexpr unsigned int kBitsPerByte = 8;
constexpr unsigned int kLookAgainUs = 100;
constexpr double kMicro = 1e6;
// The clock produces its first two ticks at the start.
constexpr long long kTicksAtStart = 2;

// Numbers at the filter manager: two a source, and none is used twice in a process.
std::atomic<int> gNextNumber{1};

long long block_frames(const tnMediaRecord& sound) {
    return sound.fSampleRate.AsInt32(0) / kSoundBlocksPerSecond;
}

/// What a source counts on from. The two ticks at the start come so close that a thread which has
/// just woken often sees the second alone: then the first was lost, and sources that began together
/// keep together. One that joins a running clock has missed nothing.
long long tick_before_first(long long tick) {
    return tick <= kTicksAtStart ? 0 : tick - 1;
}

/// The track with everything that the source decides.
tnMediaRecord track_of(const tnMediaRecord& format, const tnMediaRecord& track, int number) {
    tnMediaRecord merged(track);
    for (zVariable tnMediaRecord::*member :
         {&tnMediaRecord::fType, &tnMediaRecord::fWidth, &tnMediaRecord::fHeight,
          &tnMediaRecord::fColourspace, &tnMediaRecord::fFieldOrder, &tnMediaRecord::fColorSpace,
          &tnMediaRecord::fNominalRange, &tnMediaRecord::fBytesPerRow, &tnMediaRecord::fAudioFormat,
          &tnMediaRecord::fBitsPerSample, &tnMediaRecord::fBusses, &tnMediaRecord::fChannels,
          &tnMediaRecord::fSampleRate}) {
        merged.*member = format.*member;
    }
    for (const unsigned long long id : {'tmsc', 'dura', 'tnSQ', 'tnSH'}) {
        if (format.ExistsID(id)) merged.SetInt64(id, format.AsInt64(id, 0));
    }
    if (format.ExistsID('mfps')) merged.SetFloat('mfps', format.AsFloat('mfps', 0));
    merged.SetBool('momp', true);
    merged.SetInt32("source_id", number);
    return merged;
}

}  // namespace

std::unique_ptr<LiveSource> LiveSource::Open(const ShowSource& source, std::string& error) {
    std::unique_ptr<LivePictures> pictures = LivePictures::Open(source, error);
    if (!pictures) {
        error = fmt::format("source '{}': {}", source.name, error);
        return nullptr;
    }
    std::unique_ptr<LiveSound> sound = LiveSound::Open(source, error);
    if (!error.empty()) {
        error = fmt::format("source '{}': {}", source.name, error);
        return nullptr;
    }
    return std::make_unique<LiveSource>(source, std::move(pictures), std::move(sound));
}

LiveSource::LiveSource(const ShowSource& source, std::unique_ptr<LivePictures> pictures,
                       std::unique_ptr<LiveSound> sound)
    : fSource(source),
      fNumber(gNextNumber.fetch_add(2)),
      fPictures(std::move(pictures)),
      fSound(std::move(sound)),
      fVideoFormat(fPictures->Format()),
      fBuffers(tnStreamBufferGroup::CreateForFormat(fVideoFormat, kBuffers)) {
    fFramesPerSecond = static_cast<double>(fVideoFormat.AsInt64('tmsc', 25)) /
                       static_cast<double>(std::max(1LL, fVideoFormat.AsInt64('dura', 1)));
    fTicksPerSecond = fFramesPerSecond;
    if (fSound) {
        const tnMediaRecord& format = fSound->Format();
        fBlock.resize(static_cast<std::size_t>(block_frames(format) * format.fChannels.AsInt32(2)));
    }
}

LiveSource::~LiveSource() {
    LiveSource::Stop();
}

const tnMediaRecord* LiveSource::AudioFormat() const {
    return fSound ? &fSound->Format() : nullptr;
}

tnMediaRecord LiveSource::VideoTrack(const tnMediaRecord& track) const {
    return track_of(fVideoFormat, track, VideoNumber());
}

tnMediaRecord LiveSource::AudioTrack(const tnMediaRecord& track) const {
    return track_of(fSound->Format(), track, AudioNumber());
}

double LiveSource::Seconds() const {
    return static_cast<double>(fFramesPassed.load()) / fFramesPerSecond;
}

void LiveSource::BeginUse(bool video, bool audio) {
    const std::shared_ptr<tnFilterManager> manager = tnFilterManager::Default();
    // Whenever a source's last output left, the manager has forgotten what is written there.
    if (video) manager->SetInputFormat(VideoNumber(), fVideoFormat);
    if (audio && fSound) manager->SetInputFormat(AudioNumber(), fSound->Format());
    use(video ? 1 : 0, audio ? 1 : 0);
}

void LiveSource::EndUse(bool video, bool audio) {
    use(video ? -1 : 0, audio ? -1 : 0);
}

void LiveSource::use(int video, int audio) {
    ++fWaitingForGate;
    {
        const zMutexLock lock(fGate);
        fVideoUsers += video;
        fAudioUsers += audio;
    }
    --fWaitingForGate;
}

// A source that is behind writes frame upon frame, and the lock alone would never be free for long
// enough to wake who waits for it.
void LiveSource::let_control_in() const {
    while (fWaitingForGate > 0 && !fEnding) zThread::MicroSleep(kLookAgainUs);
}

void LiveSource::Stop() {
    fEnding = true;
    tnClockWatcher::Stop();
    fEnding = false;
}

void LiveSource::ReceiveTime(const tn_time_rec& time) {
    if (fFigures.ended) return;
    if (fLastTick < 0) fLastTick = tick_before_first(time.tick_count);
    note_tick(time);
    write_frames_until(fNextFrame + time.tick_count - fLastTick);
    fLastTick = time.tick_count;
}

void LiveSource::note_tick(const tn_time_rec& time) {
    ++fFigures.ticks;
    fFigures.lost += time.tick_count - fLastTick - 1;
    if (time.tick_count <= kTicksAtStart) return;
    const long long late = zTime::MicroNow() - time.nominal_time;
    if (static_cast<double>(late) >= kMicro / fTicksPerSecond / 2) ++fFigures.late;
    fFigures.worstLateUs = std::max(fFigures.worstLateUs.load(), late);
}

void LiveSource::write_frames_until(long long frame) {
    // The ticks at the start come together by the clock's nature, whatever the rate.
    const auto most = std::max(static_cast<long long>(fSource.catchUp * fFramesPerSecond) + 1,
                               kTicksAtStart - fNextFrame);
    while (fNextFrame < frame && !fEnding && !fFigures.ended) {
        const bool skip = frame - fNextFrame > most;
        if (!(skip ? skip_frame() : write_frame())) fFigures.ended = true;
        let_control_in();
    }
}

bool LiveSource::skip_frame() {
    if (!next_picture(nullptr)) return false;
    ++fNextFrame;
    ++fFigures.skipped;
    fFramesPassed = fNextFrame;
    const zMutexLock lock(fGate);
    write_sound_until(Seconds());
    return true;
}

bool LiveSource::next_picture(tnStreamBuffer* buffer) {
    if (!fPictures->Next(buffer)) return false;
    if (fSound && fPictures->RoundStart() > fRoundStart) {
        fRoundStart = fPictures->RoundStart();
        fSound->BeginRound(static_cast<double>(fRoundStart) / fFramesPerSecond,
                           fPictures->StartSeconds());
    }
    return true;
}

// Sound first: a movie starts at a picture that has sound beside it, which is then the first one.
bool LiveSource::write_frame() {
    tnStreamBuffer* buffer = nullptr;
    if (fBuffers->GetBuffer(&buffer, true) != 0) return skip_frame();
    buffer->AddWritingRef();
    const bool more = next_picture(buffer);
    if (more) {
        const long long duration = fVideoFormat.AsInt64('dura', 1);
        buffer->SetDurationForData(duration);
        LiveAtPoint(LivePoint::kRenderer);
        const zMutexLock lock(fGate);
        const auto syncTime =
            static_cast<long long>(1000.0 * static_cast<double>(fNextFrame) / fFramesPerSecond);
        fFramesPassed = fNextFrame + 1;
        write_sound_until(Seconds());
        if (fVideoUsers > 0) {
            tnFilterManager::Default()->WriteVideoSample(
                VideoNumber(), syncTime, fNextFrame * duration, *buffer, fVideoFormat);
        }
        ++fNextFrame;
        ++fFigures.frames;
    }
    buffer->ReleaseWriting();
    return more;
}

void LiveSource::write_sound_until(double seconds) {
    if (!fSound) return;
    const tnMediaRecord& format = fSound->Format();
    const long long frames = block_frames(format);
    const double rate = format.fSampleRate.AsInt32(48000);
    for (;; ++fBlocks) {
        const long long position = fBlocks * frames;
        if (static_cast<double>(position) >= seconds * rate) return;
        fSound->Next(fBlock.data(), frames);
        if (fAudioUsers == 0) continue;
        const auto time = static_cast<long long>(1000.0 * static_cast<double>(position) / rate);
        const auto bits = static_cast<unsigned int>(fBlock.size() * sizeof(short)) * kBitsPerByte;
        tnFilterManager::Default()->WriteAudioSamples(AudioNumber(), time, fBlock.data(), bits,
                                                      position, 0, 0);
    }
}
