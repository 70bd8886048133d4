#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "spar/zBuffer.h"
#include "spar/zObject.h"
#include "spar/zRecord.h"
#include "tarn/filters/tnAudioCompressor.h"
#include "tarn/filters/tnVideoCompressor.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/movies/tnStreamBuffer.h"

// Compressors and buffers for tests of what stands around them.

namespace filterDoubles {

/// An encoded picture that says what it is told to say.
class Picture final : public tnVideoCompressor::EncodedBuffer {
public:
    Picture(double time, bool key) : fTime(time), fKey(key) {}

    const unsigned char* Data() override { return fBytes; }
    unsigned int DataSize() override { return sizeof fBytes; }
    bool IsKeyFrame() const override { return fKey; }
    bool CanDropBuffer() const override { return false; }
    unsigned int Duration() const override { return 1; }
    double BufferTimeInMilliseconds() const override { return fTime; }
    int GetDecoderDescription(zBuffer&) override { return -1; }
    int VideoCodecFormat() const override { return 7; }
    zRecord* FrameMetaData() const override { return nullptr; }
    int DisplayOffsetRelativeToDuration() const override { return 0; }
    void Print() override {}
    int DisplayOffsetInMilliseconds() const override { return 0; }

private:
    unsigned char fBytes[5] = {1, 2, 3, 4, 5};
    double fTime;
    bool fKey;
};

/// Takes frames and gives a picture for each, at the time of the frame in ticks of a millisecond.
class VideoCompressor : public tnVideoCompressor {
public:
    const tnMediaRecord& InputFormat() const override { return fInput; }
    const tnMediaRecord& OutputFormat() const override { return fOutput; }
    void SetOutputFormat(const tnMediaRecord& format) override { fOutput = format; }
    int Create(const tnMediaRecord& output, const zRecord& settings, void* userData) override {
        ++fCreated;
        fMadeFor = output;
        fOneRecord = &settings == &output;
        fUserData = userData;
        return fCreateResult;
    }
    int SetInputFormat(const tnMediaRecord& input) override {
        fInput = input;
        ++fConfigured;
        return fConfigureResult;
    }
    int EncodeFrame(tnStreamBuffer& buffer, const tnMediaRecord&, long long time, bool keyFrame,
                    int (*)(tnVideoCompressor::EncodedBuffer*, void*), const zRecord*) override {
        fTimes.push_back(time);
        fKeyRequests += keyFrame ? 1 : 0;
        buffer.ReleaseWriting();
        if (!fOnEncodedBuffer) return -1;
        auto* picture =
            new Picture(static_cast<double>(time), fTimes.size() % fGroup == 1 || fGroup == 1);
        fOnEncodedBuffer(
            std::shared_ptr<EncodedBuffer>(picture, [](EncodedBuffer* b) { b->Release(); }));
        return 0;
    }
    double GetCTSIncrementInMilliseconds() const override { return 0; }
    int CanOutputFormat(tnMediaRecord&, bool) override { return 0; }
    int GetDecoderDescription(zBuffer& out) override {
        ++fAsked;
        if (fDescriptionResult != 0) return fDescriptionResult;
        out.SetAndCopyData(fDescription.data(), static_cast<unsigned int>(fDescription.size()), 0);
        return 0;
    }

    tnMediaRecord fInput;
    tnMediaRecord fOutput;
    tnMediaRecord fMadeFor;
    bool fOneRecord = false;  ///< Create got one record as output and as settings
    void* fUserData = this;   ///< that Create got
    int fCreateResult = 0;
    int fConfigureResult = 0;
    int fCreated = 0;
    int fConfigured = 0;
    int fKeyRequests = 0;
    int fAsked = 0;
    int fDescriptionResult = -1;
    std::vector<unsigned char> fDescription;
    std::size_t fGroup = 1;
    std::vector<long long> fTimes;
};

/// A block of packets of one length.
class Sound final : public tnAudioCompressor::EncodedBuffer {
public:
    Sound(int packets, double milliseconds, double time)
        : fPackets(packets), fMilliseconds(milliseconds), fTime(time) {
        ++gLiving;
    }
    ~Sound() override { --gLiving; }

    int CodecType() const override { return 0; }
    int PacketCount() const override { return fPackets; }
    unsigned int PacketSize(int) override { return 1; }
    const unsigned char* PacketData(int) override { return &fByte; }
    double Timestamp(int) const override { return fTime; }
    double DurationMilli(int) const override { return fMilliseconds; }
    unsigned int SampleCount(int) override { return 1; }

    static inline std::atomic<int> gLiving{0};

private:
    unsigned char fByte = 0;
    int fPackets;
    double fMilliseconds;
    double fTime;
};

class AudioCompressor : public tnAudioCompressor {
public:
    const tnMediaRecord& InputFormat() const override { return fInput; }
    const tnMediaRecord& OutputFormat() const override { return fOutput; }
    void SetOutputFormat(const tnMediaRecord& format) override { fOutput = format; }
    int Create(const tnMediaRecord& input, const tnMediaRecord& output) override {
        fInput = input;
        fOutput = output;
        return fCreateResult;
    }
    int EncodeFrame(EncodedBuffer** out, double timeMs, void*, unsigned int count) override {
        fTimes.push_back(timeMs);
        fCounts.push_back(count);
        const bool gives = (fResult == 0 || fGivesAlways) && fPackets > 0;
        *out = gives ? new Sound(fPackets, fMilliseconds, timeMs) : nullptr;
        return fResult;
    }
    int FramesPerPacket() const override { return 0; }

    tnMediaRecord fInput;
    tnMediaRecord fOutput;
    int fCreateResult = 0;
    int fResult = 0;
    bool fGivesAlways = false;  ///< also with a result that is an error
    int fPackets = 1;
    double fMilliseconds = 10.0;
    std::vector<double> fTimes;
    std::vector<unsigned int> fCounts;
};

inline tnMediaRecord VideoFormat(const char* codec) {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.fWidth.SetInt32(64);
    record.fHeight.SetInt32(48);
    record.fColourspace.SetInt32('2vuy');
    record.SetInt64('tmsc', 30000);
    record.SetUInt64('dura', 1001);
    record.SetFloat('mfps', 29.97f);
    if (codec) record.SetCString('mcon', codec);
    return record;
}

inline tnMediaRecord AudioFormat(const char* codec) {
    tnMediaRecord record(TN_MEDIA_AUDIO);
    record.MakeDefaultAudioFormat();
    if (codec) record.SetCString('mcon', codec);
    return record;
}

}  // namespace filterDoubles
