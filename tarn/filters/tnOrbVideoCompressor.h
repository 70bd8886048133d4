#pragma once

#include <atomic>
#include <queue>
#include <vector>

#include "orb/CVideoCompressor.h"
#include "orb/CVideoConverter.h"
#include "orb/RObject.h"
#include "spar/threadSafety.h"
#include "spar/zList.h"
#include "spar/zMap.h"
#include "tarn/filters/tnVideoCompressor.h"
#include "tarn/foundation/tnMediaRecord.h"

class OrbVideoBuffer;
class zCritical;

namespace Quillon::Orb {
class CPixelDataReference;
}

/// A video encoder over a component of the media library: chooses the pixels that the component
/// takes, puts a converter in front where there are none in common, and gives what comes out its
/// times. Subclasses say which component, by the operations under `protected`.
///
/// It lives through Create (makes the component), SetInputFormat (configures and starts it) and
/// frames. One thread at a time, and no lock but one around the finished buffers, so that a
/// subclass may post them from another thread. A configuration that failed is final: each later
/// frame is answered with its code.
///
/// What comes out of an encoder is matched to what went in by its place alone, in decode order:
/// frame times wait in a queue, and each sample takes the oldest. Every finished buffer waits for
/// its successor, whose time tells its duration, so the last one of a run is never delivered.
///
///     in       0    1001   2002   3003        ticks, EncodeFrame
///     out      I0     P3     B1     B2        samples of the component
///     time     0    1001   2002   3003        decode times
///     deliver         I0     P3     B1        after the next one came
class TARN_API tnOrbVideoCompressor : public tnVideoCompressor {
public:
    using Callback = int (*)(tnVideoCompressor::EncodedBuffer*, void*);

    tnOrbVideoCompressor();
    /// What is inside the encoder or waits for a successor is lost.
    ~tnOrbVideoCompressor() override;

    const tnMediaRecord& InputFormat() const override;
    const tnMediaRecord& OutputFormat() const override;
    void SetOutputFormat(const tnMediaRecord& format) override;
    /// Refers to the compressor's own bytes: valid while it lives. -1 while there are none; H.264
    /// alone has some.
    int GetDecoderDescription(zBuffer& out) override;
    /// 0, or what the subclass says when it cannot make its component.
    int Create(const tnMediaRecord& output, const zRecord& settings, void* userData) override;
    /// Always 0. What went wrong is the answer to each frame from then on:
    /// -1031 no pixel converter; -1034 an NVENC component refused the output format; -1037 a raster
    /// type that cannot be encoded; -1038, -1039, -1040 the converter refused the input, the output
    /// format, to begin; -1041 the encoder refused the input; -1042 it refused the output format;
    /// -1043 it did not begin; -1024 out of memory; or a subclass's own code.
    int SetInputFormat(const tnMediaRecord& input) override;
    /// What keeps it from encoding: what SetInputFormat found wrong, -1044 where Create made no
    /// encoder, 0 for nothing. For whoever has the filter from an initialisation function, since
    /// nobody looks at the answers to frames.
    int ConfigurationError() const;
    /// What became of the frames while it cannot encode them: 0, or, once thirty in a row became
    /// nothing, the code of the last one, -1052 where the component refused it, -1050 for the -1 of
    /// a frame that could not become a sample. Any thread.
    int FrameError() const { return fFrameError.load(std::memory_order_relaxed); }
    /// `time` is in ticks of the output's timescale. `format` tells the frame's size, raster type
    /// and, for packed formats, the bytes from row to row. The stream buffer is free when this
    /// returns. Finished buffers go to fOnEncodedBuffer and to `callback`, if there is one, on this
    /// thread; `metaData` is copied and comes with the buffer that gets this frame's time.
    ///
    /// 0, also when the component refused the frame; the code of a failed configuration; -1044 no
    /// encoder; -1046 the sample has no place for a time; -1 the frame could not become a sample,
    /// which includes a stream buffer too short for the format.
    int EncodeFrame(tnStreamBuffer& buffer, const tnMediaRecord& format, long long time,
                    bool keyFrame, Callback callback, const zRecord* metaData) override;
    double GetCTSIncrementInMilliseconds() const override;
    /// Narrower than what SetInputFormat takes: hosts that ask here send packed 4:2:2 or RGB.
    int CanOutputFormat(tnMediaRecord& format, bool flag) override;

protected:
    template <typename T>
    using RObject = Quillon::Orb::RObject<T>;

    /// Makes fEncoder: 0 or a negative code.
    virtual int create_orb_compressor(const zRecord& settings) = 0;
    /// The buffer for an encoded sample, with a reference for the caller; null drops the sample.
    virtual OrbVideoBuffer* create_compressed_buffer(
        RObject<Quillon::Orb::CVideoSample>& sample,
        RObject<Quillon::Orb::CVideoCompressor>& compressor, zBuffer& description, long long time);
    /// The raw format in which frames shall enter the encoder: `wanted` where it takes that, else
    /// the one that it names first.
    virtual unsigned int encoder_input_format_for_colorspace(unsigned int wanted);
    /// The format that the encoder shall make; a ProRes one here.
    virtual unsigned int encoder_output_format();
    /// For settings of the component, before it begins. `properties` describe what will enter it.
    virtual int configure_encoder_input_properties(
        const tnMediaRecord& input, RObject<Quillon::Orb::CVideoProperties>& properties);
    /// What the outcome of the encoder's start means: 0 or a negative code.
    virtual int encode_began(Quillon::Orb::Result result);
    /// Makes the raw sample of a frame: 0 or a code. The caller keeps its writing reference.
    virtual int create_uncompressed_videosample(tnStreamBuffer& buffer, const tnMediaRecord& format,
                                                RObject<Quillon::Orb::CVideoSample>& sample);
    /// Whether the component itself fills up a strict constant rate.
    virtual bool encoder_can_pad_for_strict_cbr();

