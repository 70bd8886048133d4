#include "spar/jigAddon.h"

#include "addons/replay/ReplayMovie.h"

namespace {

class Replay final : public MovieFormat {
public:
    Replay() : MovieFormat('rply', "Replay", "", false) {}

protected:
    tnMovie* make_movie() override { return new ReplayMovie(FormatID(), FormatName()); }
};

}  // namespace

JIG_ADDON(tnXIMovieFile, Replay)
