#include "MovieFile.h"

#include "FileLayer.h"
#include "WholeMovieFile.h"

namespace Quillon::Orb {

std::unique_ptr<MovieFile> MakeMovieFile(const char* path, const MovieFileOptions& options) {
    return std::make_unique<WholeMovieFile>(path, options, MakePosixFile(),
                                            WholeMovieFile::Checkpoints::OnThread);
}

}  // namespace Quillon::Orb
