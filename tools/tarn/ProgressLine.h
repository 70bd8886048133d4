#pragma once

#include <cstddef>
#include <string>

/// One line of a terminal that is written over and over; nothing at all when stderr is a pipe.
class ProgressLine {
public:
    ProgressLine();
    /// Ends the line, if one was shown.
    ~ProgressLine();
    /// What does not fit on the screen is left out.
    void Show(const std::string& text);

private:
    bool fOnTerminal;
    bool fShown = false;
};

/// Characters in a line of the terminal behind standard error; 80 if there is none, or it does not
/// say. At least 1.
std::size_t TerminalWidth();

/// "[#####.....]" for a fraction from 0 to 1.
std::string ProgressBar(double fraction);
