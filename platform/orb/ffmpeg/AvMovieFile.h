#pragma once

#include <memory>

#include "orb/container/MovieFile.h"

namespace Quillon::Orb {

/// A movie file that libavformat writes, of any container type in its table: 'mov ', 'mp4 ', 'ts '.
/// Its index is written at the end: a file that is not finished cannot be opened.
std::unique_ptr<MovieFile> MakeAvMovieFile(const char* path, const MovieFileOptions& options);

}  // namespace Quillon::Orb
