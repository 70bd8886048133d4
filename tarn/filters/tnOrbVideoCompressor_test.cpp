#include "tarn/filters/tnOrbVideoCompressor.h"

#include <gtest/gtest.h>
#include <optional>

#include "orb/testSupport.h"
#include "spar/zBuffer.h"
#include "tarn/filters/tnOrbProResVideoCompressor.h"

#include "tests/support/orbCompressorKit.h"
#include "tests/support/orbDoubles.h"

using namespace orbCompressorKit;

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 48;

tnMediaRecord video_of(unsigned int raster, int width = kWidth, int height = kHeight) {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.fWidth.SetInt32(width);
    record.fHeight.SetInt32(height);
    record.fColourspace.SetInt32(static_cast<int>(raster));
    record.SetBytesPerRowBasedOnFormat();
    return record;
}

tnMediaRecord output_of(const char* codec = "x264") {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.SetInt64('tmsc', 30000);
    record.SetFloat('mfps', 29.97f);
    record.SetCString('mcon', codec);
    return record;
}

class VideoCompressorSetUp : public testing::Test {
public:
    void make(unsigned int code = 'test') { fCompressor.emplace(code); }
    int create(const tnMediaRecord& output = output_of()) {
        return fCompressor->Create(output, output, nullptr);
    }
    /// What each frame is answered with, after a look at the reference that it gives back.
    int encode() {
        const auto buffer = StreamBufferOf(kWidth * kHeight * 4);
        buffer->AddWritingRef();
        const int result =
            fCompressor->EncodeFrame(*buffer, video_of('2vuy'), 0, false, nullptr, nullptr);
        EXPECT_EQ(buffer->AddWritingRef(), 2) << "the writing reference came back";
        return result;
    }
    Encoder& component() { return fCompressor->Component(); }

    orbDoubles::Script fConverting;
    orbDoubles::Registered<CVideoConverter, orbDoubles::Converter> fConverters{'vfc ', fConverting};
    TraceCatcher fTrace;
    std::optional<Compressor> fCompressor{std::in_place};
};

TEST_F(VideoCompressorSetUp, StartsWithNothing) {
    zBuffer description;
    EXPECT_EQ(fCompressor->GetDecoderDescription(description), -1);
    EXPECT_EQ(fCompressor->GetCTSIncrementInMilliseconds(), 0.0);
    EXPECT_EQ(fCompressor->fUnusedTime, -1);
    EXPECT_EQ(fCompressor->fNextDecodeTime, -1);
    EXPECT_EQ(fCompressor->fConfigureError, 0);
    EXPECT_EQ(fCompressor->DecoderInfo(), nullptr);
    fCompressor->SetOutputFormat(output_of("name"));
    EXPECT_EQ(fCompressor->OutputFormat().AsString('mcon', ""), "name");
}

TEST_F(VideoCompressorSetUp, KnowsH264ByTheThreeDigitsInItsName) {
    const struct {
        const char* name;
        bool h264;
    } rows[] = {{"x264", true},
                {"NVidia H.264", true},
                {"Video Toolbox H.264", true},
                {"264", true},
                {"ProRes", false},
                {"H.26 4", false},
                {"MJPEG", false},
                {"", false}};
    for (const auto& row : rows) {
        create(output_of(row.name));
        EXPECT_EQ(fCompressor->fIsH264, row.h264) << row.name;
    }
    tnMediaRecord nameless = output_of();
    nameless.RemoveID('mcon');
    create(nameless);
    EXPECT_FALSE(fCompressor->fIsH264);
}

TEST_F(VideoCompressorSetUp, CreationHandsOnSettingsAndResult) {
    fCompressor->fCreateResult = -77;
    zRecord settings;
    settings.SetInt32("threads", 3);
    EXPECT_EQ(fCompressor->Create(output_of(), settings, nullptr), -77);
    EXPECT_EQ(fCompressor->fSettings.AsInt32("threads", 0), 3);
    EXPECT_FALSE(fCompressor->CreateFilter(video_of('2vuy')));
    EXPECT_EQ(component().fBegun, 0);
}

