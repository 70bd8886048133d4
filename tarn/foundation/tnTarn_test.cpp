#include "tarn/foundation/tnTarn.h"

#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

#include "spar/zBoot.h"
#include "spar/zErrCodeManager.h"
#include "spar/zRecord.h"
#include "spar/zStringID.h"
#include "tarn/foundation/TCache.h"
#include "tarn/replay/tnReplayManifest.h"

namespace {

struct Entered {
    unsigned long long fId = 0;
    std::string fKey;
    bool fReserved = true;
    int fResult = -1;
};

std::vector<Entered>* gEntered = nullptr;  // what is entered while somebody looks on

}  // namespace

// The linker puts this in front of the table, see tarn/CMakeLists.txt.
extern "C" int __real__ZN9zStringID3AddEyPKcb(zStringID*, unsigned long long, const char*, bool);
extern "C" int __wrap__ZN9zStringID3AddEyPKcb(zStringID* table, unsigned long long id,
                                              const char* key, bool reserved) {
    const int result = __real__ZN9zStringID3AddEyPKcb(table, id, key, reserved);
    if (gEntered != nullptr) gEntered->push_back({id, key, reserved, result});
    return result;
}

namespace {

struct Pair {
    const char* fId;
    const char* fKey;
};

unsigned long long code(const char* id) {
    unsigned long long value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(id[i]);
    return value;
}

constexpr Pair kPairs[] = {
    {"momp", "compressed"},
    {"type", "type"},
    {"tmsc", "timescale"},
    {"dura", "duration"},
    {"mtim", "time"},
    {"mqua", "quality"},
    {"mwid", "tn_width"},
    {"mhei", "tn_height"},
    {"mbpr", "bpr"},
    {"mcol", "colourspace"},
    {"mfod", "field_order"},
    {"mcsp", "color_space"},
    {"mnmr", "nominal_range"},
    {"mafo", "audioformat"},
    {"mfps", "fps"},
    {"mdiR", "display_rect"},
    {"tnSQ", "tn:sq_pixel_width"},
    {"tnSH", "tn:sq_pixel_height"},
    {"msmr", "samplerate"},
    {"mcbu", "busses"},
    {"mcha", "channels"},
    {"mbps", "bps"},
    {"mtbr", "target_bit_rate"},
    {"mlbr", "limit_bit_rate"},
    {"mpro", "profile"},
    {"mvid", "video_tracks"},
    {"maut", "audio_tracks"},
    {"mvit", "still_image_tracks"},
    {"mVMA", "multicast_video_address"},
    {"mAMA", "multicast_audio_address"},
    {"mAMT", "multicast_ttl"},
    {"mcon", "codecname"},
    {"mseq", "sequence"},
    {"mleq", "live_sequence"},
    {"mkeq", "key_sequence"},
    {"mena", "tn_enabled"},
    {"mTFn", "timestamp_filename"},
    {"mOwi", "tn_rendered_output_width"},
    {"mOhe", "tn_rendered_output_height"},
    {"mReS", "tn_restreaming"},
    {"musr", "output_username"},
    {"mpas", "output_password"},
    {"mloc", "output_location"},
    {"mloB", "output_location_with_bitrate"},
    {"mtmO", "output_nettimeout"},
    {"mtra", "output_transport"},
    {"mURL", "output_url"},
    {"mOyp", "output_type"},
    {"mObr", "output_branding"},
    {"mOen", "output_enabled"},
    {"mSSa", "output_streamingaction"},
    {"mVdP", "output_videodataport"},
    {"mAdP", "output_audiodataport"},
    {"mMTi", "output_title"},
    {"mMIn", "output_info"},
    {"mMCo", "output_copyright"},
    {"mMAu", "output_author"},
    {"mPRS", "output_presetname"},
    {"mWMp", "output_wm_pull_port"},
    {"mWpC", "output_wm_pull_connections"},
    {"mWaR", "output_wm_push_auto_remove"},
    {"mAiF", "output_autoinfilename"},
    {"tnHf", "output_hintfile"},
    {"mWIf", "output_index_asf"},
    {"tnGN", "output_display_group_name"},
    {"tnDN", "output_display_name"},
    {"aDCr", "avc_decoder_config_record"},
};

TEST(tnTarn, BootStartsAndStopsTheModule) {
    EXPECT_EQ(zBoot::StartAll(), 0);
    EXPECT_STREQ(zErrCodeManager::RangeName(-1000), "tarn errors");
    EXPECT_STRNE(zErrCodeManager::RangeName(-1001), "tarn errors");
    EXPECT_STRNE(zErrCodeManager::RangeName(-999), "tarn errors");
    EXPECT_TRUE(TCache<bool>::Exists());
    EXPECT_NE(tnReplayManifest::fManifests, nullptr);
    EXPECT_NE(tnReplayManifest::fManifestsCritical, nullptr);
    zBoot::StopAll();
    EXPECT_FALSE(TCache<bool>::Exists());
    EXPECT_EQ(tnReplayManifest::fManifests, nullptr);
    EXPECT_EQ(tnReplayManifest::fManifestsCritical, nullptr);
    EXPECT_EQ(zBoot::StartAll(), 0);  // comes up again
    zBoot::StopAll();
}

TEST(tnTarn, EveryKeyReachesTheVariableOfItsId) {
    tnTarn::string_defines();
    for (const Pair& pair : kPairs) {
        SCOPED_TRACE(pair.fKey);
        zRecord record;
        record.SetInt32(code(pair.fId), 7, 0);
        EXPECT_EQ(record.AsInt32(pair.fKey, 0), 7);
        record.SetInt32(pair.fKey, 8, 0);
        EXPECT_EQ(record.AsInt32(code(pair.fId), 0), 8);
        EXPECT_EQ(record.VariableCount(), 1u);
        EXPECT_STREQ(zStringID::Default().Key(code(pair.fId)), pair.fKey);
    }
}

TEST(tnTarn, KeysAreEnteredInOrderAndTheAnnotationsOnceMore) {
    std::vector<Entered> entered;
    gEntered = &entered;
    tnTarn::string_defines();
    gEntered = nullptr;
    std::vector<Pair> expected(std::begin(kPairs), std::end(kPairs));
    expected.insert(expected.end(), {{"mMTi", "output_title"},
                                     {"mMIn", "output_info"},
                                     {"mMCo", "output_copyright"},
                                     {"mMAu", "output_author"}});
    ASSERT_EQ(entered.size(), expected.size());
    ASSERT_EQ(entered.size(), 71u);
    for (std::size_t i = 0; i < entered.size(); ++i) {
        SCOPED_TRACE(expected[i].fKey);
        EXPECT_EQ(entered[i].fId, code(expected[i].fId));
        EXPECT_EQ(entered[i].fKey, expected[i].fKey);
        EXPECT_FALSE(entered[i].fReserved);
        EXPECT_EQ(entered[i].fResult, 0);
    }
}

TEST(tnTarn, VariablesPrintUnderTheirKeys) {
    tnTarn::string_defines();
    zRecord record;
    record.SetInt32('mwid', 1920, 0);
    EXPECT_NE(record.Description().find("tn_width"), std::string::npos);
}

TEST(tnTarn, EnteringTheKeysAgainChangesNothing) {
    tnTarn::string_defines();
    tnTarn::string_defines();
    EXPECT_STREQ(zStringID::Default().Key('mMTi'), "output_title");
    EXPECT_EQ(zStringID::Default().Find("output_title"), 'mMTi');
    EXPECT_EQ(zStringID::Default().OtherID('mMTi'), 0u);
}

TEST(tnTarn, ModuleTokenDoesNothing) {
    tnTarn::boot_Module();
}

}  // namespace
