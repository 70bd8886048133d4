#pragma once

#include <cstddef>
#include <utility>

namespace Quillon::Orb {

/// Holds one reference to an object and gives it back at the end.
///
/// Storing a plain pointer takes over the reference that came with it (nothing is acquired);
/// storing another handle acquires one more. One handle belongs to one thread at a time.
template <class T>
class RObject {
public:
    RObject() noexcept = default;
    RObject(std::nullptr_t) noexcept {}
    /// Takes over the caller's reference.
    explicit RObject(T* object) noexcept : fObject(object) {}
    RObject(const RObject& other) noexcept : fObject(other.fObject) {
        if (fObject) fObject->Acquire();
    }
    RObject(RObject&& other) noexcept : fObject(other.Detach()) {}
    template <class U>
    RObject(const RObject<U>& other) noexcept : fObject(other.Get()) {
        if (fObject) fObject->Acquire();
    }
    template <class U>
    RObject(RObject<U>&& other) noexcept : fObject(other.Detach()) {}

    virtual ~RObject() { Clear(); }

    RObject& operator=(const RObject& other) noexcept {
        SafeAcquire(other);
        return *this;
    }
    RObject& operator=(RObject&& other) noexcept {
        if (this != &other) *this = other.Detach();
        return *this;
    }
    template <class U>
    RObject& operator=(const RObject<U>& other) noexcept {
        SafeAcquire(other);
        return *this;
    }
    template <class U>
    RObject& operator=(RObject<U>&& other) noexcept {
        return *this = static_cast<T*>(other.Detach());
    }
    /// Takes over the caller's reference; the one held before is released.
    RObject& operator=(T* object) noexcept {
        T* old = std::exchange(fObject, object);
        if (old) old->Release();
        return *this;
    }
    RObject& operator=(std::nullptr_t) noexcept {
        Clear();
        return *this;
    }

    /// Shares what the other handle holds. The same object already here changes nothing.
    template <class U>
    void SafeAcquire(const RObject<U>& other) noexcept {
        T* object = other.Get();
        if (object == fObject) return;
        if (object) object->Acquire();
        *this = object;
    }

    /// Shares an object that somebody else keeps a reference to.
    static RObject Share(T* object) noexcept {
        if (object) object->Acquire();
        return RObject(object);
    }

    T* Get() const noexcept { return fObject; }
    T* operator->() const noexcept { return fObject; }
    T& operator*() const noexcept { return *fObject; }
    explicit operator bool() const noexcept { return fObject != nullptr; }

    /// Gives the reference away: the caller owns it now.
    T* Detach() noexcept { return std::exchange(fObject, nullptr); }
    void Clear() noexcept { *this = static_cast<T*>(nullptr); }
    /// For operations that hand out a pointer through `T*&`: empties the handle and lends its
    /// place.
    T*& Receive() noexcept {
        Clear();
        return fObject;
    }

private:
    T* fObject = nullptr;
};

template <class T, class U>
bool operator==(const RObject<T>& a, const RObject<U>& b) noexcept {
    return a.Get() == b.Get();
}
template <class T>
bool operator==(const RObject<T>& a, std::nullptr_t) noexcept {
    return a.Get() == nullptr;
}

}  // namespace Quillon::Orb
