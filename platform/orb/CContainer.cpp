#include "orb/CContainer.h"

namespace Quillon::Orb {

Result CContainer::SetQueueSize(int samples) {
    if (samples < 1) return ResultInvalidArgument("a queue of %d samples", samples);
    fQueueSize = samples;
    return 0;
}

}  // namespace Quillon::Orb
