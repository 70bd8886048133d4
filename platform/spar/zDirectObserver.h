#pragma once

#include <list>
#include <memory>
#include <utility>

#include "spar/zMutex.h"

/// Functions to call when something happens, each alive as long as its owner.
///
///     zDirectObserver<std::function<void()>> changed;
///     changed.Add(token, [this] { Redraw(); });
///
/// There is no removal: an owner that goes takes its entries with it. Any thread may add and
/// notify; no lock is held while a function runs, so a function may add observers (they are called
/// from the next Notify on) and may itself notify.
template <class Function>
class zDirectObserver {
public:
    zDirectObserver() = default;
    zDirectObserver(const zDirectObserver&) = delete;
    zDirectObserver& operator=(const zDirectObserver&) = delete;

    void Add(std::weak_ptr<void> owner, Function function) SPAR_EXCLUDES(fLock) {
        zMutexLock held(fLock);
        fAdded.push_back({std::move(owner), std::move(function)});
    }

    /// Calls each function whose owner lives, on this thread, in order of addition.
    template <class... Arguments>
    void Notify(const Arguments&... arguments) SPAR_EXCLUDES(fLock) {
        const std::list<Entry> walk = entries_to_call();
        for (const Entry& entry : walk) {
            // Asked at each call and not once before the walk: a function that runs here may end
            // the owner of a later one. The owner cannot die under its own function.
            const std::shared_ptr<void> owner = entry.fOwner.lock();
            if (owner) entry.fFunction(arguments...);
        }
        drop_dead_entries();
    }

private:
    struct Entry {
        std::weak_ptr<void> fOwner;
        Function fFunction;
    };

    std::list<Entry> entries_to_call() SPAR_EXCLUDES(fLock) {
        zMutexLock held(fLock);
        fInUse.splice(fInUse.end(), fAdded);
        return fInUse;
    }

    void drop_dead_entries() SPAR_EXCLUDES(fLock) {
        // Destroyed after the lock is left: what a function captured may come back here as it dies.
        std::list<Entry> dead;
        zMutexLock held(fLock);
        for (auto entry = fInUse.begin(); entry != fInUse.end();) {
            const auto next = std::next(entry);
            if (entry->fOwner.expired()) dead.splice(dead.end(), fInUse, entry);
            entry = next;
        }
    }

    zMutex fLock;
    std::list<Entry> fInUse SPAR_GUARDED_BY(fLock);
    std::list<Entry> fAdded SPAR_GUARDED_BY(fLock);
};
