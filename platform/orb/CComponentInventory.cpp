#include "orb/CComponentInventory.h"

#include <mutex>
#include <utility>

#include "orb/CAudioCompressor.h"
#include "orb/CAudioConverter.h"
#include "orb/CVideoCompressor.h"
#include "orb/CVideoConverter.h"

namespace Quillon::Orb {

// With the first question, and not with the first singleton: they add themselves through those.
void NeedBuiltInComponents() {
    static std::once_flag once;
    std::call_once(once, RegisterBuiltInComponents);
}

template <class T>
CComponentInventory<CComponentFactory<T>>::CComponentInventory()
    : fFactories(new CList<Factory>()) {}

template <class T>
CComponentInventory<CComponentFactory<T>>&
CComponentInventory<CComponentFactory<T>>::GetSingleton() {
    // Never destroyed: components may be asked for until the process ends.
    static auto* inventory = new CComponentInventory;
    return *inventory;
}

template <class T>
CList<CComponentFactory<T>>* CComponentInventory<CComponentFactory<T>>::GetFactories() {
    NeedBuiltInComponents();
    CComponentInventory& inventory = GetSingleton();
    RObject<CList<Factory>> copy(new CList<Factory>());
    zMutexLock held(inventory.fLock);
    for (auto* node = inventory.fFactories->GetFirst(); node; node = node->next) {
        copy->Add(node->element);
    }
    return copy.Detach();
}

template <class T>
CComponentFactory<T>* CComponentInventory<CComponentFactory<T>>::GetFactory(unsigned int type) {
    NeedBuiltInComponents();
    CComponentInventory& inventory = GetSingleton();
    zMutexLock held(inventory.fLock);
    for (auto* node = inventory.fFactories->GetFirst(); node; node = node->next) {
        if (node->element->GetType() == type)
            return RObject<Factory>::Share(node->element).Detach();
    }
    return nullptr;
}

template <class T>
T* CComponentInventory<CComponentFactory<T>>::CreateInstance(unsigned int type) {
    RObject<Factory> factory(GetFactory(type));
    return factory ? factory->CreateInstance() : nullptr;
}

template <class T>
void CComponentInventory<CComponentFactory<T>>::Add(Factory* factory) {
    if (!factory) return;
    zMutexLock held(fLock);
    fFactories->Add(factory);
}

template <class T>
void CComponentInventory<CComponentFactory<T>>::AddFirst(Factory* factory) {
    if (!factory) return;
    zMutexLock held(fLock);
    RObject<CList<Factory>> list(new CList<Factory>());
    list->Add(factory);
    for (auto* node = fFactories->GetFirst(); node; node = node->next) list->Add(node->element);
    fFactories = std::move(list);
}

template <class T>
void CComponentInventory<CComponentFactory<T>>::Remove(const Factory* factory) {
    zMutexLock held(fLock);
    RObject<CList<Factory>> list(new CList<Factory>());
    for (auto* node = fFactories->GetFirst(); node; node = node->next) {
        if (node->element != factory) list->Add(node->element);
    }
    fFactories = std::move(list);
}

template class CComponentInventory<CComponentFactory<CVideoConverter>>;
template class CComponentInventory<CComponentFactory<CVideoCompressor>>;
template class CComponentInventory<CComponentFactory<CAudioConverter>>;
template class CComponentInventory<CComponentFactory<CAudioCompressor>>;

}  // namespace Quillon::Orb
