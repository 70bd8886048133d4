#include "tarn/foundation/TCache.h"

#include "spar/zCritical.h"
#include "spar/zMutex.h"

namespace {

template <class T>
struct Holder {
    zMutex fMutex;
    TCache<T>* fSingleton SPAR_GUARDED_BY(fMutex) = nullptr;
};

/// Never destroyed: a host may ask while the process ends.
template <class T>
Holder<T>& holder() {
    static auto* kept = new Holder<T>;
    return *kept;
}

}  // namespace

template <class T>
TCache<T>::TCache() : fLock(zCritical::Factory(1)) {}

template <class T>
TCache<T>::~TCache() {
    delete fLock;
}

template <class T>
TCache<T>* TCache<T>::Singleton() {
    Holder<T>& kept = holder<T>();
    const zMutexLock lock(kept.fMutex);
    if (kept.fSingleton == nullptr) {
        kept.fSingleton = new TCache;
    }
    return kept.fSingleton;
}

template <class T>
void TCache<T>::DeleteSingleton() {
    Holder<T>& kept = holder<T>();
    const zMutexLock lock(kept.fMutex);
    delete kept.fSingleton;
    kept.fSingleton = nullptr;
}

template <class T>
bool TCache<T>::Exists() {
    Holder<T>& kept = holder<T>();
    const zMutexLock lock(kept.fMutex);
    return kept.fSingleton != nullptr;
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
