#include "orb/CComponentInventory.h"
#include "orb/MovieFileInventory.h"
#include "orb/ffmpeg/AvMovieFile.h"

namespace Quillon::Orb {

// One line a component: a declaration here and its call below. Each function stands beside its
// component and adds the factory to the inventory of its kind.

void RegisterBuiltInComponents() {
    for (const unsigned int type : {'mov ', 'mp4 ', 'ts  '}) {
        MovieFileInventory::Add(type, MakeAvMovieFile);
    }
}

}  // namespace Quillon::Orb
