#include "tarn/foundation/TCache.h"

#include "spar/zCritical.h"
#include "spar/zMutex.h"

namespace {

/// Guards the singleton. Never destroyed: a host may ask while the process ends.
zMutex& singleton_lock() {
    static auto* kept = new zMutex;
    return *kept;
}

}  // namespace

template <class T>
TCache<T>* TCache<T>::fSingleton = nullptr;

template <class T>
TCache<T>::TCache() : fLock(zCritical::Factory(1)) {}

template <class T>
TCache<T>::~TCache() {
    delete fLock;
}

template <class T>
TCache<T>* TCache<T>::Singleton() {
    const zMutexLock lock(singleton_lock());
    if (fSingleton == nullptr) {
        fSingleton = new TCache;
    }
    return fSingleton;
}

template <class T>
void TCache<T>::DeleteSingleton() {
    const zMutexLock lock(singleton_lock());
    delete fSingleton;
    fSingleton = nullptr;
}

template <class T>
bool TCache<T>::Exists() {
    const zMutexLock lock(singleton_lock());
    return fSingleton != nullptr;
}

template <class T>
bool TCache<T>::Find(const char* name, long long now, T& value) {
    const zCriticalLock lock(*fLock);
    const zString key(name);
    const TEntry* entry = fEntries.Find(key);
    if (entry == nullptr) {
        return false;
    }
    if (entry->fExpires != 0 && now >= entry->fExpires) {
        fEntries.Remove(key);
        return false;
    }
    value = entry->fValue;
    return true;
}

template <class T>
void TCache<T>::Store(const char* name, long long expires, const T& value) {
    const zCriticalLock lock(*fLock);
    fEntries[zString(name)] = TEntry{expires, value};
}

template class TCache<bool>;
