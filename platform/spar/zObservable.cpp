#include "spar/zObservable.h"

#include <algorithm>

#include "spar/zObserverHandler.h"
#include "spar/zRecord.h"

namespace {
constexpr int kNotObserving = -1;
constexpr int kNullArgument = -22;
}  // namespace

zObservable::zObservable() = default;

zObservable::~zObservable() = default;

int zObservable::Observe(int observer) {
    if (observer == 0) return kNullArgument;
    zMutexLock held(fLock);
    const bool known =
        std::find(fObservers.begin(), fObservers.end(), observer) != fObservers.end();
    if (!known) fObservers.push_back(observer);
    return 0;
}

int zObservable::StopObserving(int observer) {
    zMutexLock held(fLock);
    return std::erase(fObservers, observer) > 0 ? 0 : kNotObserving;
}

int zObservable::Notify(int kind, const char* what, int subKind, zRecord* data) {
    std::vector<int> observers;
    {
        zMutexLock held(fLock);
        observers = fObservers;
    }
    for (const int observer : observers) {
        // A record each: what one observer writes into its copy is no other's business.
        zNotification notification;
        notification.fKind = kind;
        notification.fWhat = what != nullptr ? what : "";
        notification.fSubKind = subKind;
        if (data != nullptr) notification.fData = std::make_shared<zRecord>(*data);
        zObserverHandler::Post(observer, std::move(notification));
    }
    return 0;
}
