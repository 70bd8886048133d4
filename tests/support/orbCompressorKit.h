#pragma once

#include <deque>
#include <functional>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <vector>

#include "orb/CMemoryDataReference.h"
#include "orb/CMpeg4AvcDataReference.h"
#include "orb/CMpeg4AvcProperties.h"
#include "orb/CVideoCompressor.h"
#include "tarn/filters/OrbVideoBuffer.h"
#include "tarn/filters/tnOrbVideoCompressor.h"
#include "tarn/movies/tnStreamBufferGroup.h"

// A video compressor that shows its inside, over an encoder that does as a test tells it.

namespace orbCompressorKit {

using namespace Quillon::Orb;

/// An H.264 unit of one NAL unit that takes `size` bytes behind a length field of so many.
inline RObject<CMpeg4AvcAccessUnit> UnitOf(int size, bool key = false, int field = 4) {
    const RObject<CByteArray> bytes(new CByteArray(size, 1));
    unsigned char* data = bytes->GetData();
    const int length = size - field;
    for (int i = 0; i < field; ++i) {
        data[i] = static_cast<unsigned char>(length >> (8 * (field - 1 - i)));
    }
    std::fill_n(data + field, length, static_cast<unsigned char>(0x55));
    data[field] = key ? 0x65 : 0x41;
    RObject<CMpeg4AvcAccessUnit> unit(new CMpeg4AvcAccessUnit());
    unit->ParseLengthPrefixed(bytes.Get(), field);
    return unit;
}

inline RObject<CVideoSample> AvcSample(int size, int pictureType = 1, long long offset = 0,
                                       int field = 4) {
    RObject<CVideoSample> sample(new CVideoSample(pictureType, 0, 0));
    const RObject<CMpeg4AvcAccessUnit> unit = UnitOf(size, pictureType == 0, field);
    const RObject<CMpeg4AvcDataReference> data(new CMpeg4AvcDataReference(unit.Get()));
    sample->SetDataReference(data.Get());
    sample->SetCompositionOffset(offset);
    return sample;
}

inline RObject<CVideoSample> PlainSample(int size, int pictureType = 0, long long offset = 0) {
    RObject<CVideoSample> sample(new CVideoSample(pictureType, 0, 0));
    const RObject<CByteArray> bytes(new CByteArray(size, 1));
    std::fill_n(bytes->GetData(), size, static_cast<unsigned char>(0x77));
    const RObject<CMemoryDataReference> data(new CMemoryDataReference(bytes.Get()));
    sample->SetDataReference(data.Get());
    sample->SetCompositionOffset(offset);
    return sample;
}

/// Parameter sets as an encoder gives them out of band.
inline RObject<CMpeg4AvcProperties> AvcProperties(int field = 4) {
    const unsigned char sets[] = {0, 0, 0, 1, 0x67, 66, 0, 30, 0x95, 0xA0, 0, 0, 0, 1, 0x68, 0xCE};
    const RObject<CMpeg4AvcDecoderConfiguration> configuration(new CMpeg4AvcDecoderConfiguration());
    configuration->ParseAnnexB(sets, sizeof sets);
    configuration->SetNalUnitLengthSize(field);
    return RObject<CMpeg4AvcProperties>(new CMpeg4AvcProperties(configuration.Get()));
}

/// An encoder without a codec: for each frame that it takes it gives the samples that the test
/// wrote down, and notes what it is told.
class Encoder final : public CVideoCompressor {
public:
    using Samples = std::vector<RObject<CVideoSample>>;

    explicit Encoder(unsigned int code = 'test') : CVideoCompressor(code) {}

    /// The samples that the next frames give, a list for each; plain ones of 10 bytes after that.
    std::deque<Samples> fGives;
    std::vector<unsigned int> fInputFormats = {'UYVY', 'I420'};
    bool fListsNoInputs = false;                   ///< GetInputFormats gives null
    std::vector<unsigned int> fListsOutputs = {};  ///< none: GetOutputFormats gives null
    RObject<CVideoProperties> fOutput;             ///< null: what a compressor answers by itself
    bool fRefuseInput = false;
    bool fRefuseOutput = false;
    bool fRefuseBegin = false;
    bool fRefuseFrames = false;
    bool fFailReceive = false;

