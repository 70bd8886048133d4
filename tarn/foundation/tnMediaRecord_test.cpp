#include "tarn/foundation/tnMediaRecord.h"

#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <memory>

#include "tarn/foundation/tnTarn.h"

namespace {

class tnMediaRecordTest : public testing::Test {
protected:
    static void SetUpTestSuite() { tnTarn::string_defines(); }
};

tnMediaRecord video(int width, int height, int raster = 0) {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.fWidth.SetInt32(width);
    record.fHeight.SetInt32(height);
    if (raster != 0) record.fColourspace.SetInt32(raster);
    return record;
}

struct Member {
    zVariable tnMediaRecord::*fMember;
    unsigned int fId;
    const char* fKey;
};

constexpr Member kMembers[] = {
    {&tnMediaRecord::fType, 'type', "type"},
    {&tnMediaRecord::fWidth, 'mwid', "tn_width"},
    {&tnMediaRecord::fHeight, 'mhei', "tn_height"},
    {&tnMediaRecord::fColourspace, 'mcol', "colourspace"},
    {&tnMediaRecord::fFieldOrder, 'mfod', "field_order"},
    {&tnMediaRecord::fColorSpace, 'mcsp', "color_space"},
    {&tnMediaRecord::fNominalRange, 'mnmr', "nominal_range"},
    {&tnMediaRecord::fBytesPerRow, 'mbpr', "bpr"},
    {&tnMediaRecord::fAudioFormat, 'mafo', "audioformat"},
    {&tnMediaRecord::fBitsPerSample, 'mbps', "bps"},
    {&tnMediaRecord::fBusses, 'mcbu', "busses"},
    {&tnMediaRecord::fChannels, 'mcha', "channels"},
    {&tnMediaRecord::fSampleRate, 'msmr', "samplerate"},
};

TEST_F(tnMediaRecordTest, FreshRecordSaysNothing) {
    const tnMediaRecord record;
    EXPECT_EQ(record.ToCompactFormatString(), "");
    EXPECT_EQ(record.CalculateBufferSize(1), 0);
    EXPECT_EQ(record.GuessColorSpace(), 'r601');
    EXPECT_EQ(record.GuessNominalRange(), 'full');
    EXPECT_FALSE(record.IsPALFrameRate());
    EXPECT_FALSE(record.CodecRequiresCpuBuffers());
    EXPECT_TRUE(record.IsEmpty());
    for (const Member& member : kMembers) EXPECT_FALSE((record.*member.fMember).IsSet());
}

TEST_F(tnMediaRecordTest, RecordOfATypeAloneHasNoTextAndNoSize) {
    for (const tnMediaType type : {TN_MEDIA_VIDEO, TN_MEDIA_AUDIO}) {
        SCOPED_TRACE(static_cast<int>(type));
        tnMediaRecord record(type);
        EXPECT_EQ(record.ToCompactFormatString(), "");
        EXPECT_EQ(record.CalculateBufferSize(1), 0);
        int channelWidth = 640;
        int channelHeight = 480;
        int canvasWidth = 320;
        int canvasHeight = 200;
        float ratio = 3.0f;
        record.AlignChannelAndCanvasCoordinates(&channelWidth, &channelHeight, &canvasWidth,
                                                &canvasHeight, &ratio);
        EXPECT_EQ(canvasWidth, 640);
        EXPECT_EQ(canvasHeight, 480);
        EXPECT_FLOAT_EQ(ratio, 3.0f - (1.0f - (640.0f / 480.0f) / (320.0f / 200.0f)) * 3.0f);
        record.SetBytesPerRowBasedOnFormat();
        EXPECT_EQ(record.fBytesPerRow.AsInt32(-1), 0);
    }
}

TEST_F(tnMediaRecordTest, EachSizeThatIsUnsetReadsAsNone) {
    // All that an operation needs but one, which counts as nothing.
    tnMediaRecord picture = video(640, 360, 'gry8');
    picture.fWidth.Unset();
    EXPECT_EQ(picture.ToCompactFormatString(), "");
    EXPECT_EQ(picture.CalculateBufferSize(1), 0);
    picture.SetBytesPerRowBasedOnFormat();
    EXPECT_EQ(picture.fBytesPerRow.AsInt32(-1), 0);
    picture = video(640, 360, 'gry8');
    picture.fHeight.Unset();
    EXPECT_EQ(picture.ToCompactFormatString(), "");
    EXPECT_EQ(picture.CalculateBufferSize(1), 0);
    picture = video(640, 360);
    EXPECT_EQ(picture.CalculateBufferSize(1), 0);
    picture.SetBytesPerRowBasedOnFormat();
    EXPECT_EQ(picture.fBytesPerRow.AsInt32(-1), 0);

    tnMediaRecord sound(TN_MEDIA_AUDIO);
    sound.MakeDefaultAudioFormat();
    sound.fSampleRate.Unset();
    EXPECT_EQ(sound.ToCompactFormatString(), "");
    sound.MakeDefaultAudioFormat();
    sound.fChannels.Unset();
    EXPECT_EQ(sound.ToCompactFormatString(), "");
    EXPECT_EQ(sound.CalculateBufferSize(1), 0);
    sound.MakeDefaultAudioFormat();
    sound.fBusses.Unset();
    EXPECT_EQ(sound.CalculateBufferSize(1), 4);  // but one bus
}

TEST_F(tnMediaRecordTest, TypeIsTheOnlyThingThatItsConstructorSets) {
    const tnMediaRecord record(TN_MEDIA_AUDIO);
    EXPECT_EQ(record.fType.AsInt32(0), 0x6175646F);
    EXPECT_EQ(record.fType.Kind(), ZV_INT32);
    EXPECT_EQ(record.VariableCount(), 1u);
    EXPECT_EQ(static_cast<int>(TN_MEDIA_VIDEO), 0x7669646F);
}

TEST_F(tnMediaRecordTest, MembersAreReachedByIdAndByKey) {
    for (const Member& member : kMembers) {
        SCOPED_TRACE(member.fKey);
        tnMediaRecord record;
        record.SetInt32(static_cast<unsigned long long>(member.fId), 7, 0);
        EXPECT_EQ((record.*member.fMember).AsInt32(0), 7);
        EXPECT_EQ(record.AsInt32(member.fKey, 0), 7);
        record.SetInt32(member.fKey, 8, 0);
        EXPECT_EQ((record.*member.fMember).AsInt32(0), 8);
        (record.*member.fMember).SetInt32(9);
        EXPECT_EQ(record.AsInt32(static_cast<unsigned long long>(member.fId), 0), 9);
        EXPECT_EQ(record.VariableCount(), 1u);
    }
}

TEST_F(tnMediaRecordTest, SettingAMemberReplacesATextThatItHeld) {
    tnMediaRecord record;
    record.SetCString('mwid', "a text that is long enough to stand on the heap", 0);
    EXPECT_EQ(record.fWidth.Kind(), ZV_STRING);
    EXPECT_EQ(record.fWidth.AsInt32(-5), -5);
    record.fWidth.SetInt32(1920);
    EXPECT_EQ(record.fWidth.Kind(), ZV_INT32);
    EXPECT_EQ(record.AsInt32('mwid', 0), 1920);
}

TEST_F(tnMediaRecordTest, CopiesCarryMembersOtherKeysAndChildren) {
    tnMediaRecord source = video(1280, 720, '2vuy');
    source.SetCString('mcon', "x264", 0);
    source.AddChild(new tnMediaRecord(TN_MEDIA_AUDIO), 0x7FFFFFFF);

    const tnMediaRecord copy(source);
    tnMediaRecord assigned;
    assigned.fSampleRate.SetInt32(48000);
    assigned = source;
    const tnMediaRecord fromPlain(static_cast<const zRecord&>(source));
    for (const tnMediaRecord* record : {&copy, &std::as_const(assigned), &fromPlain}) {
        EXPECT_EQ(record->fWidth.AsInt32(0), 1280);
        EXPECT_EQ(record->AsInt32("tn_height", 0), 720);
        EXPECT_STREQ(record->AsCString('mcon', nullptr, nullptr), "x264");
        EXPECT_EQ(record->ChildCount(), 1u);
        EXPECT_NE(record->Child(0), source.Child(0));
        EXPECT_FALSE(record->fSampleRate.IsSet());  // what the source lacks is unset
    }
    source.SetCString('mcon', "MJPEG", 0);
    EXPECT_STREQ(copy.AsCString('mcon', nullptr, nullptr), "x264");
}

TEST_F(tnMediaRecordTest, AssignmentCopiesTextsInMembersDeeplyAndSurvivesItself) {
    tnMediaRecord source;
    source.fWidth.SetCString("1920");
    tnMediaRecord target;
    target.fWidth.SetCString("another");
    EXPECT_EQ(&(target = source), &target);
    source.fWidth.SetCString("640 or so");
    EXPECT_EQ(target.fWidth.AsInt32(0), 1920);
    EXPECT_TRUE(target.fWidth.IsPlaced());
    const tnMediaRecord& same = target;
    target = same;
    EXPECT_EQ(target.fWidth.AsInt32(0), 1920);
}

TEST_F(tnMediaRecordTest, ARecordMayBecomeOneOfItsOwnDescendantsOrItsParent) {
    const auto family = [] {
        auto* grandchild = new tnMediaRecord(TN_MEDIA_AUDIO);
        grandchild->fChannels.SetInt32(6);
        auto* child = new tnMediaRecord(video(640, 360));
        child->fColorSpace.SetCString("a text that is long enough to stand on the heap");
        child->SetCString('mcon', "MJPEG", 0);
        child->AddChild(grandchild, 0x7FFFFFFF);
        tnMediaRecord parent = video(1280, 720, '2vuy');
        parent.AddChild(child, 0x7FFFFFFF);
        parent.AddChild(new zRecord, 0x7FFFFFFF);
        // A copy's children would be plain records.
        auto made = std::make_unique<tnMediaRecord>();
        made->TakeFrom(parent);
        return made;
    };
    const auto child_of = [](tnMediaRecord& record) -> tnMediaRecord& {
        return dynamic_cast<tnMediaRecord&>(*record.Child(0));
    };

    std::unique_ptr<tnMediaRecord> record = family();
    *record = child_of(*record);
    EXPECT_EQ(record->Description(), family()->Child(0)->Description());
    EXPECT_EQ(record->fWidth.AsInt32(0), 640);
    EXPECT_FALSE(record->fColourspace.IsSet());
    EXPECT_STREQ(record->fColorSpace.AsCString(nullptr),
                 "a text that is long enough to stand on the heap");
    EXPECT_EQ(record->ChildCount(), 1u);

    record = family();
    *record = child_of(child_of(*record));
    EXPECT_EQ(record->fChannels.AsInt32(0), 6);
    EXPECT_FALSE(record->HasChildren());

    record = family();
    child_of(*record) = *record;
    EXPECT_EQ(child_of(*record).fWidth.AsInt32(0), 1280);
    EXPECT_EQ(child_of(*record).Child(0)->AsInt32('mwid', 0), 640);
}

TEST_F(tnMediaRecordTest, PlainRecordGoesIntoTheMembers) {
    zRecord plain;
    plain.SetInt32('mwid', 640, 0);
    plain.SetInt64('tmsc', 30000, 0);
    const tnMediaRecord record(plain);
    EXPECT_EQ(record.fWidth.AsInt32(0), 640);
    EXPECT_EQ(record.AsInt64('tmsc', 0), 30000);
}

TEST_F(tnMediaRecordTest, FirstChildOfATypeIsFound) {
    zRecord parent;
    auto* plain = new zRecord;
    auto* first = new zRecord;  // any record with that type counts
    first->SetInt32('type', TN_MEDIA_VIDEO, 0);
    first->SetInt32('mwid', 1, 0);
    auto* second = new tnMediaRecord(TN_MEDIA_VIDEO);
    second->fWidth.SetInt32(2);
    parent.AddChild(nullptr, 0x7FFFFFFF);
    parent.AddChild(plain, 0x7FFFFFFF);
    parent.AddChild(first, 0x7FFFFFFF);
    parent.AddChild(second, 0x7FFFFFFF);

    tnMediaRecord out(TN_MEDIA_AUDIO);
    EXPECT_EQ(tnMediaRecord::FindFirstByType(parent, TN_MEDIA_VIDEO, out), 0);
    EXPECT_EQ(out.fWidth.AsInt32(0), 1);
    zRecord* child = plain;
    EXPECT_EQ(tnMediaRecord::FindFirstByType(parent, TN_MEDIA_VIDEO, &child), 0);
    EXPECT_EQ(child, first);
}

TEST_F(tnMediaRecordTest, MissingTypeIsSaidAndLeavesTheTarget) {
    const zRecord parent;
    tnMediaRecord out = video(5, 5);
    EXPECT_EQ(tnMediaRecord::FindFirstByType(parent, TN_MEDIA_AUDIO, out), -1021);
    EXPECT_EQ(out.fWidth.AsInt32(0), 5);
    zRecord* child = &out;
    EXPECT_EQ(tnMediaRecord::FindFirstByType(parent, TN_MEDIA_AUDIO, &child), -1021);
    EXPECT_EQ(child, nullptr);
    EXPECT_EQ(tnMediaRecord::FindFirstByType(parent, TN_MEDIA_AUDIO, nullptr), -22);
}

TEST_F(tnMediaRecordTest, FindingTheTargetItselfCopiesNothing) {
    zRecord parent;
    auto* child = new tnMediaRecord(TN_MEDIA_VIDEO);
    child->SetCString('mcon', "x264", 0);
    const char* text = child->AsCString('mcon', nullptr, nullptr);
    parent.AddChild(child, 0x7FFFFFFF);
    EXPECT_EQ(tnMediaRecord::FindFirstByType(parent, TN_MEDIA_VIDEO, *child), 0);
    EXPECT_EQ(child->AsCString('mcon', nullptr, nullptr), text);
}

TEST_F(tnMediaRecordTest, BytesPerRowFollowsTheFormatWhateverItWas) {
    tnMediaRecord record = video(1000, 2, 'I420');
    record.fBytesPerRow.SetInt32(4711);
    record.SetBytesPerRowBasedOnFormat();
    EXPECT_EQ(record.fBytesPerRow.AsInt32(0), 1024);
    record.fWidth.SetInt32(1030);
    record.SetBytesPerRowBasedOnFormat();
    EXPECT_EQ(record.fBytesPerRow.AsInt32(0), 1088);  // to whole 64 bytes, not 128
    record.fColourspace.SetInt32('BGRA');
    record.SetBytesPerRowBasedOnFormat();
    EXPECT_EQ(record.fBytesPerRow.AsInt32(-1), 0);
}

struct Canvas {
    const char* fWhat;
    int fWidth, fHeight, fChannelWidth, fChannelHeight, fCanvasWidth, fCanvasHeight;
    float fRatio;
    int fNewWidth, fNewHeight;
    float fNewRatio;
};

void expect_aligned(const Canvas& canvas) {
    SCOPED_TRACE(canvas.fWhat);
    tnMediaRecord record = video(canvas.fWidth, canvas.fHeight);
    int channelWidth = canvas.fChannelWidth;
    int channelHeight = canvas.fChannelHeight;
    int canvasWidth = canvas.fCanvasWidth;
    int canvasHeight = canvas.fCanvasHeight;
    float ratio = canvas.fRatio;
    record.AlignChannelAndCanvasCoordinates(&channelWidth, &channelHeight, &canvasWidth,
                                            &canvasHeight, &ratio);
    EXPECT_EQ(canvasWidth, canvas.fNewWidth);
    EXPECT_EQ(canvasHeight, canvas.fNewHeight);
    if (std::isnan(canvas.fNewRatio)) {
        EXPECT_TRUE(std::isnan(ratio)) << ratio;
    } else {
        EXPECT_FLOAT_EQ(ratio, canvas.fNewRatio);
    }
    EXPECT_EQ(channelWidth, canvas.fChannelWidth);
    EXPECT_EQ(channelHeight, canvas.fChannelHeight);
}

TEST_F(tnMediaRecordTest, CanvasFollowsARecordOfWholeMacroblocks) {
    const float wide = 16.0f / 9.0f;
    const Canvas kCanvases[] = {
        {"neither side is a multiple of 16", 1001, 721, 4, 3, 640, 480, 2.0f, 640, 480, 2.0f},
        {"width is", 1280, 721, 0, 0, 640, 480, 2.0f, 1280, 721, 2.0f},
        {"height is", 1001, 720, 0, 0, 640, 480, 2.0f, 1001, 720, 2.0f},
        {"same shape keeps the ratio", 1280, 720, 640, 480, 320, 240, 2.0f, 1280, 720, 2.0f},
        {"another shape corrects it", 1280, 720, 1600, 900, 640, 480, 1.0f, 1280, 720,
         1.0f - (1.0f - wide / (640.0f / 480.0f))},
        {"no size takes the channel's", 0, 0, 640, 480, 320, 240, 1.0f, 640, 480, 1.0f},
        {"no size and no channel gives the canvas' shape", 0, 0, 0, 0, 640, 480, 9.0f, 640, 480,
         640.0f / 480.0f},
        {"no height gives the canvas' shape", 1280, 0, 4, 3, 640, 480, 9.0f, 640, 480,
         640.0f / 480.0f},
        {"no width gives the canvas' shape", 0, 720, 4, 3, 640, 480, 9.0f, 640, 480,
         640.0f / 480.0f},
    };
    for (const Canvas& canvas : kCanvases) expect_aligned(canvas);
}

TEST_F(tnMediaRecordTest, CanvasOrRatioWithoutAShapeGoesByTheRulesOfFloats) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const float none = std::nanf("");
    const Canvas kCanvases[] = {
        {"canvas without a size", 1280, 720, 1600, 900, 0, 0, 2.0f, 1280, 720, none},
        {"canvas without a height", 1280, 720, 1600, 900, 640, 0, 2.0f, 1280, 720, 0.0f},
        {"canvas without a width", 1280, 720, 1600, 900, 0, 480, 2.0f, 1280, 720, kInfinity},
        {"no channel asks no canvas", 1280, 720, 0, 900, 0, 0, 2.0f, 1280, 720, 2.0f},
        {"nothing anywhere", 0, 0, 0, 0, 0, 0, 2.0f, 0, 0, none},
        {"no height and a flat canvas", 1280, 0, 4, 3, 640, 0, 2.0f, 640, 0, kInfinity},
        {"ratio that is no number", 1280, 720, 1600, 900, 640, 480, none, 1280, 720, none},
        {"negative width", -16, 16, 0, 0, 640, 480, 2.0f, -16, 16, 2.0f},
        {"negative height", 16, -16, 4, 3, 640, 480, 2.0f, 640, 480, 640.0f / 480.0f},
    };
    for (const Canvas& canvas : kCanvases) expect_aligned(canvas);
}