TEST_F(VideoCompressorSetUp, OffersFewerRasterTypesThanItTakes) {
    const struct {
        unsigned int raster;
        int can;
        int configured;
        unsigned int orb;
    } rows[] = {
        {'2vuy', 0, 0, 'UYVY'},  {'rgb ', 0, 0, 'BGRA'},  {'rgba', 0, 0, 'BGRA'},
        {'RGBA', 0, -1037, 0},   {'I420', -1, 0, 'I420'}, {'NV12', -1, 0, 'NV12'},
        {'yuvs', -1, 0, 'YUYV'}, {'gry8', -1, -1037, 0},  {0, -1, -1037, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.raster);
        make();
        component().fInputFormats = {'UYVY', 'BGRA', 'I420', 'NV12', 'YUYV'};
        create();
        tnMediaRecord format = video_of(row.raster);
        EXPECT_EQ(fCompressor->CanOutputFormat(format, false), row.can);
        EXPECT_EQ(fCompressor->CanOutputFormat(format, true), row.can);
        EXPECT_EQ(fCompressor->OrbRasterType(format), row.orb);
        EXPECT_EQ(fCompressor->SetInputFormat(format), 0);
        EXPECT_EQ(fCompressor->fConfigureError, row.configured);
        EXPECT_EQ(encode(), row.configured);
        EXPECT_EQ(static_cast<bool>(fCompressor->fEncoder), row.configured == 0);
        format.fType.SetInt32(TN_MEDIA_AUDIO);
        EXPECT_EQ(fCompressor->CanOutputFormat(format, false), -1);
    }
}

TEST_F(VideoCompressorSetUp, GuessesTheColourOfAPicture) {
    const struct {
        int height;
        float rate;
        ColorSpace colour;
    } rows[] = {{719, 25.0f, ColorSpace::BT601P},  {719, 25.9f, ColorSpace::BT601P},
                {576, 50.0f, ColorSpace::BT601P},  {576, 24.99f, ColorSpace::BT601N},
                {480, 29.97f, ColorSpace::BT601N}, {480, 0.0f, ColorSpace::BT601N},
                {720, 25.0f, ColorSpace::BT709},   {1080, 29.97f, ColorSpace::BT709}};
    for (const auto& row : rows) {
        tnMediaRecord record = video_of('2vuy', 64, row.height);
        if (row.rate > 0) record.SetFloat('mfps', row.rate);
        EXPECT_EQ(fCompressor->GuessColorSpace(record), row.colour)
            << row.height << " at " << row.rate;
    }
}

TEST_F(VideoCompressorSetUp, ChoosesTheProResFlavourByItsExactName) {
    const struct {
        const char* quality;
        unsigned int format;
    } rows[] = {{"prores_422_proxy", 'apco'},
                {"prores_422_lt", 'apcs'},
                {"prores_422", 'apcn'},
                {"prores_422_hq", 'apch'},
                {"prores_4444", 'ap4h'},
                {"PRORES_4444", 'apcn'},
                {"", 'apcn'},
                {nullptr, 'apcn'}};
    for (const auto& row : rows) {
        tnMediaRecord record = output_of();
        if (row.quality) record.SetCString("codec_quality", row.quality);
        EXPECT_EQ(fCompressor->ProResFormat(record), row.format);
    }
}

TEST_F(VideoCompressorSetUp, ASubclassThatNamesNoFormatAsksForProResAndPrintsTheRecord) {
    fCompressor->fOwnOutputFormat = false;
    tnMediaRecord output = output_of();
    output.SetCString("codec_quality", "prores_422_hq");
    create(output);
    fCompressor->SetInputFormat(video_of('2vuy'));
    // Once before the input formats are asked for, and once for good.
    EXPECT_EQ(component().fOutputFormats, (std::vector<unsigned int>{'apch', 'apch'}));
    EXPECT_TRUE(fTrace.HasLineWith({"codec_quality", "prores_422_hq"}));
}

