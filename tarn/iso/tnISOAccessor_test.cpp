#include "tarn/iso/tnISOAccessor.h"

#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "spar/zRecord.h"
#include "spar/zTraceManager.h"

using namespace std::string_literals;

namespace {

constexpr int kMost = std::numeric_limits<int>::max();
constexpr int kLeast = std::numeric_limits<int>::min();

/// Keeps what is traced while it lives; throws at the first message if it is told to.
class Trace : public zTraceManager {
public:
    Trace() : fBefore(zTraceManager::SetDefault(this)) {}
    ~Trace() override { zTraceManager::SetDefault(fBefore); }

    void TraceMessage(int level, const std::string& text) override {
        EXPECT_EQ(level, 'note');
        if (fThrows) {
            fThrows = false;
            throw std::runtime_error("no room");
        }
        fMessages.push_back(text);
    }

    bool fThrows = false;
    std::vector<std::string> fMessages;

private:
    zTraceManager* const fBefore;
};

zRecord with_format(const char* format) {
    zRecord record;
    if (format != nullptr) record.SetCString("video_format", format, 0);
    return record;
}

zRecord with_path(const std::string& folder, const std::string& name) {
    zRecord record;
    record.SetString("output_folder", folder, 0);
    record.SetString("output_filename", name, 0);
    return record;
}

TEST(tnISOAccessor, TagsARecordThatItMayWrite) {
    zRecord record;
    const tnISOAccessor readOnly(static_cast<const zRecord&>(record));
    EXPECT_FALSE(record.ExistsID('xTag'));
    const tnISOAccessor writable(record);
    EXPECT_STREQ(record.AsCString('xTag', ""), "iso_output");
    EXPECT_EQ(record.VariableCount(), 1u);
}

TEST(tnISOAccessor, IsAPlainView) {
    static_assert(!std::is_polymorphic_v<tnISOAccessor>);
    static_assert(std::is_trivially_copyable_v<tnISOAccessor>);
    static_assert(sizeof(tnISOAccessor) == 2 * sizeof(void*));
}

TEST(tnISOAccessor, FormatHasEitherAQualityOrARate) {
    const struct {
        const char* fFormat;
        bool fHasQuality;
    } kCases[] = {
        {"PRORES-MOV", true},  {"MJPEG-MOV", true}, {"H264-MP4", false}, {"prores-mov", false},
        {"MJPEG-MOV ", false}, {"", false},         {nullptr, false},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.fFormat != nullptr ? c.fFormat : "none");
        const zRecord record = with_format(c.fFormat);
        const tnISOAccessor accessor(record);
        EXPECT_EQ(accessor.IsVideoFormatWithQualitySetting(), c.fHasQuality);
        EXPECT_EQ(accessor.IsVideoFormatWithBitrateSetting(), !c.fHasQuality);
        EXPECT_EQ(accessor.IsVideoFormatWithKeyframeIntervalSetting(), !c.fHasQuality);
    }
}

TEST(tnISOAccessor, QualitiesBelongToTheirFormat) {
    const struct {
        const char* fFormat;
        std::vector<std::string> fOptions;
        const char* fDefault;
    } kCases[] = {
        {"PRORES-MOV",
         {"prores_422_proxy", "prores_422_lt", "prores_422", "prores_422_hq", "prores_4444"},
         "prores_422_hq"},
        {"MJPEG-MOV", {"mjpeg_low", "mjpeg_medium", "mjpeg_high", "mjpeg_best"}, "mjpeg_high"},
        {"H264-MP4", {}, ""},
        {"prores-mov", {}, ""},
        {"", {}, ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.fFormat);
        EXPECT_EQ(tnISOAccessor::DefaultVideoQualityForFormat(c.fFormat), c.fDefault);
        for (const auto& other : kCases) {
            for (const std::string& option : other.fOptions) {
                EXPECT_EQ(tnISOAccessor::IsVideoQualityOptionForFormat(c.fFormat, option),
                          &c == &other)
                    << option;
            }
        }
        for (const char* none : {"", "PRORES_422", "mjpeg_Best", "prores_42", "best"}) {
            EXPECT_FALSE(tnISOAccessor::IsVideoQualityOptionForFormat(c.fFormat, none)) << none;
        }
    }
}