TEST_F(tnMediaRecordTest, MatrixIsGuessedByHeight) {
    EXPECT_EQ(video(1, 719).GuessColorSpace(), 'r601');
    EXPECT_EQ(video(1, 720).GuessColorSpace(), 'r709');
}

TEST_F(tnMediaRecordTest, RangeIsGuessedByRaster) {
    EXPECT_EQ(video(1, 1, '2vuy').GuessNominalRange(), 'limt');
    EXPECT_EQ(video(1, 1, 'YM16').GuessNominalRange(), 'limt');
    EXPECT_EQ(video(1, 1, 'rgba').GuessNominalRange(), 'full');
    EXPECT_EQ(video(1, 1, 'gry8').GuessNominalRange(), 'full');
}

TEST_F(tnMediaRecordTest, PALIsAskedOfTimescaleAndDurationFirst) {
    struct Rate {
        long long fTimescale;
        unsigned long long fDuration;
        bool fPAL;
    };
    constexpr Rate kRates[] = {
        {25, 1, true},
        {50, 1, true},
        {30000, 1001, false},
        {60, 1, false},
        {1, 2, true},  // a duration above the timescale: no whole frames a
                       // second
        {25000, 1000, true},
        {24, 1, false},
        {9223372036854775807, 1, false},
    };
    for (const Rate& rate : kRates) {
        SCOPED_TRACE(rate.fTimescale);
        tnMediaRecord record;
        record.SetInt64('tmsc', rate.fTimescale, 0);
        record.SetUInt64('dura', rate.fDuration, 0);
        record.SetFloat('mfps', rate.fPAL ? 30.0f : 25.0f, 0);  // does not count
        EXPECT_EQ(record.IsPALFrameRate(), rate.fPAL);
    }
}

