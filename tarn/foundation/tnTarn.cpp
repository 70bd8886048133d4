#include "tarn/foundation/tnTarn.h"

#include "spar/zBoot.h"
#include "spar/zErrCodeManager.h"
#include "spar/zPell.h"
#include "spar/zStringID.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/foundation/TCache.h"
#include "tarn/foundation/tnOutputAccessor.h"
#include "tarn/foundation/tnOutputAnnotations.h"
#include "tarn/foundation/tnUtils.h"
#include "tarn/replay/tnReplayManifest.h"

namespace {

constexpr int kErrorCode = -1000;  // the range is this single code

struct Name {
    unsigned int fId;
    const char* fKey;
};

/// The library's vocabulary. Some keys are the host's alone: their names stand here all the same,
/// so that records print and are written alike on both sides.
constexpr Name kNames[] = {
    {'momp', "compressed"},
    {'type', "type"},
    {'tmsc', "timescale"},
    {'dura', "duration"},
    {'mtim', "time"},
    {'mqua', "quality"},
    {'mwid', "tn_width"},
    {'mhei', "tn_height"},
    {'mbpr', "bpr"},
    {'mcol', "colourspace"},
    {'mfod', "field_order"},
    {'mcsp', "color_space"},
    {'mnmr', "nominal_range"},
    {'mafo', "audioformat"},
    {'mfps', "fps"},
    {'mdiR', "display_rect"},
    {'tnSQ', "tn:sq_pixel_width"},
    {'tnSH', "tn:sq_pixel_height"},
    {'msmr', "samplerate"},
    {'mcbu', "busses"},
    {'mcha', "channels"},
    {'mbps', "bps"},
    {'mtbr', "target_bit_rate"},
    {'mlbr', "limit_bit_rate"},
    {'mpro', "profile"},
    {'mvid', "video_tracks"},
    {'maut', "audio_tracks"},
    {'mvit', "still_image_tracks"},
    {'mVMA', "multicast_video_address"},
    {'mAMA', "multicast_audio_address"},
    {'mAMT', "multicast_ttl"},
    {'mcon', "codecname"},
    {'mseq', "sequence"},
    {'mleq', "live_sequence"},
    {'mkeq', "key_sequence"},
    {'mena', "tn_enabled"},
    {'mTFn', "timestamp_filename"},
    {'mOwi', "tn_rendered_output_width"},
    {'mOhe', "tn_rendered_output_height"},
    {'mReS', "tn_restreaming"},
};

zBoot gtnTarn_Bootstrap(tnTarn::boot_Startup, tnTarn::boot_Shutdown, 'tarn');

}  // namespace

void tnTarn::boot_Startup() {
    zBoot::Depends('pell', zPell::boot_Module);
    string_defines();
    zErrCodeManager::RegisterCodeRange(kErrorCode, kErrorCode, "tarn errors");
    TCache<bool>::Singleton();
    tnReplayManifest::Startup();
    tnFilterManager::Startup();
}

void tnTarn::boot_Shutdown() {
    tnFilterManager::Shutdown();
    tnReplayManifest::Shutdown();
    tnUtils::Shutdown();
}

void tnTarn::string_defines() {
    for (const Name& name : kNames) {
        zStringID::Default().Add(name.fId, name.fKey, false);
    }
    tnOutputAccessor::RegisterVariableNames();
    tnOutputAnnotations::RegisterVariableNames();
}

void tnTarn::boot_Module() {}
