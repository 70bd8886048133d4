#pragma once

#include <memory>

/// While one lives, idle processors stay out of the sleep states that take long to leave: a timer's
/// wake-up comes in microseconds instead of tens of them. Costs power, so it is held only while
/// something ticks.
///
/// Any number may live, on any thread. Only a host that may write the system's latency device has
/// the benefit (root, unless a rule says otherwise); for all others it does nothing, silently.
class machShallowSleep {
public:
    machShallowSleep();
    ~machShallowSleep() = default;
    machShallowSleep(const machShallowSleep&) = delete;
    machShallowSleep& operator=(const machShallowSleep&) = delete;

    /// Whether the system has agreed.
    bool Holds() const { return fWish != nullptr; }

    /// What is opened in the place of the system's device by those that come after the last one has
    /// gone, for tests; null gives the system's back.
    static void SetDevice(const char* path);

private:
    // One wish of the process, shared by all that live.
    std::shared_ptr<void> fWish;
};
