#pragma once

#include <exception>
#include <new>

#include "orb/Result.h"

namespace Quillon::Orb {

/// The failure with words for the trace: its own where it has some.
inline Result explained(const Result& failure) noexcept {
    if (*failure.GetMessage()) return failure;
    switch (static_cast<int>(failure)) {
        case ResultNullPointer::kCode:
            return ResultNullPointer("no data");
        case ResultOutOfMemory::kCode:
            return ResultOutOfMemory("out of memory");
        case ResultNotSupported::kCode:
            return ResultNotSupported("not supported");
        default:
            return ResultError("it failed without a reason (%d)", static_cast<int>(failure));
    }
}

/// For a catch clause at the end of a thread: what it caught, as a failure.
inline Result result_of_exception() noexcept {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return ResultOutOfMemory();
    } catch (const std::exception& error) {
        return ResultError("%s", error.what());
    } catch (...) {
        return ResultError("an exception of no known kind");
    }
}

}  // namespace Quillon::Orb
