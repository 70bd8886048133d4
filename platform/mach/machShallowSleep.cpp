#include "mach/machShallowSleep.h"

#include <cstdint>
#include <fcntl.h>
#include <unistd.h>

#include "spar/zMutex.h"

namespace {

constexpr const char* kDevice = "/dev/cpu_dma_latency";

zMutex gLock;
const char* gDevice SPAR_GUARDED_BY(gLock) = kDevice;

std::weak_ptr<void>& shared_wish() SPAR_REQUIRES(gLock) {
    static std::weak_ptr<void> gWish;
    return gWish;
}

/// The wish stands for as long as its descriptor is open. Null where it is not granted.
std::shared_ptr<void> open_wish(const char* device) {
    const int descriptor = open(device, O_WRONLY | O_CLOEXEC);
    if (descriptor < 0) return nullptr;
    const int32_t mostMicroseconds = 0;
    if (write(descriptor, &mostMicroseconds, sizeof mostMicroseconds) != sizeof mostMicroseconds) {
        close(descriptor);
        return nullptr;
    }
    // The pointer only has to be some address; what counts is that the last owner closes.
    return {&gLock, [descriptor](void*) { close(descriptor); }};
}

}  // namespace

machShallowSleep::machShallowSleep() {
    zMutexLock lock(gLock);
    fWish = shared_wish().lock();
    if (fWish) return;
    fWish = open_wish(gDevice);
    shared_wish() = fWish;
}

void machShallowSleep::SetDevice(const char* path) {
    zMutexLock lock(gLock);
    gDevice = path ? path : kDevice;
}
