#pragma once

#include <string>

/// One line of a terminal that is written over and over; nothing at all when stderr is a pipe.
class ProgressLine {
public:
    ProgressLine();
    /// Ends the line, if one was shown.
    ~ProgressLine();
    void Show(const std::string& text);

private:
    bool fOnTerminal;
    bool fShown = false;
};

/// "[#####.....]" for a fraction from 0 to 1.
std::string ProgressBar(double fraction);