TEST_F(tnMediaRecordTest, TimescaleThatIsNotAboveNothingDoesNotCount) {
    // Divided by the duration each of these would be a multiple of 25.
    for (const int timescale : {0, -25}) {
        SCOPED_TRACE(timescale);
        tnMediaRecord record;
        record.SetUInt64('dura', 1, 0);
        record.SetFloat('mfps', 30.0f, 0);
        EXPECT_FALSE(record.IsPALFrameRate());  // unset
        record.SetInt64('tmsc', timescale, 0);
        EXPECT_FALSE(record.IsPALFrameRate());
        record.SetFloat('mfps', 25.0f, 0);
        EXPECT_TRUE(record.IsPALFrameRate());
    }
}

TEST_F(tnMediaRecordTest, PALIsElseAskedOfTheFrameRate) {
    const std::pair<float, bool> kRates[] = {
        {25.0f, true},   {50.0f, true},   {30.0f, false},
        {29.97f, false}, {10.0f, false},  {12.5f, false},
        {24.0f, true},   {23.976f, true}, {15.0f, true},
        {0.0f, false},   {-25.0f, false}, {std::numeric_limits<float>::quiet_NaN(), false},
        {25.009f, true}, {25.02f, false},
    };
    for (const auto& [fps, pal] : kRates) {
        SCOPED_TRACE(fps);
        tnMediaRecord record;
        record.SetFloat('mfps', fps, 0);
        EXPECT_EQ(record.IsPALFrameRate(), pal);
        record.SetInt64('tmsc', 30, 0);
        record.SetUInt64('dura', 0x8000000000000000ull, 0);  // negative as a signed number
        EXPECT_EQ(record.IsPALFrameRate(), pal);
    }
}

