#pragma once

#include "orb/CObject.h"

namespace Quillon::Orb {

/// Makes components of one kind; its type is the code that they are found by.
template <class T>
class CComponentFactory : public CObject {
public:
    explicit CComponentFactory(unsigned int type) : CObject(type, nullptr) {}

    /// A new component with a reference for the caller; null where it cannot work here.
    virtual T* CreateInstance() = 0;
};

/// The factory of a component that is made without arguments.
template <class T, class Component>
class CSimpleComponentFactory : public CComponentFactory<T> {
public:
    using CComponentFactory<T>::CComponentFactory;
    T* CreateInstance() override { return new Component(); }
};

}  // namespace Quillon::Orb