    std::vector<RObject<CVideoProperties>> fInputs;  ///< of the virtual SetInputProperties
    std::vector<unsigned int> fOutputFormats;        ///< all that were set
    Samples fFrames;
    int fBegun = 0;
    int fEnded = 0;

    CVideoProperties* GetOutputProperties(int pin) override {
        if (fOutput) return RObject<CVideoProperties>(fOutput).Detach();
        return CVideoCompressor::GetOutputProperties(pin);
    }
    CValueList<unsigned int>* GetInputFormats() override {
        return fListsNoInputs ? nullptr : list_of(fInputFormats);
    }
    CValueList<unsigned int>* GetOutputFormats() override {
        return fListsOutputs.empty() ? nullptr : list_of(fListsOutputs);
    }
    Result SetInputProperties(const CVideoProperties* properties) override {
        fInputs.emplace_back(new CVideoProperties(properties));
        if (fRefuseInput) return ResultError();
        return CVideoCompressor::SetInputProperties(properties);
    }
    Result Begin() override {
        ++fBegun;
        return fRefuseBegin ? Result(ResultError()) : Result(0);
    }
    Result End() override {
        ++fEnded;
        return 0;
    }
    Result ProcessSample(CVideoSample* sample) override {
        if (fRefuseFrames) return ResultError();
        fFrames.push_back(RObject<CVideoSample>::Share(sample));
        Samples gives = {PlainSample(10)};
        if (!fGives.empty()) {
            gives = fGives.front();
            fGives.pop_front();
        }
        fReady.insert(fReady.end(), gives.begin(), gives.end());
        return 0;
    }
    Result ReceiveSample(RObject<CVideoSample>& sample) override {
        sample.Clear();
        if (fFailReceive) return ResultError();
        if (fReady.empty()) return 0;
        sample = fReady.front();
        fReady.pop_front();
        return 0;
    }

protected:
    Result AcceptProperty(const PropertyName& name, const PropertyValue& value) override {
        if (!(name == CodeBookProperty::MediaFilter::OutputFormat)) return 0;
        fOutputFormats.push_back(value.four);
        return fRefuseOutput ? Result(ResultNotSupported()) : Result(0);
    }

private:
    static CValueList<unsigned int>* list_of(const std::vector<unsigned int>& formats) {
        auto* list = new CValueList<unsigned int>();
        for (const unsigned int format : formats) list->AddValue(format);
        return list;
    }

    std::deque<RObject<CVideoSample>> fReady;
};

/// Output properties that carry what H.264 needs.
inline RObject<CVideoProperties> AvcOutput(int field = 4) {
    RObject<CVideoProperties> output(new CVideoProperties(nullptr));
    const RObject<CMpeg4AvcProperties> avc = AvcProperties(field);
    RObject<CByteArray> info;
    avc->GetDecoderInfo(info);
    const RObject<CDecoderSpecificProperties> specific(new CDecoderSpecificProperties());
    specific->SetDecoderInfo(info.Get());
    output->SetExtension('h264', avc.Get());
    output->SetExtension('mspe', specific.Get());
    return output;
}

class Buffer final : public OrbVideoBuffer {
public:
    using OrbVideoBuffer::OrbVideoBuffer;
    ~Buffer() override { --gLiving; }
    using OrbVideoBuffer::fCompositionTime;
    using OrbVideoBuffer::fIrregularTiming;
    using OrbVideoBuffer::fTime;

    static inline int gLiving = 0;
};

class Compressor : public tnOrbVideoCompressor {
public:
    explicit Compressor(unsigned int code = 'test') : fComponent(new Encoder(code)) {}

    Encoder& Component() { return *fComponent; }

