#pragma once

#include <string>

#include "orb/Result.h"

namespace Quillon::Orb {

/// Why something failed, in words for the trace: the failure's own where it has some.
inline std::string reason_of(const Result& failure) {
    if (*failure.GetMessage()) return failure.GetMessage();
    switch (static_cast<int>(failure)) {
        case ResultNullPointer::kCode:
            return "no data";
        case ResultOutOfMemory::kCode:
            return "out of memory";
        case ResultNotSupported::kCode:
            return "not supported";
        default:
            return "it failed without a reason (" + std::to_string(static_cast<int>(failure)) + ")";
    }
}

}  // namespace Quillon::Orb
