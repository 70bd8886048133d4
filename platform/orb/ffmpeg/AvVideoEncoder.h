#pragma once

#include <deque>
#include <vector>

#include "orb/CByteArray.h"
#include "orb/CVideoCompressor.h"

#include "AvPictureFeed.h"
#include "AvSupport.h"
#include "FrameTimes.h"
#include "VideoCompressorSupport.h"

namespace Quillon::Orb {

/// A libavcodec encoder as a subclass opened it.
struct AvOpenedEncoder {
    AvContext context;
    AVPixelFormat pixels = AV_PIX_FMT_NONE;  ///< in which frames are handed over in main memory
    bool limitedOnly = false;                ///< the codec cannot say full range
    /// H.264 behind start codes, where the context has no extradata.
    std::vector<unsigned char> parameterSets;
    AvBuffer upload;  ///< frames of a device into which pictures are copied; null for none
    bool hardware = false;
};

/// A compressor over one libavcodec encoder: what all of them share. Subclasses declare their
/// properties, list their formats and open the encoder.
///
/// Pictures are numbered for the encoder, so that times may jump or repeat as they like; the
/// samples get their times back by FrameTimes. End lets what is inside come out, to be fetched with
/// ReceiveSample after it; nothing is lost unless the next Begin finds it unfetched. A picture that
/// cannot come out is told by ReceiveSample or by End, and the others come all the same.
class AvVideoEncoder : public CVideoCompressor {
public:
    ~AvVideoEncoder() override;

    Result Begin() override;
    Result End() override;
    CValueList<unsigned int>* GetInputFormats() override;
    Result ProcessSample(CVideoSample* sample) override;
    Result ReceiveSample(RObject<CVideoSample>& sample) override;

protected:
    explicit AvVideoEncoder(unsigned int type);

    /// The raw formats that the encoder takes, best first. May depend on the properties.
    struct Formats {
        const unsigned int* codes;
        int count;
    };
    virtual Formats InputFormats() const = 0;
    /// The output format where none was set.
    virtual unsigned int DefaultOutputFormat() const = 0;
    /// Opens the encoder for that shape with the properties as they stand.
    virtual Result Open(const VideoShape& shape, AvOpenedEncoder& opened) = 0;

    /// The type of a finished picture; bytes that the codec's stream still lacks can be put in.
    virtual int FinishPacket(const AVCodecContext& context, const AVPacket& packet,
                             CByteArray& bytes) const = 0;

private:
    Result begin();
    Result check_begun(const CVideoSample* sample) const;
    Result make_frame(const CVideoSample& sample, AVFrame& frame);
    Result send(const AVFrame* frame);
    void fetch_ready();
    Result receive(RObject<CVideoSample>& sample);
    Result make_sample(const AVPacket& packet, RObject<CVideoSample>& sample);
    Result describe_output(unsigned int format);

    AvOpenedEncoder fEncoder;
    AvPictureFeed fFeed;
    AvPacket fPacket;
    FrameTimes fTimes;
    std::deque<RObject<CVideoSample>> fReady;  // came out while a picture went in
    Result fMissing;                           // why one did not, until somebody was told
    VideoShape fShape;
    bool fAvc = false;      // samples are access units
    bool fDrained = false;  // no more pictures come
    FailureTrace fFailures{*this};
};

/// The bytes of a packet as an array: its own where the block pool has them, else a copy.
RObject<CByteArray> TakePacketBytes(const AVPacket& packet);

}  // namespace Quillon::Orb
