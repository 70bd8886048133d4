#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

// What the kernel says of a thread, and of what the process has open.

namespace tests {

/// Whether that thread of this process waits for something: a lock, a join, a time.
inline bool IsThreadAsleep(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t name = line.rfind(") ");
    return name != std::string::npos && line[name + 2] == 'S';
}

/// How a thread is scheduled.
struct Scheduling {
    uint32_t policy = 0;
    int32_t nice = 0;
    uint32_t priority = 0;
    /// Nanoseconds that an ordinary thread runs before the kernel thinks of others; 0 where it has
    /// no slices.
    uint64_t slice = 0;

    bool operator==(const Scheduling&) const = default;

    static Scheduling OfThisThread() {
        struct {
            uint32_t size, policy;
            uint64_t flags;
            int32_t nice;
            uint32_t priority;
            uint64_t runtime, deadline, period;
        } attributes{};
        attributes.size = sizeof attributes;
        syscall(SYS_sched_getattr, 0, &attributes, sizeof attributes, 0);
        return {attributes.policy, attributes.nice, attributes.priority, attributes.runtime};
    }
};

/// How many descriptors of this process stand for the file at `path`.
inline int OpenDescriptorsOn(const std::string& path) {
    const auto& all = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<int>(std::count_if(begin(all), end(all), [&](const auto& entry) {
        std::error_code gone;
        return std::filesystem::read_symlink(entry, gone) == path;
    }));
}

}  // namespace tests
