#pragma once

#include "spar/export.h"

/// The base library's own module, 'pell', on which every other one depends.
class SPAR_API zPell {
public:
    /// The module's token for zBoot::Depends.
    static void boot_Module();

    static void boot_Startup();
    static void boot_Shutdown();
};
