#pragma once

#include <memory>

#include "orb/container/MovieFile.h"
#include "orb/export.h"

namespace Quillon::Orb {

/// Makes a movie file of one container type.
using MovieFileMaker = std::unique_ptr<MovieFile> (*)(const char* path,
                                                      const MovieFileOptions& options);

/// Which container types this process can write. Any thread.
class ORB_API MovieFileInventory {
public:
    /// Of equal types the one added last counts, so that a test can put its own in front; null
    /// takes that one away again.
    static void Add(unsigned int containerType, MovieFileMaker maker);
    /// The same, asked after all others: the library's own, which come in with the first question
    /// and stand behind whatever was added before it.
    static void AddBehind(unsigned int containerType, MovieFileMaker maker);
    /// Null where nobody writes that type.
    static MovieFileMaker Find(unsigned int containerType);
};

}  // namespace Quillon::Orb
