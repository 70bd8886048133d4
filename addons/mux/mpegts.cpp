#include "spar/jigAddon.h"

#include "addons/mux/MuxMovie.h"

namespace {

class MpegTs final : public MuxFormat {
public:
    MpegTs() : MuxFormat('ts  ', "MPEG-TS", "ts", 'ts  ', true) {}
};

}  // namespace

JIG_ADDON(tnXIMovieFile, MpegTs)
