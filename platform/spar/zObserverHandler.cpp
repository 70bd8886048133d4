#include "spar/zObserverHandler.h"

#include <atomic>
#include <map>
#include <utility>

#include "spar/zMutex.h"
#include "spar/zRecord.h"
#include "spar/zThread.h"

namespace {

std::atomic<int> gNextObserver{1};

// Never destroyed: notifications may be drained after the static destructors have begun.
struct Handlers {
    zMutex lock;
    std::map<int, zObserverHandler*> byID SPAR_GUARDED_BY(lock);
};

Handlers& handlers() {
    static Handlers& theHandlers = *new Handlers;
    return theHandlers;
}

zObserverHandler* handler_of(int observer) {
    zMutexLock held(handlers().lock);
    const auto found = handlers().byID.find(observer);
    return found == handlers().byID.end() ? nullptr : found->second;
}

}  // namespace

zObserverHandler::zObserverHandler() : fObserver(gNextObserver.fetch_add(1)) {
    zMutexLock held(handlers().lock);
    handlers().byID[fObserver] = this;
}

zObserverHandler::~zObserverHandler() {
    zMutexLock held(handlers().lock);
    handlers().byID.erase(fObserver);
}

void zObserverHandler::PostNotification(int observer, zRecord* data, unsigned long long context) {
    zNotification notification;
    notification.fData.reset(data);
    notification.fContext = context;
    Post(observer, std::move(notification));
}

void zObserverHandler::Post(int observer, zNotification notification) {
    if (observer == 0) return;
    // The handler is looked up on the main thread, where handlers go, and so cannot go in between.
    zThread::ExecuteOnMainThread(nullptr, 0, {}, [observer, kept = std::move(notification)] {
        if (zObserverHandler* handler = handler_of(observer)) handler->Receive(kept);
    });
}
