#include "orb/CObject.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

#include "orb/CString.h"
#include "orb/fourText.h"

namespace Quillon::Orb {

/// A recursive lock and what waits on it. Most objects never need one.
struct CObject::Monitor {
    std::recursive_mutex lock;
    std::condition_variable_any changed;
};

CObject::CObject() : CObject('objt', nullptr) {}

CObject::CObject(unsigned int type, void (*destroy)(CObject*)) : fType(type), fDestroy(destroy) {}

CObject::~CObject() {
    delete fMonitor.load(std::memory_order_acquire);
}

void* CObject::operator new(std::size_t size) noexcept {
    return std::malloc(size);
}
void CObject::operator delete(void* memory) noexcept {
    std::free(memory);
}

void CObject::Release() const noexcept {
    if (fReferences.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    CObject* self = const_cast<CObject*>(this);
    if (fDestroy) {
        fDestroy(self);
    } else {
        delete self;
    }
}

bool CObject::IsType(unsigned int type) const {
    return type == fType;
}
bool CObject::Equals(CObject* other) const {
    return other == this;
}

int CObject::GetHashCode() const {
    const auto address = reinterpret_cast<std::uintptr_t>(this);
    return static_cast<int>((address >> 4) ^ (address >> 32));
}

CString* CObject::ToString() const {
    return new CString(four_text(fType).c_str());
}

CObject::Monitor* CObject::monitor() const noexcept {
    Monitor* found = fMonitor.load(std::memory_order_acquire);
    if (found) return found;
    Monitor* made = new (std::nothrow) Monitor;
    if (!made) return nullptr;
    if (fMonitor.compare_exchange_strong(found, made, std::memory_order_acq_rel)) return made;
    delete made;
    return found;
}

bool CObject::Synchronize() const {
    return monitor() != nullptr;
}

void CObject::Enter() const {
    Monitor* found = monitor();
    // A lock that cannot be made cannot be skipped either.
    if (!found) throw std::bad_alloc();
    found->lock.lock();
}

bool CObject::TryEnter() const {
    Monitor* found = monitor();
    return found && found->lock.try_lock();
}

void CObject::Wait() const {
    if (Monitor* found = monitor()) found->changed.wait(found->lock);
}

bool CObject::Wait(int milliseconds) const {
    Monitor* found = monitor();
    if (!found) return false;
    return found->changed.wait_for(found->lock, std::chrono::milliseconds(milliseconds)) ==
           std::cv_status::no_timeout;
}

void CObject::Notify() const {
    if (Monitor* found = monitor()) found->changed.notify_one();
}

void CObject::NotifyAll() const {
    if (Monitor* found = monitor()) found->changed.notify_all();
}

void CObject::Exit() const {
    if (Monitor* found = monitor()) found->lock.unlock();
}

}  // namespace Quillon::Orb