    const RObject<Encoder> fComponent;
    bool fWithoutEncoder = false;
    int fCreateResult = 0;
    int fInputCode = 0;  ///< what configure_encoder_input_properties gives
    int fSampleCode = 0;
    bool fGiveNoSample = false;
    bool fCanPad = true;
    unsigned int fOutputCode = 'h264';
    bool fOwnOutputFormat = true;  ///< false: that of the base class
    bool fDropBuffers = false;
    RObject<CVideoProperties> fEntering;
    zRecord fSettings;

    using tnOrbVideoCompressor::compress_h264;
    using tnOrbVideoCompressor::convert_buffer;
    using tnOrbVideoCompressor::copy_buffer;
    using tnOrbVideoCompressor::create_cpu_uncompressed_videosample;
    using tnOrbVideoCompressor::encode_began;
    using tnOrbVideoCompressor::encoder_input_format_for_colorspace;
    using tnOrbVideoCompressor::fBytesThisSecond;
    using tnOrbVideoCompressor::fConfigureError;
    using tnOrbVideoCompressor::fConverter;
    using tnOrbVideoCompressor::fDecoderDescription;
    using tnOrbVideoCompressor::fEncoder;
    using tnOrbVideoCompressor::fFramesSubmitted;
    using tnOrbVideoCompressor::fIsH264;
    using tnOrbVideoCompressor::flush_encoder;
    using tnOrbVideoCompressor::fNeedsConversion;
    using tnOrbVideoCompressor::fNextDecodeTime;
    using tnOrbVideoCompressor::fPadForStrictCBR;
    using tnOrbVideoCompressor::fTargetBytesPerSecond;
    using tnOrbVideoCompressor::fUnusedTime;
    using tnOrbVideoCompressor::GuessColorSpace;
    using tnOrbVideoCompressor::OrbRasterType;
    using tnOrbVideoCompressor::pop_encoded_buffers;
    using tnOrbVideoCompressor::PostBuffer;
    using tnOrbVideoCompressor::ProResFormat;

protected:
    int create_orb_compressor(const zRecord& settings) override {
        fSettings = settings;
        if (!fWithoutEncoder) fEncoder.SafeAcquire(fComponent);
        return fCreateResult;
    }
    OrbVideoBuffer* create_compressed_buffer(RObject<CVideoSample>& sample,
                                             RObject<CVideoCompressor>& compressor,
                                             zBuffer& description, long long time) override {
        if (fDropBuffers) return nullptr;
        ++Buffer::gLiving;
        return new Buffer(sample, compressor, description, time);
    }
    unsigned int encoder_output_format() override {
        return fOwnOutputFormat ? fOutputCode : tnOrbVideoCompressor::encoder_output_format();
    }
    int configure_encoder_input_properties(const tnMediaRecord&,
                                           RObject<CVideoProperties>& properties) override {
        fEntering = properties;
        return fInputCode;
    }
    int create_uncompressed_videosample(tnStreamBuffer& buffer, const tnMediaRecord& format,
                                        RObject<CVideoSample>& sample) override {
        if (fSampleCode != 0 || fGiveNoSample) return fSampleCode;
        return tnOrbVideoCompressor::create_uncompressed_videosample(buffer, format, sample);
    }
    bool encoder_can_pad_for_strict_cbr() override { return fCanPad; }
};

inline std::unique_ptr<tnStreamBuffer> StreamBufferOf(int size) {
    auto buffer = std::make_unique<tnStreamBuffer>();
    buffer->Create(size, nullptr);
    buffer->AddWritingRef();  // the host's own
    auto* bytes = static_cast<unsigned char*>(buffer->GetPointer());
    for (int i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i * 7);
    return buffer;
}

/// What was delivered of one buffer.
struct Delivered {
    double timeMs;
    unsigned int duration;  // ticks
    int offset;             // ticks
    int offsetMs;
    bool irregular;

    bool operator==(const Delivered&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Delivered& one) {
        return out << "{" << one.timeMs << " ms, " << one.duration << ", " << one.offset << ", "
                   << one.offsetMs << " ms, " << (one.irregular ? "irregular" : "regular") << "}";
    }
};

}  // namespace orbCompressorKit
