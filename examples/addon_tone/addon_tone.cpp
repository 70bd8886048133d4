// The smallest add-on: the format "Tone", a sound file that holds a 1 kHz line-up tone for as long
// as the source sounds, whatever it plays. It has one of everything that an add-on may bring:
//
//   ToneFilter   an encoder, registered with the filter manager under a codec name
//   ToneMovie    a movie with one stream, which asks for that encoder
//   ToneFile     the sink that takes what the encoder gives, and a thread that writes it
//   ToneFormat   what the host finds, by the interface name "tnXIMovieFile"

#include <atomic>
#include <cmath>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "spar/jigAddon.h"
#include "spar/zFileStream.h"
#include "spar/zMutex.h"
#include "spar/zThread.h"
#include "spar/zThreadMain.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/movies/tnBaseWriteMovie.h"
#include "tarn/movies/tnEncodedSink.h"
#include "tarn/movies/tnOutputStream.h"
#include "tarn/movies/tnSharedEncoders.h"
#include "tarn/movies/tnXIMovieFile.h"

namespace {

constexpr const char* kCodec = "Line-up tone";

/// One packet of tone, 16-bit stereo.
class TonePacket final : public tnAudioCompressor::EncodedBuffer {
public:
    TonePacket(std::vector<short> samples, double timeMs, double durationMs)
        : fSamples(std::move(samples)), fTimeMs(timeMs), fDurationMs(durationMs) {}
    int CodecType() const override { return 0; }
    int PacketCount() const override { return 1; }
    unsigned int PacketSize(int) override {
        return static_cast<unsigned int>(fSamples.size() * sizeof(short));
    }
    const unsigned char* PacketData(int) override {
        return reinterpret_cast<const unsigned char*>(fSamples.data());
    }
    double Timestamp(int) const override { return fTimeMs; }
    double DurationMilli(int) const override { return fDurationMs; }
    unsigned int SampleCount(int) override {
        return static_cast<unsigned int>(fSamples.size() / 2);
    }

private:
    const std::vector<short> fSamples;
    const double fTimeMs;
    const double fDurationMs;
};

/// Gives tone where sound comes in.
class ToneFilter final : public tnAudioCompressor {
public:
    const tnMediaRecord& InputFormat() const override { return fInput; }
    const tnMediaRecord& OutputFormat() const override { return fOutput; }
    void SetOutputFormat(const tnMediaRecord& format) override { fOutput = format; }
    int Create(const tnMediaRecord& input, const tnMediaRecord& output) override {
        fInput = input;
        fOutput = output;
        return 0;
    }
    /// The caller releases `*out`.
    int EncodeFrame(EncodedBuffer** out, double timeMs, void*, unsigned int count) override {
        const double rate = fInput.fSampleRate.AsInt32(48000);
        const int frameBytes = fInput.fChannels.AsInt32(2) * fInput.fBitsPerSample.AsInt32(16) / 8;
        std::vector<short> samples(count / static_cast<unsigned int>(frameBytes) * 2);
        for (std::size_t i = 0; i < samples.size(); i += 2) {
            const double phase =
                2 * 3.14159265358979 * 1000 * static_cast<double>(fFrames++) / rate;
            samples[i] = samples[i + 1] = static_cast<short>(3277 * std::sin(phase));  // -20 dB
        }
        const double durationMs = 500.0 * static_cast<double>(samples.size()) / rate;
        *out = new TonePacket(std::move(samples), timeMs, durationMs);
        return 0;
    }
    int FramesPerPacket() const override { return 0; }

private:
    tnMediaRecord fInput;
    tnMediaRecord fOutput;
    long long fFrames = 0;
};

/// A WAV file of unknown length, as pipes write them. Packets come on the thread that writes the
/// source, which must not wait for a disk: a thread of the file's own writes them.
class ToneFile final : public tnEncodedSink, private zThreadMain {
public:
    /// `stream` hears of a failure, until Close.
    ToneFile(const std::string& path, tnOutputStream& stream)
        : fFile(path.c_str(), Z_FILE_WRITE, false), fStream(stream) {}
    ~ToneFile() override { Close(); }
    int Open() {
        static const unsigned char header[] =
            "RIFF\xff\xff\xff\xffWAVEfmt \x10\0\0\0\x01\0\x02\0\x80\xbb\0\0\0\xee\x02\0\x04\0\x10\0"
            "data\xff\xff\xff\xff";
        if (fFile.Open() != 0 || fFile.Write(header, sizeof header - 1) != 0) return kNoPlace;
        fThread.reset(zThread::Factory("tone file", this, 4, 1));
        return fThread ? 0 : kNoPlace;
    }
    /// Writes what waits. Nothing is taken from here on.
    void Close() {
        {
            const zMutexLock lock(fLock);
            fEnding = true;
            fChanged.WakeAll();
        }
        if (!fThread) return;
        fThread->Join();
        fThread.reset();
        const int code = fFile.Close();
        const zMutexLock lock(fLock);
        if (code != 0) fail(kWriteFailed);
    }
    void WriteVideo(std::shared_ptr<tnFilter>,
                    std::shared_ptr<tnVideoCompressor::EncodedBuffer>) override {}
    void WriteAudio(std::shared_ptr<tnFilter>,
                    std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) override {
        const zMutexLock lock(fLock);
        if (fEnding) return;
        if (fPackets.size() == kMostPackets) return fail(kTooSlow);
        fPackets.push_back(std::move(buffer));
        fChanged.WakeAll();
    }

private:
    static constexpr int kNoPlace = -1006;
    static constexpr int kTooSlow = -14;
    static constexpr int kWriteFailed = -1059;
    static constexpr std::size_t kMostPackets = 100;  // some seconds

