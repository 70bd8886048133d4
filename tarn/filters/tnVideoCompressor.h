#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "spar/zRefCount.h"
#include "tarn/filters/tnFilter.h"

class tnStreamBuffer;
class zBuffer;
class zRecord;
class zString;

namespace Quillon::Orb {
class CByteArray;
}

/// A video encoder. One thread at a time encodes; the finished buffers come out through
/// fOnEncodedBuffer on that thread, with no lock held.
class TARN_API tnVideoCompressor : public tnFilter {
public:
    /// One encoded picture. Counted; observers share it.
    class TARN_API EncodedBuffer : public zRefCount {
    public:
        virtual const unsigned char* Data() = 0;
        virtual Quillon::Orb::CByteArray* DataAsByteArray();
        virtual unsigned int DataSize() = 0;
        /// Decoders can begin here.
        virtual bool IsKeyFrame() const = 0;
        /// No other picture refers to this one.
        virtual bool CanDropBuffer() const = 0;
        /// Ticks of the 'tmsc' in the output format.
        virtual unsigned int Duration() const = 0;
        /// Decode time.
        virtual double BufferTimeInMilliseconds() const = 0;
        virtual int GetDecoderDescription(zBuffer& out) = 0;
        virtual int VideoCodecFormat() const = 0;
        /// What the host wrote beside the frame; null if nothing. It stays the buffer's.
        virtual zRecord* FrameMetaData() const = 0;
        virtual unsigned int CompressedDataSize();
        /// Ticks from where the sum of all durations stands to when the picture is shown.
        virtual int DisplayOffsetRelativeToDuration() const = 0;
        virtual void Print() = 0;
        virtual void GetDescription(zString& text);
        virtual int DisplayOffsetInMilliseconds() const = 0;

        /// Milliseconds on the source's time line, -1 while unset. The filter manager writes it
        /// before it delivers the buffer.
        long long fSyncTime = -1;
    };

    bool CreateFilter(const tnMediaRecord& input) override;
    std::shared_ptr<const std::vector<unsigned char>> DecoderInfo() override;

    /// Fills `out` with what decoders are to be told first: 0, or a negative code; -1 here.
    virtual int GetDecoderDescription(zBuffer& out);
    /// Gets hold of the encoder: 0 or a negative code. `settings` are the record's own keys.
    virtual int Create(const tnMediaRecord& output, const zRecord& settings, void* userData) = 0;
    /// Sets it going for frames of this kind: 0 or a negative code.
    virtual int SetInputFormat(const tnMediaRecord& input);
    /// Encodes one frame, of `time` ticks: 0 or a negative code. Owns one writing reference of
    /// `buffer` and gives it back on every path. With a `callback`, finished buffers go to it,
    /// too, after fOnEncodedBuffer.
    virtual int EncodeFrame(tnStreamBuffer& buffer, const tnMediaRecord& format, long long time,
                            bool keyFrame,
                            int (*callback)(tnVideoCompressor::EncodedBuffer*, void*),
                            const zRecord* metaData) = 0;
    /// How far apart the encoder puts composition times.
    virtual double GetCTSIncrementInMilliseconds() const = 0;
    /// 0 if frames of that raster type can be taken, else -1.
    virtual int CanOutputFormat(tnMediaRecord& format, bool flag) = 0;

    /// Called with every finished buffer. The filter manager sets it; empty until then.
    std::function<void(std::shared_ptr<EncodedBuffer>)> fOnEncodedBuffer;

private:
    std::shared_ptr<const std::vector<unsigned char>> fDecoderInfo;
};