TEST_F(tnMediaRecordTest, VideoBufferSize) {
    EXPECT_EQ(video(1920, 1080, 'I420').CalculateBufferSize(1), 3110400);
    EXPECT_EQ(video(1920, 1080, '2vuy').CalculateBufferSize(1), 4147200);
    EXPECT_EQ(video(1920, 1080, '2vuy').CalculateBufferSize(3), 3 * 4147200);
    EXPECT_EQ(video(1920, 1080, 'YM16').CalculateBufferSize(1), 4147200);
    EXPECT_EQ(video(1920, 1080, 'BGRA').CalculateBufferSize(1), 0);
    tnMediaRecord padded = video(10, 10, 'NV12');
    padded.fBytesPerRow.SetInt32(100);
    EXPECT_EQ(padded.CalculateBufferSize(2), 100 * 2 * 15);
    EXPECT_EQ(video(64, -4, 'gry8').CalculateBufferSize(1), -256);     // no test for nonsense
    EXPECT_EQ(video(65536, 65536, 'rgba').CalculateBufferSize(1), 0);  // 32 bits wrap
}

TEST_F(tnMediaRecordTest, AudioBufferSize) {
    tnMediaRecord record;
    record.MakeDefaultAudioFormat();
    EXPECT_EQ(record.CalculateBufferSize(1024), 4096);
    record.fBusses.SetInt32(3);
    EXPECT_EQ(record.CalculateBufferSize(1024), 3 * 4096);

    tnMediaRecord bare(TN_MEDIA_AUDIO);
    EXPECT_EQ(bare.CalculateBufferSize(1), 0);
    bare.fChannels.SetInt32(1);
    EXPECT_EQ(bare.CalculateBufferSize(1),
              0x6D627073 / 8);  // the unset sample size is the id itself
    bare.fBitsPerSample.SetInt32(-15);
    EXPECT_EQ(bare.CalculateBufferSize(1), -1);  // toward zero
}

