#include "AvVideoEncoder.h"

#include <utility>

#include "orb/CMemoryDataReference.h"
#include "orb/CMpeg4AvcAccessUnit.h"
#include "orb/CMpeg4AvcDataReference.h"
#include "orb/CMpeg4AvcDecoderConfiguration.h"
#include "orb/CMpeg4AvcProperties.h"
#include "orb/VideoFormat.h"

namespace Quillon::Orb {

RObject<CByteArray> TakePacketBytes(const AVPacket& packet) {
    CByteArray* own = static_cast<CByteArray*>(packet.opaque);
    if (own && packet.buf && av_buffer_get_opaque(packet.buf) == own &&
        packet.data == own->GetData()) {
        own->Shorten(packet.size);
        return RObject<CByteArray>::Share(own);
    }
    RObject<CByteArray> copy(new CByteArray(packet.data, packet.size));
    if (copy && copy->GetLength() != packet.size) copy.Clear();
    return copy;
}

AvVideoEncoder::AvVideoEncoder(unsigned int type) : CVideoCompressor(type) {}
AvVideoEncoder::~AvVideoEncoder() = default;

CValueList<unsigned int>* AvVideoEncoder::GetInputFormats() {
    RObject<CValueList<unsigned int>> list(new CValueList<unsigned int>());
    const Formats formats = InputFormats();
    for (int i = 0; list && i < formats.count; ++i) list->AddValue(formats.codes[i]);
    return list.Detach();
}

Result AvVideoEncoder::Begin() {
    return fFailures.OfSetUp(begin());
}

Result AvVideoEncoder::begin() {
    if (fEncoder.context) return ResultError("it has begun already");
    fReady.clear();
    fMissing = 0;
    fTimes = FrameTimes();
    fDrained = false;
    UpdateFlag(CodeBookProperty::MediaFilter::UsingHardwareAcceleration, false);
    const Formats formats = InputFormats();
    Result result = ReadVideoShape(Input(), formats.codes, formats.count, fShape);
    if (result.Failed()) return result;
    fPacket.reset(av_packet_alloc());
    if (!fPacket) return ResultOutOfMemory();

    AvOpenedEncoder opened;
    result = Open(fShape, opened);
    if (result.Failed()) return result;
    result = fFeed.Begin(fShape, opened.pixels, opened.limitedOnly);
    if (result.Failed()) return result;
    fEncoder = std::move(opened);
    const unsigned int wanted = GetOutputFormat();
    result = describe_output(wanted ? wanted : DefaultOutputFormat());
    if (result.Failed()) fEncoder = {};
    UpdateFlag(CodeBookProperty::MediaFilter::UsingHardwareAcceleration, fEncoder.hardware);
    return result;
}

Result AvVideoEncoder::describe_output(unsigned int format) {
    RObject<CVideoProperties> output(new CVideoProperties(Input()));
    if (!output) return ResultOutOfMemory();
    output->SetFormat(format);
    if (fEncoder.limitedOnly) output->SetVideoRange(CVideoProperties::kLimitedRange);
    output->SetReorderDepth(fEncoder.context->has_b_frames);
    fAvc = VideoFormat::GetCanonicalFormat(format) == 'h264';
    if (fAvc) {
        RObject<CMpeg4AvcDecoderConfiguration> configuration(new CMpeg4AvcDecoderConfiguration());
        if (!configuration) return ResultOutOfMemory();
        const AVCodecContext& context = *fEncoder.context;
        const std::vector<unsigned char>& sets = fEncoder.parameterSets;
        Result result =
            sets.empty() ? configuration->ParseAnnexB(context.extradata, context.extradata_size)
                         : configuration->ParseAnnexB(sets.data(), static_cast<int>(sets.size()));
        if (result.Failed()) {
            return ResultError("%s gives no parameter sets in advance", context.codec->name);
        }
        RObject<CByteArray> record;
        result = configuration->Render(record);
        if (result.Failed()) return result;
        RObject<CMpeg4AvcProperties> avc(new CMpeg4AvcProperties(configuration.Get()));
        RObject<CDecoderSpecificProperties> specific(new CDecoderSpecificProperties());
        if (!avc || !specific) return ResultOutOfMemory();
        specific->SetDecoderInfo(record.Get());
        output->SetExtension('h264', avc.Get());
        output->SetExtension('mspe', specific.Get());
    }
    UpdateOutputProperties(output.Detach());
    return 0;
}

Result AvVideoEncoder::End() {
    if (!fEncoder.context) return 0;
    Result result = fDrained ? Result(0) : ProcessSample(nullptr);
    fetch_ready();
    if (result.Succeeded()) result = std::exchange(fMissing, Result(0));
    fEncoder = {};
    return fFailures.OfSetUp(std::move(result));
}

Result AvVideoEncoder::check_begun(const CVideoSample* sample) const {
    if (!fEncoder.context) return ResultError("a picture before Begin or after End");
    if (fDrained) return sample ? ResultError("a picture after the last one") : Result(0);
    return 0;
}

Result AvVideoEncoder::ProcessSample(CVideoSample* sample) {
    Result result = check_begun(sample);
    if (result.Failed()) return fFailures.OfInput(std::move(result));
    if (!sample) {
        if (fDrained) return 0;
        fDrained = true;
        return fFailures.OfInput(send(nullptr));
    }
    AvFrame frame(av_frame_alloc());
    if (!frame) return fFailures.OfInput(ResultOutOfMemory());
    result = make_frame(*sample, *frame);
    if (result.Failed()) return fFailures.OfInput(std::move(result));
    frame->pts = fTimes.Push(sample->GetTime(), sample->GetDuration());
    if (sample->GetHint() & CMediaSample::kHintKeyFrame) frame->pict_type = AV_PICTURE_TYPE_I;
    result = send(frame.get());
    if (result.Failed()) fTimes.Unpush();
    return fFailures.OfInput(std::move(result));
}

Result AvVideoEncoder::make_frame(const CVideoSample& sample, AVFrame& frame) {
    Result result = fFeed.MakeFrame(sample, frame);
    if (result.Failed() || !fEncoder.upload) return result;
    AvFrame uploaded(av_frame_alloc());
    if (!uploaded) return ResultOutOfMemory();
    int code = av_hwframe_get_buffer(fEncoder.upload.get(), uploaded.get(), 0);
    if (code >= 0) code = av_hwframe_transfer_data(uploaded.get(), &frame, 0);
    if (code < 0) {
        return ResultError("the picture did not reach the device: %s", AvErrorText(code).c_str());
    }
    av_frame_unref(&frame);
    av_frame_move_ref(&frame, uploaded.get());
    return 0;
}

Result AvVideoEncoder::send(const AVFrame* frame) {
    int code = avcodec_send_frame(fEncoder.context.get(), frame);
    if (code == AVERROR(EAGAIN)) {
        // It takes nothing until everything that is ready has come out; that waits here.
        fetch_ready();
        code = avcodec_send_frame(fEncoder.context.get(), frame);
    }
    if (code < 0) return ResultError("a picture was not encoded: %s", AvErrorText(code).c_str());
    return 0;
}

void AvVideoEncoder::fetch_ready() {
    // A picture that fails is no reason to leave those behind it; but no more than are inside can.
    for (long long failures = fTimes.CountInside(); failures >= 0;) {
        RObject<CVideoSample> sample;
        Result result = receive(sample);
        if (result.Failed()) {
            --failures;
            if (fMissing.Succeeded()) fMissing = std::move(result);
        } else if (!sample) {
            return;
        } else {
            fReady.push_back(std::move(sample));
        }
    }
}

Result AvVideoEncoder::ReceiveSample(RObject<CVideoSample>& sample) {
    sample.Clear();
    if (!fReady.empty()) {
        sample = std::move(fReady.front());
        fReady.pop_front();
        return 0;
    }
    if (fMissing.Failed()) return fFailures.OfOutput(std::exchange(fMissing, Result(0)));
    return fEncoder.context ? fFailures.OfOutput(receive(sample)) : Result(0);
}

Result AvVideoEncoder::receive(RObject<CVideoSample>& sample) {
    const int code = avcodec_receive_packet(fEncoder.context.get(), fPacket.get());
    if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return 0;
    if (code < 0) return ResultError("no encoded picture: %s", AvErrorText(code).c_str());
    Result result = make_sample(*fPacket, sample);
    av_packet_unref(fPacket.get());
    return result;
}

Result AvVideoEncoder::make_sample(const AVPacket& packet, RObject<CVideoSample>& sample) {
    FrameTimes::Stamp stamp;
    if (!fTimes.Pop(packet.pts, stamp)) return ResultError("a picture that never went in");
    RObject<CByteArray> bytes = TakePacketBytes(packet);
    RObject<CVideoSample> made(new CVideoSample(nullptr));
    if (!bytes || !made) return ResultOutOfMemory();
    made->SetTime(stamp.time);
    made->SetDuration(stamp.duration);
    made->SetCompositionOffset(stamp.compositionOffset);
    made->SetPictureType(FinishPacket(*fEncoder.context, packet, *bytes));
    RObject<CDataReference> reference;
    if (fAvc) {
        RObject<CMpeg4AvcAccessUnit> unit(new CMpeg4AvcAccessUnit());
        if (!unit) return ResultOutOfMemory();
        Result parsed = unit->ParseAnnexB(bytes.Get());
        if (parsed.Failed()) return parsed;
        for (const int type :
             {CMpeg4AvcAccessUnit::kNalSequenceSet, CMpeg4AvcAccessUnit::kNalPictureSet,
              CMpeg4AvcAccessUnit::kNalSequenceSetExtension}) {
            unit->RemoveNalUnits(type);
        }
        reference = new CMpeg4AvcDataReference(unit.Get());
    } else {
        reference = new CMemoryDataReference(bytes.Get());
    }
    if (!reference) return ResultOutOfMemory();
    made->SetDataReference(reference.Get());
    sample = std::move(made);
    return 0;
}

}  // namespace Quillon::Orb
