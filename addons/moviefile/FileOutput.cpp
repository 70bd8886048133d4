#include "addons/moviefile/FileOutput.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "spar/trace.h"
#include "tarn/writers/writerErrors.h"

#include "addons/moviefile/RawAudioCompressor.h"
#include "addons/moviefile/RawVideoCompressor.h"

using namespace Quillon::Orb;

namespace {

/// Frames are large: this many are a second of the usual rates.
constexpr MovieOutput::Room kRoom = {96, std::size_t{192} << 20, true};
constexpr double kMsPerSecond = 1000.0;

/// One frame on its way into one file.
class Frame final : public tnVideoCompressor2::EncodedBuffer {
public:
    Frame(const RawVideoBuffer& raw, long long startTicks) : fRaw(raw), fStartTicks(startTicks) {}

    void SetBytesWritten(int) override {}
    EncodedBufferTiming GetTiming() override {
        return {1, fRaw.Time() - fStartTicks, 1, static_cast<long long>(fRaw.Duration())};
    }
    CPixelDataReference* GetPixelData() override { return fRaw.Pixels(); }

private:
    const RawVideoBuffer& fRaw;
    const long long fStartTicks;
};

class Block final : public tnAudioCompressor2::EncodedBuffer {
public:
    void SetBytesWritten(int) override {}
};

}  // namespace

FileOutput::FileOutput(unsigned int containerType, Settings settings, const tnMediaRecord& pictures,
                       const tnMediaRecord& sound)
    : MovieOutput(std::move(settings), kRoom),
      fContainerType(containerType),
      fPictures(pictures),
      fSound(sound),
      fWriter(new tnWriteORB2()) {}

FileOutput::~FileOutput() {
    fWriter->Release();
}

int FileOutput::Open() {
    return fWriter->Open(fSettings.where.c_str(), fContainerType, fSettings.moovRate,
                         fSettings.expectedSeconds);
}

long long FileOutput::BytesWritten(bool ofPictures) const {
    return ofPictures ? fPictureBytes.load() : fSoundBytes.load();
}

bool FileOutput::takes_picture(tnVideoCompressor::EncodedBuffer& buffer) {
    return dynamic_cast<RawVideoBuffer*>(&buffer) != nullptr;
}

bool FileOutput::takes_sound(tnAudioCompressor::EncodedBuffer& buffer) {
    return dynamic_cast<RawAudioBuffer*>(&buffer) != nullptr;
}

int FileOutput::begin_file(const MovieStart& start) {
    fStartTicks = start.Ticks();
    fSoundStartMs = start.TimeMs() - start.OnLine(0);
    fPictureLine.BeginAt(start.TimeMs());
    fSoundLine.BeginAt(fSoundStartMs);
    if (start.HasPictures()) {
        const auto& first = static_cast<RawVideoBuffer&>(*start.Pictures().front().picture);
        fTicksPerMs = start.Pictures().front().TicksPerMs();
        fWriter->SetSourceVideoFormat(first.Format());
        fWriter->SetEncodedVideoFormat(fPictures);
    }
    if (start.HasSound() && start.Sound().front().format) {
        const tnMediaRecord& source = start.Sound().front().format->input;
        fSoundRate = source.fSampleRate.AsInt32(0);
        fWriter->SetSourceAudioFormat(source);
        fWriter->SetEncodedAudioFormat(fSound);
    }
    return fWriter->CompleteInitialization();
}

int FileOutput::write_picture(const MediaItem& item) {
    const MoviePlace sound = fSoundLine.Place();
    const double cutMs =
        fPictureLine.Follow(item.decodeMs, fSoundLine.HasBegun() ? &sound : nullptr);
    Frame frame(static_cast<RawVideoBuffer&>(*item.picture),
                fStartTicks + std::llround(cutMs * fTicksPerMs));
    const int code = fWriter->WriteVideo(frame);
    count_pictures();
    if (code == 0 || !bear(fLostPictures, code)) return code;
    return kLeftOut;
}

/// A picture of another shape, or one for which there was no memory, is a hole in a file that goes
/// on; one that takes nothing more has the same code for each.
bool FileOutput::bear(FailureRow& row, int code) {
    if (fWriter->HasFailed()) return false;
    const bool isOfOne = code == kWriterConversion || code == kWriterCopy ||
                         code == kWriterVideoSample || code == kWriterAudioSample;
    if (!isOfOne) return false;
    if (!row.HasBegun()) {
        zTrace("'{}': the file lost a picture or a block of sound with {}; it goes on\n",
               fSettings.where, code);
    }
    return row.Bear(code);
}

