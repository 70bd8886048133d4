#include "spar/zBoot.h"

#include "spar/trace.h"
#include "spar/zMutex.h"

namespace {

// Modules register from static initialisers, so these stand before any of them runs.
constinit zMutex gLock;
constinit zBoot* gFirst SPAR_GUARDED_BY(gLock) = nullptr;

// the thread that drives the boot
constinit zBoot* gLastUp = nullptr;
constinit bool gDependencyFailed = false;

std::string code_text(int id) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(id >> shift & 0xFF);
    return text;
}

}  // namespace

zBoot::zBoot(void (*start)(), void (*stop)(), int id) : fStart(start), fStop(stop), fID(id) {
    {
        zMutexLock held(gLock);
        zBoot** place = &gFirst;
        while (*place != nullptr && (*place)->fID != id) place = &(*place)->fNext;
        if (*place == nullptr) {
            *place = this;
            return;
        }
    }
    zTrace("zBoot: a second module '{}' is refused\n", code_text(id));
}

zBoot::~zBoot() {
    zMutexLock held(gLock);
    for (zBoot** place = &gFirst; *place != nullptr; place = &(*place)->fNext) {
        if (*place != this) continue;
        *place = fNext;
        break;
    }
    for (zBoot** place = &gLastUp; *place != nullptr; place = &(*place)->fBefore) {
        if (*place != this) continue;
        *place = fBefore;
        break;
    }
}

zBoot* zBoot::find(int id) {
    zMutexLock held(gLock);
    zBoot* module = gFirst;
    while (module != nullptr && module->fID != id) module = module->fNext;
    return module;
}

zBoot* zBoot::first_down() {
    zMutexLock held(gLock);
    zBoot* module = gFirst;
    while (module != nullptr && module->fState != State::kDown) module = module->fNext;
    return module;
}

void zBoot::start_module(zBoot& module) {
    module.fState = State::kStarting;
    if (module.fStart != nullptr) module.fStart();
    module.fState = State::kUp;
    module.fBefore = gLastUp;
    gLastUp = &module;
}

int zBoot::Depends(int id, void (*)()) {
    zBoot* module = find(id);
    if (module != nullptr && module->fState == State::kUp) return 0;
    if (module != nullptr && module->fState == State::kDown) {
        start_module(*module);
        return 0;
    }
    gDependencyFailed = true;
    if (module == nullptr)
        zTrace("zBoot: no module '{}' is loaded, on which another depends\n", code_text(id));
    else
        zTrace("zBoot: module '{}' depends on itself in a circle\n", code_text(id));
    return -1;
}

int zBoot::StartAll() {
    gDependencyFailed = false;
    // Asked anew each time: a start may load code that brings modules of its own.
    while (zBoot* module = first_down()) start_module(*module);
    return gDependencyFailed ? -1 : 0;
}

void zBoot::StopAll() {
    while (zBoot* module = gLastUp) {
        if (module->fStop != nullptr) module->fStop();
        module->fState = State::kDown;
        gLastUp = module->fBefore;
        module->fBefore = nullptr;
    }
}