TEST_F(tnMediaRecordTest, OtherTypesHaveNoSizeAndNoText) {
    tnMediaRecord record = video(16, 16, 'rgba');
    record.fType.SetInt32('text');
    EXPECT_EQ(record.CalculateBufferSize(1), 0);
    EXPECT_EQ(record.ToCompactFormatString(), "");
}

TEST_F(tnMediaRecordTest, OnlyOneEncoderTakesFramesFromElsewhere) {
    EXPECT_FALSE(tnMediaRecord::CodecRequiresCpuBuffers(nullptr));
    EXPECT_TRUE(tnMediaRecord::CodecRequiresCpuBuffers(""));
    EXPECT_TRUE(tnMediaRecord::CodecRequiresCpuBuffers("x264"));
    EXPECT_FALSE(tnMediaRecord::CodecRequiresCpuBuffers("NVidia H.264"));
    EXPECT_TRUE(tnMediaRecord::CodecRequiresCpuBuffers("NVidia H.264 "));
    EXPECT_TRUE(tnMediaRecord::CodecRequiresCpuBuffers("nvidia h.264"));
    tnMediaRecord record;
    record.SetCString('mcon', "MJPEG", 0);
    EXPECT_TRUE(record.CodecRequiresCpuBuffers());
    record.SetCString('mcon', "NVidia H.264", 0);
    EXPECT_FALSE(record.CodecRequiresCpuBuffers());
}

