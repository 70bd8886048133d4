#pragma once

#include <atomic>
#include <cstddef>

#include "orb/export.h"

namespace Quillon::Orb {

class CString;

/// Root of the media library: a counted object with a four-character type and a monitor.
///
/// It starts with one reference, which belongs to whoever made it; the last Release destroys it.
/// Acquire and Release may be called from any thread. An operation that returns an object's
/// pointer gives the caller a reference of its own, unless its comment says otherwise.
class ORB_API CObject {
public:
    CObject();
    /// `destroy`, when not null, is called at the last Release in place of `delete`.
    CObject(unsigned int type, void (*destroy)(CObject*));
    CObject(const CObject&) = delete;
    CObject& operator=(const CObject&) = delete;

    /// Gives null, and not an exception, when there is no memory: callers test for it.
    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* memory) noexcept;

    virtual ~CObject();

    /// Whether the object is of this kind: its own type, or that of a class it derives from.
    virtual bool IsType(unsigned int type) const;
    /// Identity, unless a class compares its contents.
    virtual bool Equals(CObject* other) const;
    virtual int GetHashCode() const;
    /// A text for people: the type and what the class adds.
    virtual CString* ToString() const;

    // The monitor: a recursive lock with a condition, made at first use.
    /// Makes the monitor now, so that a later Enter cannot want for memory; false if there is none.
    virtual bool Synchronize() const;
    virtual void Enter() const;
    virtual bool TryEnter() const;
    /// Lets go of the monitor, which this thread has entered once, waits for a notification and
    /// takes it again; entered more often it stays closed to the others. May end without a
    /// notification, so callers loop on what they wait for.
    virtual void Wait() const;
    /// The same with a limit in milliseconds; false when the time was up.
    virtual bool Wait(int milliseconds) const;
    virtual void Notify() const;
    virtual void NotifyAll() const;
    virtual void Exit() const;

    void Acquire() const noexcept { fReferences.fetch_add(1, std::memory_order_relaxed); }
    void Release() const noexcept;
    unsigned int GetType() const noexcept { return fType; }
    /// True while somebody beside the asking owner holds a reference.
    bool IsShared() const noexcept { return fReferences.load(std::memory_order_acquire) > 1; }

private:
    struct Monitor;
    Monitor* monitor() const noexcept;

    unsigned int fType;
    mutable std::atomic<int> fReferences{1};
    void (*fDestroy)(CObject*);
    mutable std::atomic<Monitor*> fMonitor{nullptr};
};

}  // namespace Quillon::Orb