    // For subclasses.

    /// A sample in main memory with pixels of its own: 0 or -1.
    int create_cpu_uncompressed_videosample(tnStreamBuffer& buffer, const tnMediaRecord& format,
                                            RObject<Quillon::Orb::CVideoSample>& sample);
    /// Copies the frame's pixels into a reference of its raster type: 0, or -1 if that cannot be
    /// locked or the frame is shorter than its format. Other types than 'I420', 'NV12' and 'rgb '
    /// leave it untouched. Rows for which the reference has no room are left out.
    int copy_buffer(RObject<Quillon::Orb::CPixelDataReference>& target, tnStreamBuffer& buffer,
                    const tnMediaRecord& format);
    /// The same through the converter.
    int convert_buffer(RObject<Quillon::Orb::CPixelDataReference>& target, tnStreamBuffer& buffer,
                       const tnMediaRecord& format);

    /// The media format of the record's raster type; 0 for one that has none here.
    unsigned int OrbRasterType(const tnMediaRecord& record) const;
    Quillon::Orb::ColorSpace GuessColorSpace(const tnMediaRecord& record) const;
    /// By "codec_quality"; plain 4:2:2 for what it does not know.
    unsigned int ProResFormat(const tnMediaRecord& record) const;

    /// Counts what became of a frame, 0 or a code, for FrameError, and gives that back. An
    /// EncodeFrame that is overridden calls it once a frame.
    int note_frame(int error);
    /// Gives a sample to the encoder, of whatever codec, and takes what is ready; false where the
    /// encoder failed or refused it.
    bool compress_h264(RObject<Quillon::Orb::CVideoSample> sample);
    void process_compressed_sample(RObject<Quillon::Orb::CVideoSample>& sample);
    /// Appends a finished buffer and takes over the caller's reference. Any thread.
    void PostBuffer(OrbVideoBuffer& buffer);
    bool pop_an_encoded_buffer(Callback callback);
    bool pop_encoded_buffers(Callback callback);
    /// Finishes and delivers a buffer whose successor stands at `nextTime` ticks, and takes over
    /// the reference to it.
    void pop_encoded_buffer(long long nextTime, OrbVideoBuffer* buffer, Callback callback);
    void flush_encoder();
    void release_encoder();
    void fill_decoder_info();

    void* fUserData = nullptr;
    RObject<Quillon::Orb::CVideoCompressor> fEncoder;
    RObject<Quillon::Orb::CVideoConverter> fConverter;
    tnMediaRecord fInputFormat;
    tnMediaRecord fOutputFormat;
    long long fUnusedTime = -1;                // add-ons count on the places of the members
    OrbVideoBuffer* fPendingBuffer = nullptr;  // waits for its successor; a reference
    long long fFramesSubmitted = 0;
    zCritical* const fEncodedLock;  // taken under the filter manager's lock in teardown
    zList<OrbVideoBuffer*>* const fEncodedBuffers SPAR_PT_GUARDED_BY(fEncodedLock);
    zMap<long long, zRecord*> fFrameMetaData;  // of frames in flight, by time; owned
    long long fNextDecodeTime = -1;            // ticks: where the sum of all durations stands
    zBuffer* fDecoderDescription = nullptr;    // owned
    std::queue<long long> fInputTimes;         // ticks, of frames in the encoder
    unsigned int fBytesThisSecond = 0;
    bool fPadForStrictCBR = false;
    unsigned int fTargetBytesPerSecond = 0;
    bool fNeedsConversion = false;
    int fConfigureError = 0;
    double fCTSIncrement = 0.0;
    bool fIsH264 = false;

private:
    using Properties = Quillon::Orb::CVideoProperties;

    int configure(const tnMediaRecord& input);
    void fill_input_format();
    void describe_input(Properties& properties) const;
    void offer_defaults(const Properties& input);
    void trace_configuration(const tnMediaRecord& input, const char* colourspace) const;
    int place_converter(unsigned int from, unsigned int to);
    int begin_encoder(const tnMediaRecord& input, unsigned int format,
                      const Properties& properties);
    void begin_padding();
    void tear_down();

    bool wrap_pixels(unsigned char* pixels, int size, const tnStreamBuffer& buffer,
                     const tnMediaRecord& format, int stride, bool copy,
                     RObject<Quillon::Orb::CVideoSample>& sample) const;
    void keep_meta_data(long long time, const zRecord& metaData);
    zRecord* take_meta_data(long long time);
    long long timescale() const;
    unsigned int nominal_duration() const;
    unsigned int padding_of(bool lastOfSecond) const;
    void set_duration(long long nextTime, OrbVideoBuffer& buffer);
    void deliver(OrbVideoBuffer& buffer, Callback callback);

    std::vector<zRecord*> fReplacedMetaData;  // of frames that came at the time of another; owned
    bool fLacksEncoder = false;               // for ConfigurationError alone
    int fFramesLost = 0;                      // in a row
    std::atomic<int> fFrameError{0};
};
