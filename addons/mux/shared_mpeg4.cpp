#include "spar/jigAddon.h"

#include "addons/mux/MuxMovie.h"

namespace {

class SharedMpeg4 final : public MuxFormat {
public:
    SharedMpeg4() : MuxFormat('smp4', "Shared MPEG-4", "mp4", 'mp4 ', false) {}
};

}  // namespace

JIG_ADDON(tnXIMovieFile, SharedMpeg4)
