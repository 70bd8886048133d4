#pragma once

#include <chrono>
#include <thread>

namespace tests {

/// Waits until `wanted` holds, for what another process does. False when it does not within a
/// minute: a test whose other process has failed ends then, and says where.
template <typename Predicate>
bool WaitUntil(const Predicate& wanted, std::chrono::microseconds pause) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!wanted()) {
        if (std::chrono::steady_clock::now() > end) return false;
        if (pause.count() > 0) std::this_thread::sleep_for(pause);
    }
    return true;
}

}  // namespace tests
