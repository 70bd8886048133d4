#pragma once

#include "spar/export.h"

/// One module of the program, to be started before use and stopped after.
///
/// A module is a file-static object of this class, so that loading its code registers it. The host
/// (or a test) brings all modules up and down; a module's start names what it needs by Depends. One
/// thread drives all this; registration alone may come from any.
class SPAR_API zBoot {
public:
    /// Registers the module under the four-character code `id`. Either function may be null. Of two
    /// modules with one id the later is refused, with a trace line.
    zBoot(void (*start)(), void (*stop)(), int id);
    /// Takes the module off the list, without stopping it: its code may be going away.
    ~zBoot();
    zBoot(const zBoot&) = delete;
    zBoot& operator=(const zBoot&) = delete;

    /// Called from a module's start: starts the module `id` now unless it is up, so that it also
    /// stops later than the caller. `token`, an empty function of that module, is there to make the
    /// linker keep its code. 0; -1 and a trace line when no such module is loaded or when it is
    /// itself being started (a circle).
    static int Depends(int id, void (*token)());

    /// Starts every module that is not up, in order of registration where dependencies do not say
    /// otherwise. 0, or -1 when any Depends on the way failed; the modules are up all the same.
    static int StartAll();

    /// Stops every module that is up, in the reverse of the order in which their starts ended. They
    /// can be started again.
    static void StopAll();

private:
    enum class State { kDown, kStarting, kUp };

    static zBoot* find(int id);
    static zBoot* first_down();
    static void start_module(zBoot& module);

    void (*const fStart)();
    void (*const fStop)();
    const int fID;
    State fState = State::kDown;
    zBoot* fNext = nullptr;    // in order of registration
    zBoot* fBefore = nullptr;  // the module whose start ended before this one's
};
