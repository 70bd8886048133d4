#include "spar/jigAddon.h"

#include "addons/mux/MuxMovie.h"

namespace {

class SharedQuickTime final : public MuxFormat {
public:
    SharedQuickTime() : MuxFormat('smov', "Shared QuickTime", "mov", 'mov ', false) {}
};

}  // namespace

JIG_ADDON(tnXIMovieFile, SharedQuickTime)