// One that names only other formats than ProRes is offered it all the same, and its refusal is
// nothing.
TEST_F(VideoCompressorSetUp, WhatAComponentListsDoesNotKeepTheOfferFromIt) {
    component().fListsOutputs = {'h264'};
    create();
    fCompressor->SetInputFormat(video_of('2vuy'));
    EXPECT_EQ(component().fOutputFormats, (std::vector<unsigned int>{'apcn', 'h264'}));
    EXPECT_EQ(encode(), 0);
}

TEST_F(VideoCompressorSetUp, HolesInTheInputAreFilledFromTheOutput) {
    tnMediaRecord output = output_of();
    output.SetUInt64('dura', 1001);
    create(output);
    tnMediaRecord input = video_of('2vuy');
    fCompressor->SetInputFormat(input);
    EXPECT_EQ(fCompressor->InputFormat().AsInt64('tmsc', -1), 30000);
    EXPECT_EQ(fCompressor->InputFormat().AsFloat('mfps', -1), 29.97f);
    EXPECT_EQ(fCompressor->InputFormat().AsUInt64('dura', 7), 1001u);

    // What is there stays, whatever it says.
    make();
    create(output);
    input.SetInt64('tmsc', 0);
    input.SetFloat('mfps', 0.0f);
    input.SetUInt64('dura', 0);
    fCompressor->SetInputFormat(input);
    EXPECT_EQ(fCompressor->InputFormat().AsInt64('tmsc', -1), 0);
    EXPECT_EQ(fCompressor->InputFormat().AsFloat('mfps', -1), 0.0f);
    EXPECT_EQ(fCompressor->InputFormat().AsUInt64('dura', 7), 0u);
}

// The encoder hears the source's shape with the output's times; the subclass is shown what enters.
TEST_F(VideoCompressorSetUp, TheEncoderIsToldTheSourcesShape) {
    create();
    tnMediaRecord input = video_of('I420', 1280, 720);
    input.fFieldOrder.SetInt32(2);
    input.fNominalRange.SetInt32('full');
    fCompressor->SetInputFormat(input);
    ASSERT_EQ(component().fInputs.size(), 1u) << "the first offer is not the component's to refuse";
    const CVideoProperties& told = *component().fInputs[0];
    EXPECT_EQ(told.GetFormat(), static_cast<unsigned int>('I420'));
    EXPECT_EQ(told.GetWidth(), 1280);
    EXPECT_EQ(told.GetHeight(), 720);
    EXPECT_EQ(const_cast<CVideoProperties&>(told).GetTimescale(), 30000);
    EXPECT_EQ(told.GetFrameDuration(), 1001);
    EXPECT_EQ(told.GetFrameRate(), (Rational<long long>{30000, 1001}));
    EXPECT_EQ(told.GetFieldOrder(), 1);
    EXPECT_EQ(told.GetVideoRange(), 1);
    EXPECT_EQ(told.GetColorSpace(), ColorSpace::BT601N) << "the output has no height";

    const CVideoProperties& entering = *fCompressor->fEntering;
    EXPECT_EQ(entering.GetFormat(), static_cast<unsigned int>('I420'));
    EXPECT_EQ(entering.GetFieldOrder(), 2);
    EXPECT_EQ(entering.GetVideoRange(), 2);
    EXPECT_EQ(entering.GetColorSpace(), ColorSpace::BT709) << "the input has";
}

// The duration is worked out at 30 a second, but the rate is divided by what the record says.
TEST_F(VideoCompressorSetUp, AnOutputWithoutARateHasAFrameDurationAndNoRate) {
    tnMediaRecord output = output_of();
    output.RemoveID('mfps');
    create(output);
    fCompressor->SetInputFormat(video_of('2vuy'));
    ASSERT_EQ(component().fInputs.size(), 1u);
    EXPECT_EQ(component().fInputs[0]->GetFrameDuration(), 1000);
    EXPECT_EQ(component().fInputs[0]->GetFrameRate(), (Rational<long long>{30000, 0}));
}

