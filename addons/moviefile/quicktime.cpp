#include "spar/jigAddon.h"

#include "addons/moviefile/FileMovie.h"

namespace {

class QuickTime final : public FileFormat {
public:
    QuickTime() : FileFormat('mov ', "QuickTime", "mov") {}
};

}  // namespace

JIG_ADDON(tnXIMovieFile, QuickTime)
