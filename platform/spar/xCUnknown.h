#pragma once

#include <atomic>

#include "spar/export.h"
#include "spar/xIUnknown.h"

/// The counting base of interface classes. Starts with one reference, which its maker holds.
///
/// A class of several interfaces has the three operations of xIUnknown once for each and lets them
/// all call the Concrete_ forms, of which there is one set an object; a class with one line of
/// bases need not. A class answers names of its own by overriding Concrete_QueryInterface and
/// passing on the rest. Any thread may count. The order of the virtual operations is part of the
/// add-on interface.
class SPAR_API xCUnknown : public xIUnknown {
public:
    xCUnknown() = default;
    xCUnknown(const xCUnknown&) = delete;
    xCUnknown& operator=(const xCUnknown&) = delete;

    int QueryInterface(const char* name, void** out) override;
    int AddRef() override;
    int Release() override;
    virtual ~xCUnknown();

    /// Hands out `interface` with a reference added: 0, -22 for a null `out`, -31 for none to give.
    /// `*out` is what the caller casts back, so `interface` is passed as the type that `name`
    /// means.
    virtual int GetInterface(xIUnknown* interface, void** out);
    /// The base knows "xIUnknown" alone.
    virtual int Concrete_QueryInterface(const char* name, void** out);
    /// Called once, by the release of the last reference. The base deletes the object.
    virtual void DeleteObject();

    int Concrete_AddRef();
    int Concrete_Release();

private:
    std::atomic<int> fRefCount{1};
};
