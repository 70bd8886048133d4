#pragma once

#include <vector>

#include "spar/export.h"
#include "spar/zMutex.h"

class zRecord;

/// An object that tells observers of its changes. Observers are zObserverHandler ids.
///
/// Any thread may call. The list of observers has a lock of its own, which is not held across a
/// delivery: deliveries are queued for the main thread.
class SPAR_API zObservable {
public:
    zObservable();
    virtual ~zObservable();
    zObservable(const zObservable&) = delete;
    zObservable& operator=(const zObservable&) = delete;

    /// Adds an observer: 0 also when it observes already, -22 for the id 0.
    virtual int Observe(int observer);
    /// 0, or -1 when it does not observe.
    virtual int StopObserving(int observer);
    /// Queues one notification for each observer, in order of addition. `kind` and `subKind` are
    /// four-character codes; `what` and `data` are copied and may be null. Gives 0.
    virtual int Notify(int kind, const char* what, int subKind, zRecord* data);

private:
    zMutex fLock;
    std::vector<int> fObservers SPAR_GUARDED_BY(fLock);
};
