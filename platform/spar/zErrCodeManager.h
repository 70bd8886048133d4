#pragma once

#include "spar/export.h"

/// Which error codes belong to whom. Any thread.
class SPAR_API zErrCodeManager {
public:
    /// Records the codes from `first` to `last`, in either order, under `name`, which is copied. A
    /// range that stands already is recorded once.
    static void RegisterCodeRange(int first, int last, const char* name);

    /// The name of the narrowest range that holds `code`, the earlier of two equal ones; null if
    /// there is none. Lives as long as the process.
    static const char* RangeName(int code);
};
