#pragma once

#include <memory>

#include "orb/container/MovieFile.h"

namespace Quillon::Orb {

/// A movie file that libavformat writes: MPEG-TS, for which we have no writer of our own, and for
/// comparison mov and mp4, whose index comes at the end and is missing where nobody finished.
/// Null for any other container type. MPEG-TS may go to an address as well: "udp://host:port".
std::unique_ptr<MovieFile> MakeAvMovieFile(const char* path, const MovieFileOptions& options);

}  // namespace Quillon::Orb