int FileOutput::write_sound(const MediaItem& item) {
    tnAudioCompressor::EncodedBuffer& sound = *item.sound;
    const long long frames = sound.SampleCount(0);
    if (frames == 0) return 0;
    const double early = fSoundLine.HasBegun() ? 0 : std::max(fSoundStartMs - item.startMs, 0.0);
    long long skip = frames_in(early);
    if (skip >= frames) return 0;
    const long long frameBytes = sound.PacketSize(0) / frames;
    const double start = item.startMs + early;
    const double lasts = kMsPerSecond * static_cast<double>(frames - skip) / fSoundRate;
    const MoviePlace pictures = fPictureLine.Place();
    const double missing =
        fSoundLine.MissingBefore(start, fSettings.hasPictures ? &pictures : nullptr);
    fMissingFrames += frames_in(missing);
    const int code = write_silence(frameBytes);
    if (code != 0) return code;
    fSoundLine.Follow(start, lasts, missing);
    skip += frames_in(fSoundLine.TakeBack(lasts));
    if (skip >= frames) return 0;
    return write_pieces(sound.PacketData(0) + skip * frameBytes, frames - skip, frameBytes);
}

long long FileOutput::frames_in(double milliseconds) const {
    return std::llround(milliseconds * fSoundRate / kMsPerSecond);
}

/// Converters take half a second at once; hosts that had to catch up write more.
int FileOutput::write_pieces(const unsigned char* data, long long frames, long long frameBytes) {
    const long long most = std::max(frames_in(kMsPerSecond / 4), 1LL);
    int code = 0;
    for (long long piece = 0; code == 0 && frames > 0; frames -= piece) {
        piece = std::min(frames, most);
        code = write_block(data, piece, frameBytes);
        data += piece * frameBytes;
        if (code != kLeftOut) continue;
        fMissingFrames += piece;
        code = 0;
    }
    return code;
}

/// Or kLeftOut: the file goes on without this one.
int FileOutput::write_block(const unsigned char* data, long long frames, long long frameBytes) {
    Block block;
    const int code =
        fWriter->WriteAudioPacket(&block, 0, 0, data, static_cast<int>(frames * frameBytes));
    count_sound();
    if (code == kWriterAudioConversion) return bear_unconverted(frames);
    fUnconverted = 0;
    return code == 0 || !bear(fLostSound, code) ? code : kLeftOut;
}

/// A change of rate gives nothing while it fills, and a piece that is lost is the only one. What
/// gave nothing for a second gives nothing ever.
int FileOutput::bear_unconverted(long long frames) {
    if (fUnconverted >= fSoundRate) return kWriterAudioConversion;
    fUnconverted += static_cast<double>(frames);
    if (std::exchange(fToldOfUnconverted, true)) return 0;
    zTrace(
        "'{}': {} frames of sound gave none for the file; a change of rate keeps its first ones "
        "for the next\n",
        fSettings.where, frames);
    return 0;
}

/// What the file lacks before the next piece; what of it is lost as well stays missing. Zero is
/// silence in integers and floats alike, and blocks stay short of what a converter takes.
int FileOutput::write_silence(long long frameBytes) {
    constexpr long long kLongestBlock = 4096;  // a quarter of a second at most, at any rate
    const long long block = std::clamp(std::llround(fSoundRate / 4), 1LL, kLongestBlock);
    const std::vector<unsigned char> zeros(fMissingFrames > 0 ? block * frameBytes : 0);
    while (fMissingFrames > 0) {
        const long long frames = std::min(fMissingFrames, block);
        const int code = write_block(zeros.data(), frames, frameBytes);
        if (code != 0) return code == kLeftOut ? 0 : code;
        fMissingFrames -= frames;
    }
    return 0;
}

int FileOutput::finish_file() {
    fWriter->Close();
    count_pictures();
    count_sound();
    if (fWriter->HasFailed()) return kWriterNoFile;
    return fLostPictures.Last() != 0 ? fLostPictures.Last() : fLostSound.Last();
}

void FileOutput::count_pictures() {
    fPictureBytes.store(fWriter->BytesWritten(true));
    fLostPictures.GrowTo(fPictureBytes.load());
}

void FileOutput::count_sound() {
    fSoundBytes.store(fWriter->BytesWritten(false));
    fLostSound.GrowTo(fSoundBytes.load());
}
