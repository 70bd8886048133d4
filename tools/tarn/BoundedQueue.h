#pragma once

#include <cstddef>
#include <deque>
#include <utility>

#include "spar/zMutex.h"

/// A queue between two threads that holds at most `capacity` items.
template <typename T>
class BoundedQueue {
public:
    explicit BoundedQueue(std::size_t capacity) : fCapacity(capacity) {}

    /// Waits for room; false, with the item gone, once the reader has closed the queue.
    bool Push(T&& item) {
        const zMutexLock lock(fMutex);
        while (fItems.size() >= fCapacity && !fClosed) fChanged.Wait(fMutex);
        if (fClosed) return false;
        fItems.push_back(std::move(item));
        fChanged.WakeAll();
        return true;
    }

    /// Waits for an item; false when the writer has ended and nothing is left.
    bool Pop(T& item) {
        const zMutexLock lock(fMutex);
        while (fItems.empty() && !fEnded) fChanged.Wait(fMutex);
        if (fItems.empty()) return false;
        item = std::move(fItems.front());
        fItems.pop_front();
        fChanged.WakeAll();
        return true;
    }

    /// The writer has nothing more.
    void End() {
        const zMutexLock lock(fMutex);
        fEnded = true;
        fChanged.WakeAll();
    }

    /// The reader wants nothing more.
    void Close() {
        const zMutexLock lock(fMutex);
        fClosed = true;
        fChanged.WakeAll();
    }

    std::size_t Size() {
        const zMutexLock lock(fMutex);
        return fItems.size();
    }

private:
    const std::size_t fCapacity;
    zMutex fMutex;
    zCondition fChanged;
    std::deque<T> fItems SPAR_GUARDED_BY(fMutex);
    bool fEnded SPAR_GUARDED_BY(fMutex) = false;
    bool fClosed SPAR_GUARDED_BY(fMutex) = false;
};