TEST_F(tnMediaRecordTest, DefaultAudioFormatLeavesTheSampleFormat) {
    tnMediaRecord record;
    record.fAudioFormat.SetInt32('twos');
    record.MakeDefaultAudioFormat();
    EXPECT_EQ(record.fType.AsInt32(0), static_cast<int>(TN_MEDIA_AUDIO));
    EXPECT_EQ(record.FindVariable('tmsc')->Kind(), ZV_INT64);
    EXPECT_EQ(record.AsInt64('tmsc', 0), 48000);
    EXPECT_EQ(record.fSampleRate.AsInt32(0), 48000);
    EXPECT_EQ(record.fBusses.AsInt32(0), 1);
    EXPECT_EQ(record.fChannels.AsInt32(0), 2);
    EXPECT_EQ(record.fBitsPerSample.AsInt32(0), 16);
    EXPECT_EQ(record.fAudioFormat.AsInt32(0), 'twos');
    EXPECT_EQ(record.ToCompactFormatString(), "Stereo 16 bit 48 kHz");
}

TEST_F(tnMediaRecordTest, CompactTextOfVideo) {
    struct Text {
        int fWidth, fHeight, fFieldOrder;
        float fFps;
        const char* fText;
    };
    const Text kTexts[] = {
        {1280, 720, 0, 0.0f, "1280x720p"},
        {1920, 1080, 2, 25.0f, "1920x1080i25"},
        {1920, 1080, 3, 25.0f, "1920x1080i25"},
        {1920, 1080, 1, 59.94f, "1920x1080p59.94"},
        {720, 480, 1, 29.97f, "720x480p29.97"},
        {720, 480, 5, 23.976f, "720x480p23.97"},
        {720, 480, 1, 0.009f, "720x480p"},
        {720, 480, 1, 12.5f, "720x480p12.50"},
        {720, 480, 1, -5.0f, "720x480p"},
        {720, 480, 1, 1e30f, "720x480p"},
        {0, 480, 1, 25.0f, ""},
        {720, 0, 1, 25.0f, ""},
        {-1, 480, 1, 25.0f, ""},
    };
    EXPECT_EQ(video(1280, 720).ToCompactFormatString(), "1280x720p");  // no field order, no rate
    for (const Text& text : kTexts) {
        SCOPED_TRACE(text.fText);
        tnMediaRecord record = video(text.fWidth, text.fHeight);
        record.fFieldOrder.SetInt32(text.fFieldOrder);
        record.SetFloat('mfps', text.fFps, 0);
        EXPECT_EQ(record.ToCompactFormatString(), text.fText);
    }
}