TEST(tnISOAccessor, RatesAreHeldWithinTheSameLimitsForEveryFormat) {
    for (const char* format : {"PRORES-MOV", "H264-MP4", ""}) {
        const int kCases[][2] = {{kLeast, 500},      {-1, 500},          {499, 500},
                                 {500, 500},         {501, 501},         {499'999, 499'999},
                                 {500'000, 500'000}, {500'001, 500'000}, {kMost, 500'000}};
        for (const auto& [kbps, held] : kCases) {
            EXPECT_EQ(tnISOAccessor::ClampBitrateForFormat(format, kbps), held) << kbps;
        }
    }
}

TEST(tnISOAccessor, RateIsTheNumberInItsUnit) {
    const struct {
        int fNumber;
        const char* fUnits;
        int fPlain;
        int fClamped;
    } kCases[] = {
        {400, "Kbps", 400, 500},
        {500, "Kbps", 500, 500},
        {20'000, "Kbps", 20'000, 20'000},
        {600'000, "Kbps", 600'000, 500'000},
        {1, "Mbps", 1000, 1000},
        {5, nullptr, 5000, 5000},
        {600, "Mbps", 600'000, 500'000},
        {3'000'000, "Mbps", kMost, 500'000},  // does not come round as a rate below 0
        {kMost, "Mbps", kMost, 500'000},
        {4'294'968, "Mbps", kMost, 500'000},  // nor as a small one
    };
    Trace trace;
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.fNumber);
        zRecord record;
        record.SetInt32("video_bitrate", c.fNumber, 0);
        if (c.fUnits != nullptr) record.SetCString("video_bitrate_units", c.fUnits, 0);
        const tnISOAccessor accessor(static_cast<const zRecord&>(record));
        EXPECT_EQ(accessor.VideoBitrateKbps(false), c.fPlain);
        EXPECT_EQ(accessor.VideoBitrateKbps(true), c.fClamped);
    }
    const zRecord empty;
    EXPECT_EQ(tnISOAccessor(empty).VideoBitrateKbps(false), 10'000);
    zRecord onlyUnits;
    onlyUnits.SetCString("video_bitrate_units", "Kbps", 0);
    EXPECT_EQ(tnISOAccessor(onlyUnits).VideoBitrateKbps(false), 10);
    EXPECT_TRUE(trace.fMessages.empty());
}

TEST(tnISOAccessor, SenselessRateIsTracedAndIsTenMegabits) {
    const struct {
        int fNumber;
        const char* fUnits;
        const char* fMessage;
    } kCases[] = {
        {0, "Mbps", "unexpected #iso video bitrate: 0Mbps. using default.\n"},
        {-5, "Kbps", "unexpected #iso video bitrate: -5Kbps. using default.\n"},
        {5, "Gbps", "unexpected #iso video bitrate: 5Gbps. using default.\n"},
        {5, "mbps", "unexpected #iso video bitrate: 5mbps. using default.\n"},
        {5, "", "unexpected #iso video bitrate: 5. using default.\n"},
    };
    for (const auto& c : kCases) {
        for (const bool clamp : {false, true}) {
            Trace trace;
            zRecord record;
            record.SetInt32("video_bitrate", c.fNumber, 0);
            record.SetCString("video_bitrate_units", c.fUnits, 0);
            EXPECT_EQ(tnISOAccessor(record).VideoBitrateKbps(clamp), 10'000);
            EXPECT_EQ(trace.fMessages, std::vector<std::string>{c.fMessage});
        }
    }
}

TEST(tnISOAccessor, TraceThatThrowsChangesNothing) {
    Trace trace;
    trace.fThrows = true;
    zRecord record;
    record.SetInt32("video_bitrate", 0, 0);
    EXPECT_EQ(tnISOAccessor(record).VideoBitrateKbps(true), 10'000);
    EXPECT_EQ(trace.fMessages, std::vector<std::string>{"zTrace 'no room'\n"});
}

TEST(tnISOAccessor, DurationIsTheNumberInItsUnit) {
    const struct {
        int fNumber;
        const char* fUnits;
        int fPlain;
        int fClamped;
    } kCases[] = {
        {4, "hour", 14'400, 14'400},
        {2, nullptr, 7200, 7200},
        {13, "hour", 46'800, 43'200},
        {12, "hour", 43'200, 43'200},
        {90, "min", 5400, 5400},
        {5, "sec", 5, 10},
        {9, "sec", 9, 10},
        {10, "sec", 10, 10},
        {43'200, "sec", 43'200, 43'200},
        {43'201, "sec", 43'201, 43'200},
        {0, "sec", 0, 10},
        {-3, "min", -180, 10},
        {5, "day", 14'400, 14'400},
        {-5, "", 14'400, 14'400},
        {5, "Hour", 14'400, 14'400},
        {1'200'000, "hour", kMost, 43'200},
        {kLeast, "hour", kLeast, 10},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.fNumber);
        zRecord record;
        record.SetInt32("file_duration", c.fNumber, 0);
        if (c.fUnits != nullptr) record.SetCString("file_duration_units", c.fUnits, 0);
        EXPECT_EQ(tnISOAccessor(record).FileDurationSeconds(false), c.fPlain);
        EXPECT_EQ(tnISOAccessor(record).FileDurationSeconds(true), c.fClamped);
        record.SetBool("file_duration_maxed", true, 0);
        EXPECT_EQ(tnISOAccessor(record).FileDurationSeconds(false), 43'200);
        EXPECT_EQ(tnISOAccessor(record).FileDurationSeconds(true), 43'200);
    }
    const zRecord empty;
    EXPECT_EQ(tnISOAccessor(empty).FileDurationSeconds(false), 14'400);
}

TEST(tnISOAccessor, SameFolderAndNameAreOnePathCaseAside) {
    const struct {
        std::string fFolder;
        std::string fName;
        std::string fOtherFolder;
        std::string fOtherName;
        bool fIsSame;
    } kCases[] = {
        {"/media/iso", "cam1", "/media/iso", "cam1", true},
        {"/media/iso", "cam1", "/MEDIA/iso", "cam1", true},
        {"/media/iso", "Cam1", "/media/iso", "cAM1", true},
        {"/media/iso", "cam1", "/media/iso/", "cam1", false},
        {"/media/iso", "cam1", "/media/iso", "cam2", false},
        {"/media/iso", "cam1", "/media/is0", "cam1", false},
        {"/media/iso", "cam1", "/media/iso", "cam10", false},
        {"", "cam1", "", "cam1", false},
        {"/media/iso", "", "/media/iso", "", false},
        {"/media/iso", "cam1", "", "cam1", false},
        {"/media/iso", "cam1", "/media/iso", "", false},
        {"/media/iso", "caf\xC3\xA9", "/media/iso", "CAF\xC3\xA9", true},
        {"/media/iso", "caf\xC3\xA9", "/media/iso", "caf\xC3\x89", false},  // bytes, not letters
        {"/media/iso", "cam\0A"s, "/media/iso", "CAM\0a"s, true},
        {"/media/iso", "cam\0001"s, "/media/iso", "cam\0002"s, false},
        {"/media/iso", "cam"s, "/media/iso", "cam\0002"s, false},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.fFolder + " " + c.fName + " " + c.fOtherFolder + " " + c.fOtherName);
        const zRecord one = with_path(c.fFolder, c.fName);
        const zRecord other = with_path(c.fOtherFolder, c.fOtherName);
        EXPECT_EQ(tnISOAccessor(one).HasSamePath(tnISOAccessor(other)), c.fIsSame);
        EXPECT_EQ(tnISOAccessor(other).HasSamePath(tnISOAccessor(one)), c.fIsSame);
    }
    const zRecord empty;
    EXPECT_FALSE(tnISOAccessor(empty).HasSamePath(tnISOAccessor(empty)));
}

TEST(tnISOAccessor, RecordsASourceUnlessTheRecordSaysOtherwise) {
    const struct {
        const char* fType;
        bool fIsSource;
        bool fIsShot;
    } kCases[] = {{nullptr, true, false},
                  {"source", true, false},
                  {"shot", false, true},
                  {"Source", false, false},
                  {"", false, false}};
    for (const auto& c : kCases) {
        zRecord record;
        if (c.fType != nullptr) record.SetCString("recording_type", c.fType, 0);
        EXPECT_EQ(tnISOAccessor(record).IsSourceRecording(), c.fIsSource);
        EXPECT_EQ(tnISOAccessor(record).IsShotRecording(), c.fIsShot);
    }
}

}  // namespace
