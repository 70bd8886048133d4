#pragma once

#include "tarn/export.h"

/// The module's frame: what boot runs when the library comes up and goes down.
///
/// No instances. The module registers itself with the boot system at load time under the id 'tarn';
/// whatever depends on it calls `zBoot::Depends('tarn', tnTarn::boot_Module)`. Boot calls from one
/// thread; nothing else of the library runs before it comes up or after it has gone down.
class TARN_API tnTarn {
public:
    tnTarn() = delete;

    /// Names the record keys, registers the error range and starts the process-wide services.
    static void boot_Startup();
    /// Stops the services, last started first. All outputs are stopped and all manifests released.
    static void boot_Shutdown();
    /// Gives the ids of records their keys; for a tool that wants the keys without a boot.
    static void string_defines();
    /// Does nothing: its address is the module's token, and using it forces the link.
    static void boot_Module();
};