TEST_F(tnMediaRecordTest, CompactTextOfAudio) {
    struct Text {
        int fChannels, fBits, fRate;
        const char* fText;
    };
    constexpr Text kTexts[] = {
        {2, 16, 48000, "Stereo 16 bit 48 kHz"},
        {1, 16, 44100, "Mono 16 bit 44.1 kHz"},
        {6, 32, 96000, "6 ch. 32 bit 96 kHz"},
        {2, 24, 22050, "Stereo 24 bit 22.1 kHz"},
        {0, 16, 48000, ""},
        {2, 0, 48000, ""},
        {2, 16, 0, ""},
        {2, 16, -48000, ""},
    };
    for (const Text& text : kTexts) {
        SCOPED_TRACE(text.fText);
        tnMediaRecord record(TN_MEDIA_AUDIO);
        record.fChannels.SetInt32(text.fChannels);
        record.fBitsPerSample.SetInt32(text.fBits);
        record.fSampleRate.SetInt32(text.fRate);
        EXPECT_EQ(record.ToCompactFormatString(), text.fText);
    }
    tnMediaRecord unset(TN_MEDIA_AUDIO);
    unset.fChannels.SetInt32(1);
    unset.fSampleRate.SetInt32(8000);
    EXPECT_EQ(unset.ToCompactFormatString(), "Mono 1835167859 bit 8 kHz");
}

}  // namespace
