#include "orb/CComponentInventory.h"

namespace Quillon::Orb {

// One line a component: a declaration here and its call below. Each function stands beside its
// component and adds the factory to the inventory of its kind.

void RegisterBuiltInComponents() {}

}  // namespace Quillon::Orb