// Frame durations are in the source's ticks, and lose their fraction: 1000 / 23.976 = 41.708.
TEST_F(VideoCompressorSetUp, AFramesDurationIsInTheSourcesTicks) {
    tnMediaRecord output = output_of();
    output.SetFloat('mfps', 23.976f);
    create(output);
    tnMediaRecord input = video_of('2vuy');
    input.SetInt64('tmsc', 1000);
    fCompressor->SetInputFormat(input);
    ASSERT_EQ(component().fInputs.size(), 1u);
    EXPECT_EQ(component().fInputs[0]->GetFrameDuration(), 41);
    EXPECT_EQ(component().fInputs[0]->GetTimescale(), 30000);
    EXPECT_EQ(component().fInputs[0]->GetFrameRate(), (Rational<long long>{30000, 1251}));
}

TEST_F(VideoCompressorSetUp, PutsAConverterInFrontWhereThereIsNoFormatInCommon) {
    create();
    fCompressor->SetInputFormat(video_of('NV12'));
    EXPECT_EQ(fCompressor->fConfigureError, 0);
    EXPECT_TRUE(fCompressor->fNeedsConversion);
    EXPECT_EQ(fConverters.Made(), 1);
    EXPECT_EQ(fConverting.begun, 1);
    EXPECT_EQ(fConverting.input->GetFormat(), static_cast<unsigned int>('NV12'));
    EXPECT_EQ(fConverting.input->GetWidth(), kWidth);
    EXPECT_EQ(fConverting.numbers["MediaFilter::OutputFormat"], 'UYVY') << "its first";
    EXPECT_EQ(fCompressor->fEntering->GetFormat(), static_cast<unsigned int>('UYVY'));
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(component().fFrames.size(), 1u);

    // Configured again, with a format that the encoder takes: the converter goes without an End.
    fCompressor->SetInputFormat(video_of('2vuy'));
    EXPECT_FALSE(fCompressor->fConverter);
    EXPECT_FALSE(fCompressor->fNeedsConversion);
    EXPECT_EQ(fConverting.ended, 0);
    EXPECT_EQ(component().fBegun, 2);
}

TEST_F(VideoCompressorSetUp, AnEncoderThatNamesNoFormatGetsNone) {
    component().fInputFormats = {};
    fConverting.refused = {"MediaFilter::OutputFormat"};
    create();
    fCompressor->SetInputFormat(video_of('2vuy'));
    EXPECT_EQ(encode(), -1039);
}

TEST_F(VideoCompressorSetUp, ALackOfFormatsIsNoFormat) {
    create();
    EXPECT_EQ(fCompressor->encoder_input_format_for_colorspace('I420'),
              static_cast<unsigned int>('I420'));
    EXPECT_EQ(fCompressor->encoder_input_format_for_colorspace('NV12'),
              static_cast<unsigned int>('UYVY'));
    component().fInputFormats = {};
    EXPECT_EQ(fCompressor->encoder_input_format_for_colorspace('UYVY'), 0u);
    component().fListsNoInputs = true;
    EXPECT_EQ(fCompressor->encoder_input_format_for_colorspace('UYVY'), 0u);
}

TEST_F(VideoCompressorSetUp, AnyResultThatIsNoFailureIsABeginning) {
    EXPECT_EQ(fCompressor->encode_began(Result(0)), 0);
    EXPECT_EQ(fCompressor->encode_began(Result(1)), 0);
    EXPECT_EQ(fCompressor->encode_began(Result(-1)), -1043);
    EXPECT_EQ(fCompressor->encode_began(Result(-77)), -1043);
}

