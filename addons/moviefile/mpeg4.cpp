#include "spar/jigAddon.h"

#include "addons/moviefile/FileMovie.h"

namespace {

class Mpeg4 final : public FileFormat {
public:
    Mpeg4() : FileFormat('mp4 ', "MPEG-4", "mp4") {}
};

}  // namespace

JIG_ADDON(tnXIMovieFile, Mpeg4)
