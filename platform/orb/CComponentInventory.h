#pragma once

#include "orb/CComponentFactory.h"
#include "orb/CList.h"
#include "orb/RObject.h"
#include "orb/Result.h"
#include "orb/export.h"
#include "spar/zMutex.h"

namespace Quillon::Orb {

class CAudioCompressor;
class CAudioConverter;
class CVideoCompressor;
class CVideoConverter;

template <class Factory>
class CComponentInventory;

/// The components of one kind that this process knows, in the order in which they are asked.
///
/// The first question for any of them brings in the library's own. Any thread; a factory is never
/// asked under the lock.
template <class T>
class ORB_API CComponentInventory<CComponentFactory<T>> {
public:
    using Factory = CComponentFactory<T>;

    static CComponentInventory& GetSingleton();

    /// The factories as a list of the caller's own.
    static CList<Factory>* GetFactories();
    /// The first factory of that type, or null.
    static Factory* GetFactory(unsigned int type);
    /// A new component of that type; null when no factory has it or it cannot be made.
    static T* CreateInstance(unsigned int type);

    /// Shares the factory, which is asked after those that stand already.
    void Add(Factory* factory) SPAR_EXCLUDES(fLock);
    /// The same, asked before all others: a test or a host puts its own in place of ours.
    void AddFirst(Factory* factory) SPAR_EXCLUDES(fLock);
    /// Forgets the factory; components that it made live on.
    void Remove(const Factory* factory) SPAR_EXCLUDES(fLock);

private:
    CComponentInventory();

    zMutex fLock;
    RObject<CList<Factory>> fFactories SPAR_GUARDED_BY(fLock);
};

extern template class ORB_API CComponentInventory<CComponentFactory<CVideoConverter>>;
extern template class ORB_API CComponentInventory<CComponentFactory<CVideoCompressor>>;
extern template class ORB_API CComponentInventory<CComponentFactory<CAudioConverter>>;
extern template class ORB_API CComponentInventory<CComponentFactory<CAudioCompressor>>;

/// Adds the library's own components and container types; it stands in the ffmpeg folder.
void RegisterBuiltInComponents();

/// Calls it once, at the first question for a component or a container type.
void NeedBuiltInComponents();

}  // namespace Quillon::Orb