TEST_F(VideoCompressorSetUp, EveryFailureIsTheAnswerToEachFrame) {
    using Self = VideoCompressorSetUp;
    struct Row {
        const char* what;
        int code;
        unsigned int component;
        unsigned int raster;
        void (*arrange)(Self&);
        int converterEnded;
        int encoderEnded;
    };
    const Row rows[] = {
        {"NVENC refuses the output", -1034, 'nven', '2vuy',
         [](Self& self) { self.component().fRefuseOutput = true; }, 0, 1},
        {"no such raster", -1037, 'test', 'gry8', [](Self&) {}, 0, 1},
        {"converter refuses the input", -1038, 'test', 'NV12',
         [](Self& self) { self.fConverting.failInput = true; }, 1, 1},
        {"converter refuses the output", -1039, 'test', 'NV12',
         [](Self& self) { self.fConverting.refused = {"MediaFilter::OutputFormat"}; }, 1, 1},
        {"converter does not begin", -1040, 'test', 'NV12',
         [](Self& self) { self.fConverting.failBegin = true; }, 1, 1},
        {"encoder refuses the input", -1041, 'test', 'NV12',
         [](Self& self) { self.component().fRefuseInput = true; }, 1, 1},
        {"encoder refuses the output", -1042, 'test', '2vuy',
         [](Self& self) { self.component().fRefuseOutput = true; }, 0, 1},
        {"encoder does not begin", -1043, 'test', '2vuy',
         [](Self& self) { self.component().fRefuseBegin = true; }, 0, 1},
        {"the subclass", -77, 'test', 'NV12',
         [](Self& self) { self.fCompressor->fInputCode = -77; }, 1, 1},
        {"the subclass, above 0", 5, 'test', '2vuy',
         [](Self& self) { self.fCompressor->fInputCode = 5; }, 0, 1},
        // last, since the converter stays away from then on
        {"no converter", -1031, 'test', 'NV12', [](Self& self) { self.fConverters.GiveNull(); }, 0,
         1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        fConverting.failInput = fConverting.failBegin = false;
        fConverting.refused.clear();
        fConverting.ended = 0;
        make(row.component);
        row.arrange(*this);
        ASSERT_EQ(create(), 0);
        const RObject<Encoder> encoder = fCompressor->fComponent;
        EXPECT_EQ(fCompressor->SetInputFormat(video_of(row.raster)), 0);
        EXPECT_EQ(encode(), row.code);
        EXPECT_EQ(encode(), row.code);
        EXPECT_EQ(fCompressor->ConfigurationError(), row.code);
        EXPECT_FALSE(fCompressor->fEncoder) << "torn down";
        EXPECT_FALSE(fCompressor->fConverter);
        EXPECT_EQ(encoder->fEnded, row.encoderEnded);
        EXPECT_EQ(fConverting.ended, row.converterEnded);
        EXPECT_TRUE(encoder->fFrames.empty());
        // A second set-up forgets the code, and finds no encoder.
        fCompressor->SetInputFormat(video_of('2vuy'));
        EXPECT_EQ(encode(), -1044);
        EXPECT_EQ(fCompressor->ConfigurationError(), -1044);
    }
}

TEST_F(VideoCompressorSetUp, WithoutAnEncoderFramesAreAnsweredSo) {
    fCompressor->fWithoutEncoder = true;
    EXPECT_EQ(create(), 0);
    EXPECT_EQ(encode(), -1044) << "before SetInputFormat";
    EXPECT_EQ(fCompressor->ConfigurationError(), 0) << "nobody has asked for anything yet";
    EXPECT_EQ(fCompressor->SetInputFormat(video_of('gry8')), 0);
    EXPECT_EQ(encode(), -1044);
    EXPECT_EQ(fCompressor->ConfigurationError(), -1044);

    make();
    fCompressor->fWithoutEncoder = true;
    fCompressor->fCreateResult = -77;
    EXPECT_EQ(create(), -77);
    EXPECT_EQ(fCompressor->ConfigurationError(), -1044) << "it never comes to SetInputFormat";
    fCompressor->fWithoutEncoder = false;
    fCompressor->fCreateResult = 0;
    EXPECT_EQ(create(), 0);
    fCompressor->SetInputFormat(video_of('2vuy'));
    EXPECT_EQ(fCompressor->ConfigurationError(), 0);
}

TEST_F(VideoCompressorSetUp, TellsWhatItConfigures) {
    create(output_of("x264"));
    tnMediaRecord input = video_of('yuvs', 1280, 720);
    input.SetBool("has_cpu_buffers", true);
    fCompressor->SetInputFormat(input);
    EXPECT_TRUE(fTrace.HasLineWith(
        {"Configuring Encoder: x264 1280x720, colorspace: 422 YUY2, HasGPUBuffer: false, "
         "HasCPUBuffer: true D3D9 Vendor: <unknown>\n"}));
    EXPECT_TRUE(fTrace.HasLineWith({"Encoder configured successfully: x264\n"}));

    const struct {
        unsigned int raster;
        const char* label;
    } rows[] = {{'rgb ', "colorspace: RGBA,"},
                {'rgba', "colorspace: RGBA,"},
                {'2vuy', "colorspace: 422 UYVY,"},
                {'I420', "colorspace: I420,"},
                {'NV12', "colorspace: NV12,"}};
    for (const auto& row : rows) {
        make();
        create();
        TraceCatcher trace;
        input = video_of(row.raster);
        input.SetBool("output_gpu_rgb", true);
        input.SetCString("D3D9AdapterVendor", "maker");
        fCompressor->SetInputFormat(input);
        EXPECT_TRUE(trace.HasLineWith({row.label, "HasGPUBuffer: true", "Vendor: maker\n"}));
    }
}

TEST_F(VideoCompressorSetUp, AFailureIsStoredAndNotTraced) {
    component().fRefuseBegin = true;
    create();
    fCompressor->SetInputFormat(video_of('2vuy'));
    EXPECT_EQ(fTrace.Count(), 1);
    EXPECT_TRUE(fTrace.HasLineWith({"Configuring Encoder"}));
}

/// A sink that cannot take what it is given.
class BrokenTrace : public zTraceManager {
public:
    BrokenTrace() : fBefore(zTraceManager::SetDefault(this)) {}
    ~BrokenTrace() override { zTraceManager::SetDefault(fBefore); }
    void TraceMessage(int, const std::string& text) override {
        if (text.starts_with("zTrace")) {
            fLines.push_back(text);
        } else if (text.starts_with("Configuring")) {
            throw std::runtime_error("disk full");
        } else {
            throw 5;
        }
    }
    std::vector<std::string> fLines;

private:
    zTraceManager* fBefore;
};

TEST_F(VideoCompressorSetUp, TracingNeverStopsIt) {
    create();
    const BrokenTrace trace;
    fCompressor->SetInputFormat(video_of('2vuy'));
    EXPECT_EQ(trace.fLines,
              (std::vector<std::string>{"zTrace 'disk full'\n", "zTrace Unknown Assertion\n"}));
    EXPECT_EQ(encode(), 0);
}

TEST_F(VideoCompressorSetUp, PadsAStrictRateOnlyForAComponentThatCannot) {
    const struct {
        bool strict;
        bool canPad;
        bool pads;
    } rows[] = {{true, true, false}, {true, false, true}, {false, false, false}};
    for (const auto& row : rows) {
        make();
        fCompressor->fCanPad = row.canPad;
        tnMediaRecord output = output_of();
        output.SetBool("strict_cbr", row.strict);
        output.SetInt32('mtbr', 2000);
        create(output);
        fCompressor->SetInputFormat(video_of('2vuy'));
        EXPECT_EQ(fCompressor->fPadForStrictCBR, row.pads);
        EXPECT_EQ(fCompressor->fTargetBytesPerSecond, 250000u);
        EXPECT_EQ(fCompressor->fBytesThisSecond, 0u);
    }
}

TEST_F(VideoCompressorSetUp, TakesTheDecoderDescriptionWhenTheEncoderBegins) {
    component().fOutput = AvcOutput();
    create();
    fCompressor->SetInputFormat(video_of('2vuy'));
    zBuffer description;
    ASSERT_EQ(fCompressor->GetDecoderDescription(description), 0);
    EXPECT_EQ(description.Data(), fCompressor->fDecoderDescription->Data()) << "no copy";
    const auto info = fCompressor->DecoderInfo();
    ASSERT_NE(info, nullptr);
    ASSERT_GT(info->size(), 7u);
    EXPECT_EQ((*info)[0], 1) << "an avcC record";
}

TEST_F(VideoCompressorSetUp, ADescriptionThatIsNotReadyStaysEmpty) {
    component().fOutput = RObject<CVideoProperties>(new CVideoProperties(nullptr));
    create();
    fCompressor->SetInputFormat(video_of('2vuy'));
    zBuffer description;
    EXPECT_EQ(fCompressor->GetDecoderDescription(description), 0);
    EXPECT_EQ(description.Size(), 0u);
    component().fOutput = AvcOutput();
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(fCompressor->GetDecoderDescription(description), 0);
    EXPECT_EQ(description.Size(), 0u) << "never made again";
}

TEST_F(VideoCompressorSetUp, OtherCodecsHaveNoDescription) {
    component().fOutput = AvcOutput();
    create(output_of("ProRes"));
    fCompressor->SetInputFormat(video_of('2vuy'));
    zBuffer description;
    EXPECT_EQ(fCompressor->GetDecoderDescription(description), -1);
    EXPECT_EQ(encode(), 0);
    EXPECT_EQ(fCompressor->DecoderInfo(), nullptr);
}

TEST_F(VideoCompressorSetUp, TheEndEndsBoth) {
    create();
    fCompressor->SetInputFormat(video_of('NV12'));
    const RObject<Encoder> encoder = fCompressor->fComponent;
    fCompressor.reset();
    EXPECT_EQ(encoder->fEnded, 1);
    EXPECT_EQ(fConverting.ended, 1);
    EXPECT_FALSE(encoder->IsShared());
}

TEST(ProResVideoCompressor, NeedsNoComponentToBeCreated) {
    orbDoubles::Script script;
    orbDoubles::Registered<CVideoCompressor, orbDoubles::Compressor> none('vtbx', script);
    none.GiveNull();
    tnOrbProResVideoCompressor compressor;
    compressor.SetOutputFormat(output_of("ProRes"));
    EXPECT_TRUE(compressor.CreateFilter(video_of('2vuy')));
    const auto buffer = StreamBufferOf(kWidth * kHeight * 2);
    buffer->AddWritingRef();
    EXPECT_EQ(compressor.EncodeFrame(*buffer, video_of('2vuy'), 0, false, nullptr, nullptr), -1044);
}

TEST(ProResVideoCompressor, MakesTheFlavourThatIsAskedFor) {
    orbDoubles::Script script;
    const orbDoubles::Registered<CVideoCompressor, orbDoubles::Compressor> registered('vtbx',
                                                                                      script);
    tnOrbProResVideoCompressor compressor;
    tnMediaRecord output = output_of("ProRes");
    output.SetCString("codec_quality", "prores_422_lt");
    compressor.SetOutputFormat(output);
    EXPECT_TRUE(compressor.CreateFilter(video_of('2vuy')));
    EXPECT_EQ(script.numbers["MediaFilter::OutputFormat"], 'apcs');
    EXPECT_EQ(script.begun, 1);
    // Created anew: the old component goes.
    EXPECT_EQ(compressor.Create(output, output, nullptr), 0);
    EXPECT_EQ(registered.Made(), 2);
}

}  // namespace
