#include "spar/zPell.h"

#include "spar/zBoot.h"
#include "spar/zThread.h"

namespace {
const zBoot gPellBootstrap(zPell::boot_Startup, zPell::boot_Shutdown, 'pell');
}  // namespace

void zPell::boot_Module() {}

// The main queue stands before the host asks for its descriptor, and before any module hands work
// in.
void zPell::boot_Startup() {
    zThread::MainQueueDescriptor();
}

void zPell::boot_Shutdown() {}
