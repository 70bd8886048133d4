#pragma once

#include <string>
#include <vector>

/// Keeps what the library traces away from the terminal view, and remembers it: a failure's reason
/// stands there. Any thread.
class LiveTrace {
public:
    LiveTrace() = delete;

    /// From now on messages come here; with `print` they go to standard error too.
    static void Install(bool print);
    static void Remove();
    /// The messages that name `subject`, oldest first, without their line ends.
    static std::vector<std::string> About(const std::string& subject);
    /// Messages that name `subject` from before are no longer of interest.
    static void Forget(const std::string& subject);
};
