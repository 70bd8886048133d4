#pragma once

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

/// What the benchmarks that time sleeps and wake-ups share.
namespace bench {

inline int64_t NowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * INT64_C(1'000'000'000) + now.tv_nsec;
}

/// Processor time that this process has used, in nanoseconds.
inline int64_t CpuNs() {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return used.tv_sec * INT64_C(1'000'000'000) + used.tv_nsec;
}

/// Processor time in microseconds of a program that is run to its end; 0 where that fails. Its
/// words stand with blanks between them.
inline double ChildCpuUs(const std::string& command) {
    std::istringstream rest(command);
    std::vector<std::string> words;
    for (std::string word; rest >> word;) words.push_back(word);
    rusage before{};
    getrusage(RUSAGE_CHILDREN, &before);
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char*> arguments;
        for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return 0;
    rusage after{};
    getrusage(RUSAGE_CHILDREN, &after);
    const auto spent = [](const rusage& used) {
        return 1e6 * static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
               static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec);
    };
    return spent(after) - spent(before);
}

/// Samples, and what stands at a share of them once they are in order.
class Samples {
public:
    void Add(double value) { fValues.push_back(value); }
    size_t Count() const { return fValues.size(); }
    double At(double share) {
        if (fValues.empty()) return 0;
        const auto index = static_cast<size_t>(share * static_cast<double>(fValues.size()));
        auto nth = fValues.begin() + static_cast<long>(std::min(index, fValues.size() - 1));
        std::nth_element(fValues.begin(), nth, fValues.end());
        return *nth;
    }

private:
    std::vector<double> fValues;
};

/// Keeps every core busy with processes of its own, while it lives.
class Load {
public:
    explicit Load(bool on) {
        if (!on) return;
        for (unsigned int i = 0; i < std::thread::hardware_concurrency(); ++i) {
            const pid_t child = fork();
            if (child == 0) {
                for (volatile unsigned int spin = 0;;) spin = spin + 1;
            }
            if (child > 0) fChildren.push_back(child);
        }
    }
    ~Load() {
        for (pid_t child : fChildren) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
    }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

private:
    std::vector<pid_t> fChildren;
};

}  // namespace bench
