#pragma once

#include "spar/threadSafety.h"
#include "spar/zMap.h"
#include "spar/zString.h"
#include "tarn/export.h"

class zCritical;

/// Keeps answers to costly questions by name, each for as long as it was said to hold.
///
/// One object serves the process, from the first Singleton to DeleteSingleton. Any thread; the lock
/// is held around the map alone. Nobody may be inside any more when the object is deleted.
template <class T>
class TCache {
public:
    struct TEntry {
        long long fExpires = 0;  // milliseconds of zTime::MicroNow's clock; 0: never
        T fValue{};
    };

    /// The object, made at first use.
    static TCache* Singleton();
    /// Deletes the object, if there is one.
    static void DeleteSingleton();
    /// Whether the object exists.
    static bool Exists();

    /// True if there is an answer for `name` at `now`, which then goes to `value`. One that no
    /// longer holds is removed.
    bool Find(const char* name, long long now, T& value);
    /// Keeps `value` for `name` until `expires`; of two threads the last one's answer stays.
    void Store(const char* name, long long expires, const T& value);

private:
    TCache();
    ~TCache();
    TCache(const TCache&) = delete;
    TCache& operator=(const TCache&) = delete;

    // A member of the class, which the check takes for a global of its instances.
    // NOLINTNEXTLINE(readability-identifier-naming)
    static TCache* fSingleton;  // null while there is none; under a lock of its own

    zCritical* const fLock;  // owned
    zMap<zString, TEntry, zRedBlackCmp<zString>> fEntries SPAR_GUARDED_BY(fLock);
};

extern template class TARN_API TCache<bool>;