    int Main(int, const char**) override {
        while (const auto packet = next()) {
            const int code = fFile.Write(packet->PacketData(0), packet->PacketSize(0));
            const zMutexLock lock(fLock);
            if (code == 0) fBytes += packet->PacketSize(0);
            if (code != 0) fail(kWriteFailed);
        }
        return 0;
    }
    /// Null at the end.
    std::shared_ptr<tnAudioCompressor::EncodedBuffer> next() {
        const zMutexLock lock(fLock);
        while (fPackets.empty() && !fEnding) fChanged.Wait(fLock);
        if (fPackets.empty()) return nullptr;
        auto packet = std::move(fPackets.front());
        fPackets.pop_front();
        return packet;
    }
    /// Says so once, and takes nothing more: what stands in the file is kept.
    void fail(int code) SPAR_REQUIRES(fLock) {
        if (fStatus != 0) return;
        fStatus = code;
        fEnding = true;
        fPackets.clear();
        fStream.SetStatus(code, fBytes);
    }

    zFileStream fFile;  // the thread's, once it runs
    tnOutputStream& fStream;
    std::unique_ptr<zThread> fThread;
    zMutex fLock;
    zCondition fChanged;
    std::deque<std::shared_ptr<tnAudioCompressor::EncodedBuffer>> fPackets SPAR_GUARDED_BY(fLock);
    long long fBytes SPAR_GUARDED_BY(fLock) = 0;
    int fStatus SPAR_GUARDED_BY(fLock) = 0;
    bool fEnding SPAR_GUARDED_BY(fLock) = false;
};

class ToneMovie final : public tnBaseWriteMovie {
public:
    ~ToneMovie() override { stop(); }

    int CreateWriteStream(tnMediaRecord& format, tnStream** stream, int) override {
        *stream = nullptr;
        if (format.fType.AsInt32(0) != TN_MEDIA_AUDIO || fStream) return 0;  // no stream, no error
        tnMediaRecord wish(format);
        wish.SetCString('mcon', kCodec);
        const auto sync = std::make_shared<tnOutputStreamSync>();
        fStream = new tnOutputStream(format.AsInt32("source_id", 0), wish, sync);
        sync->AddStream(fStream);
        *stream = fStream;  // the movie's list holds it from now on
        return 0;
    }
    int BeginOutput(const tnOutputAccessor& output, const zRecord*, zRecord&) override {
        if (!fStream) return -1009;
        fFile = std::make_shared<ToneFile>(output.URL(), *fStream);
        const int code = fFile->Open();
        if (code != 0) return code;
        fStream->SetSink(fFile);
        return tnSharedEncoders::Join(*fStream);  // from here on packets arrive
    }
    int EndOutput(const tnOutputAccessor&, const tnOutputAccessor&, zRecord&) override {
        stop();
        return 0;
    }
    unsigned int TrackCount() override { return fStreams.Count(); }
    int GetTrackFormat(unsigned int index, tnMediaRecord* format) override {
        if (index >= TrackCount()) return -1010;
        const std::string name = format->AsString('xTag', "");  // the element's, which stays
        *format = fStream->EncodedFormat();
        if (!name.empty()) format->SetString('xTag', name);
        return 0;
    }
    unsigned int FormatID() override { return 'tone'; }
    const char* FormatName() override { return "Tone"; }
    int GetMovieSetting(const char*, zRecord&) override { return -28; }
    int SetMovieSetting(const char*, const zRecord&) override { return -28; }

private:
    void stop() {
        if (fStream) tnSharedEncoders::Leave(*fStream);
        if (fFile) fFile->Close();
    }
    tnOutputStream* fStream = nullptr;
    std::shared_ptr<ToneFile> fFile;  // a packet may be on its way to it: the stream has it too
};

class ToneFormat final : public tnXIMovieFile {
public:
    int QueryInterface(const char* name, void** out) override {
        if (std::strcmp(name, "tnXIMovieFile") != 0) return -31;
        AddRef();
        *out = static_cast<tnXIMovieFile*>(this);
        return 0;
    }
    int AddRef() override { return ++fCount; }
    int Release() override {
        const int left = --fCount;
        if (left == 0) delete this;
        return left;
    }
    void DeleteInterface() override { Release(); }
    int GetVersion() override { return 1; }
    int LoadFile(const char*, tnMovie**, const zRecord&, tnAppFunctions&) override { return -1254; }
    int CreateMovie(tnMovie** movie) override {
        // Of equal names the first registered counts, so that doing it again does no harm.
        tnFilterManager::Default()->RegisterFactory(kCodec, [] {
            return std::shared_ptr<tnFilter>(new ToneFilter(),
                                             [](tnFilter* one) { one->Release(); });
        });
        *movie = new ToneMovie();
        return 0;
    }
    bool FormatFlag() override { return false; }
    bool IsOutputSupported(const zRecord&) override { return true; }
    const char* FileExtension() override { return "wav"; }
    int GetCapabilities(zRecord&) override { return 0; }
    int ConfigureInterface(const zRecord&) override { return 0; }
    unsigned int FormatID() override { return 'tone'; }
    const char* FormatName() override { return "Tone"; }
    bool SupportsOutput(tn_output output) override { return output == TN_OUTPUT_DEFAULT; }

private:
    std::atomic<int> fCount{1};
};

}  // namespace

JIG_ADDON(tnXIMovieFile, ToneFormat)
