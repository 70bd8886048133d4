#pragma once

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoCompressor.h"
#include "orb/CAssetWriter.h"
#include "orb/CByteArray.h"
#include "orb/CPixelBufferDataReference.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/writers/tnWriteORB2.h"

#include "tests/support/TestFolder.h"
#include "tests/support/orbDoubles.h"

// A movie file writer among doubles: its buffers, its formats, its components and its file.

struct tnWriteORB2TestPeer {
    static void CopySamples(tnWriteORB2& writer) { writer.fCopySamples = true; }
    // These take over the reference.
    static void PutAsset(tnWriteORB2& writer, Quillon::Orb::CAssetWriter* asset) {
        writer.fAssetWriter = asset;
    }
    static void PutSoundTrack(tnWriteORB2& writer, Quillon::Orb::CAssetAudioWriter* track) {
        writer.fAudioWriter = track;
    }
};

namespace writerFixture {

using namespace orbDoubles;

inline constexpr int kWidth = 16;
inline constexpr int kHeight = 8;

class Frame final : public tnVideoCompressor2::EncodedBuffer {
public:
    Frame(long long time, long long duration) : fTiming{1, time, 1, duration} {}

    void SetBytesWritten(int bytes) override { written = bytes; }
    EncodedBufferTiming GetTiming() override { return fTiming; }
    CPixelDataReference* GetPixelData() override {
        if (!hasPixels) return nullptr;
        if (pixels) return RObject<CPixelDataReference>(pixels).Detach();
        const RObject<CByteArray> bytes(new CByteArray(kWidth * 2 * kHeight * 2, 1));
        std::memset(bytes->GetData(), 128, static_cast<std::size_t>(bytes->GetLength()));
        return new CPixelBufferDataReference(bytes.Get(), kWidth, kHeight, kWidth * 2);
    }

    EncodedBufferTiming fTiming;
    int written = -1;
    bool hasPixels = true;
    RObject<CPixelDataReference> pixels;  ///< in place of grey ones of its own
};

class Packet final : public tnAudioCompressor2::EncodedBuffer {
public:
    void SetBytesWritten(int bytes) override { written = bytes; }
    int written = -1;
};

inline tnMediaRecord raw_video(int raster = '2vuy') {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.fColourspace.SetInt32(raster);
    record.fWidth.SetInt32(kWidth);
    record.fHeight.SetInt32(kHeight);
    return record;
}

inline tnMediaRecord encoded_video(const char* codec, long long timescale = 30000,
                                   long long duration = 1001) {
    tnMediaRecord record = raw_video();
    record.SetBool('mena', true);
    record.SetCString('mcon', codec);
    record.SetInt64('tmsc', timescale);
    record.SetUInt64('dura', static_cast<unsigned long long>(duration));
    record.SetInt32('mtbr', 2100);
    return record;
}

inline tnMediaRecord pcm(int rate = 48000, int channels = 2, int bits = 16) {
    tnMediaRecord record;
    record.MakeDefaultAudioFormat();
    record.fSampleRate.SetInt32(rate);
    record.fChannels.SetInt32(channels);
    record.fBitsPerSample.SetInt32(bits);
    return record;
}

inline tnMediaRecord encoded_audio(const char* codec, int rate = 48000, int channels = 2,
                                   int bits = 16) {
    tnMediaRecord record = pcm(rate, channels, bits);
    record.SetBool('mena', true);
    if (codec) record.SetCString('mcon', codec);
    return record;
}

class Writer : public testing::Test {
protected:
    Writer()
        : fMjpeg('mjpg', fScript),
          fX264('h264', fScript),
          fMpeg2('mcm2', fScript),
          fToolbox('vtbx', fScript),
          fConverter('vfc ', fConverterScript),
          fFileInFront(fFile),
          fWriter(new tnWriteORB2()) {
        fScript.outputFormats = {'jpeg', 'h264', 'avc1', 'mp2v', 'apco',
                                 'apcs', 'apcn', 'apch', 'ap4h'};
        fConverterScript.inputFormats = {'UYVY', 'BGRA', 'I420'};
        fConverterScript.outputFormats = {'UYVY', 'I420', 'NV12', 'BGRA', 'GREY'};
    }
    ~Writer() override {
        fScript.stuck = false;
        fFile.stuck = false;
        if (fWriter) fWriter->Release();
    }

    void open(unsigned int container = 'mov ', double seconds = 0, int moovRate = 0) {
        ASSERT_EQ(fWriter->Open(fFolder.File("movie.mov").c_str(), container, moovRate, seconds),
                  0);
    }
    /// Opens a movie with this codec alone and builds its track.
    int set_up(const tnMediaRecord& encoded, int sourceRaster = '2vuy',
               unsigned int container = 'mov ') {
        open(container);
        fWriter->SetSourceVideoFormat(raw_video(sourceRaster));
        fWriter->SetEncodedVideoFormat(encoded);
        return fWriter->CompleteInitialization();
    }
    /// Opens a movie with a track of pictures and one of plain sound.
    void set_up_both() {
        open();
        fWriter->SetSourceVideoFormat(raw_video());
        fWriter->SetEncodedVideoFormat(encoded_video("MJPEG"));
        fWriter->SetSourceAudioFormat(pcm());
        fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
        ASSERT_EQ(fWriter->CompleteInitialization(), 0);
    }
    /// Writes frames, with the encoder stuck on the first, until the track is full for good.
    int fill_pictures() {
        fScript.stuck = true;
        int frames = 0;
        for (;;) {
            // Asked first: once the encoder is stuck, a track that is full stays so.
            const bool stuck = fScript.entered;
            if (fWriter->IsVideoReady()) {
                Frame frame(frames++ * 1001, 1001);
                EXPECT_EQ(fWriter->WriteVideo(frame), 0);
            } else if (stuck) {
                return frames;
            } else {
                std::this_thread::yield();
            }
        }
    }
    long long number(const char* name) {
        return fScript.numbers.count(name) ? fScript.numbers[name] : -999;
    }

    /// The properties that were set so far, in order, but for the output format: a track tells its
    /// compressor that by itself, as often as it likes.
    std::vector<std::string> settings() const {
        std::vector<std::string> names = fScript.order;
        std::erase(names, "MediaFilter::OutputFormat");
        return names;
    }

    tests::TestFolder fFolder;
    Script fScript;
    Script fConverterScript;
    FileScript fFile;
    Registered<CVideoCompressor, Compressor> fMjpeg;
    Registered<CVideoCompressor, Compressor> fX264;
    Registered<CVideoCompressor, Compressor> fMpeg2;
    Registered<CVideoCompressor, Compressor> fToolbox;
    Registered<CVideoConverter, Converter> fConverter;
    RegisteredFile fFileInFront;
    tnWriteORB2* fWriter;
};

}  // namespace writerFixture
