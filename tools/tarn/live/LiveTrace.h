#pragma once

#include <string>

/// Keeps what the library traces away from the terminal view, and remembers it: a failure's reason
/// stands there. Any thread.
class LiveTrace {
public:
    LiveTrace() = delete;

    /// From now on messages come here; with `print` they go to standard error too.
    static void Install(bool print);
    static void Remove();
    /// The newest message that names `subject`, without its line end; empty if there is none.
    static std::string LastAbout(const std::string& subject);
    /// Messages that name `subject` from before are no longer of interest.
    static void Forget(const std::string& subject);
};
