#pragma once

#include <string>
#include <vector>

namespace tests {

struct ProcessResult {
    int exitCode = -1;  ///< 128 + signal when a signal ended it
    std::string out;
    std::string err;
    long pageFaults = 0;  ///< that the system answered with memory
};

/// Runs a program to its end. No shell: every word is an argument.
ProcessResult Run(const std::vector<std::string>& words);

/// The same, where the program's standard output is a pipe that nobody reads any more.
ProcessResult RunUnread(std::vector<std::string> words);

/// A program that runs beside the test.
class BackgroundProcess {
public:
    enum class Input { kNone, kPipe };

    explicit BackgroundProcess(const std::vector<std::string>& words, Input input = Input::kNone);
    /// Kills it if it still runs.
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    void Signal(int signal) const;
    /// To its standard input, which is a pipe. A program that has ended hears nothing.
    void Write(const std::string& text) const;
    /// Waits for the next line of its standard output; false when there will be none. What Wait
    /// gives begins after it.
    bool ReadLine(std::string& line);
    /// Waits for its end and gives what it printed.
    ProcessResult Wait();

private:
    int fProcess = -1;
    int fIn = -1;
    int fOut = -1;
    int fErr = -1;
    std::string fUnread;  // of its standard output
};

}  // namespace tests
