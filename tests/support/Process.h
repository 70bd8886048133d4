#pragma once

#include <string>
#include <vector>

namespace tests {

struct ProcessResult {
    int exitCode = -1;  ///< 128 + signal when a signal ended it
    std::string out;
    std::string err;
};

/// Runs a program to its end. No shell: every word is an argument.
ProcessResult Run(const std::vector<std::string>& words);

/// A program that runs beside the test.
class BackgroundProcess {
public:
    explicit BackgroundProcess(const std::vector<std::string>& words);
    /// Kills it if it still runs.
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    void Signal(int signal) const;
    /// Waits for its end and gives what it printed.
    ProcessResult Wait();

private:
    int fProcess = -1;
    int fOut = -1;
    int fErr = -1;
};

}  // namespace tests
