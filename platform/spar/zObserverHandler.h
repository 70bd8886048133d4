#pragma once

#include <memory>
#include <string>

#include "spar/export.h"

class zRecord;

/// What reaches an observer.
struct SPAR_API zNotification {
    int fKind = 0;  ///< four-character codes for zObservable::Notify, else 0
    std::string fWhat;
    int fSubKind = 0;
    std::shared_ptr<zRecord> fData;   ///< may be null
    unsigned long long fContext = 0;  ///< what PostNotification was given, else 0
};

/// Takes notifications that were posted to its id. Made, used and destroyed on the main thread.
///
/// Delivery is asynchronous and goes through the main queue (zThread::DrainMainQueue), in the order
/// of posting. What is on its way to a handler that goes is dropped.
class SPAR_API zObserverHandler {
public:
    zObserverHandler();
    virtual ~zObserverHandler();
    zObserverHandler(const zObserverHandler&) = delete;
    zObserverHandler& operator=(const zObserverHandler&) = delete;

    /// The id under which others know this observer; never 0, never used again.
    int ObserverID() const { return fObserver; }

    /// Called on the main thread.
    virtual void Receive(const zNotification& notification) = 0;

    /// Queues `data` for `observer`. Any thread; does not block. The record, which may be null,
    /// passes to this class in any case, also when there is no such observer; 0 means nobody.
    static void PostNotification(int observer, zRecord* data, unsigned long long context);

    /// The same with all fields.
    static void Post(int observer, zNotification notification);

private:
    const int fObserver;
};
