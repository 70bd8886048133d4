#pragma once

#include <string>

/// Lines of standard input, without blocking longer than asked. One thread.
class CommandInput {
public:
    /// Waits up to `milliseconds` for a whole line. True with one in `line`, without its end; the
    /// last one may lack its end. Once the input is over it just waits.
    bool WaitForLine(int milliseconds, std::string& line);

private:
    bool take_line(std::string& line);

    std::string fPending;
    bool fEnded = false;
};
