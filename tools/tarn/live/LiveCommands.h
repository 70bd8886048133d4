#pragma once

#include <string>

class LiveShow;

/// What a line on standard input has led to.
struct LiveAnswer {
    bool ok = true;
    bool quit = false;
    bool stats = false;
    std::string message;  ///< what was done, or what is wrong and what to do; no line end
};

/// Carries out one line: add ELEMENT, add FILE, remove NAME, enable NAME [on|off], stats, quit,
/// help. An empty line is nothing.
LiveAnswer ObeyLiveCommand(const std::string& line, LiveShow& show);
