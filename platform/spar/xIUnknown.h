#pragma once

#include "spar/export.h"

/// What every interface can do: be counted, and be asked by name for other interfaces.
///
/// Never deleted through this type; the last Release ends the object.
class SPAR_API xIUnknown {
public:
    /// Gives 0 and a referenced interface in `*out`, or -31 and null when there is none of that
    /// name, or -22 for a null `out`.
    virtual int QueryInterface(const char* name, void** out) = 0;
    /// Both give the new count.
    virtual int AddRef() = 0;
    virtual int Release() = 0;

protected:
    ~xIUnknown() = default;
};
