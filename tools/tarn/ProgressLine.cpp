#include "ProgressLine.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

ProgressLine::ProgressLine() : fOnTerminal(isatty(STDERR_FILENO) == 1) {}

ProgressLine::~ProgressLine() {
    if (fShown) std::fputs("\n", stderr);
}

void ProgressLine::Show(const std::string& text) {
    if (!fOnTerminal) return;
    fShown = true;
    // A line that is wider than the screen would wrap, and a new one begin each time.
    const std::string fits = text.substr(0, TerminalWidth() - 1);
    std::fprintf(stderr, "\r%s\033[K", fits.c_str());
    std::fflush(stderr);
}

std::size_t TerminalWidth() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

std::string ProgressBar(double fraction) {
    constexpr int kWidth = 24;
    const int full = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * kWidth);
    std::string bar(static_cast<std::size_t>(kWidth), '.');
    bar.replace(0, static_cast<std::size_t>(full), static_cast<std::size_t>(full), '#');
    return '[' + bar + ']';
}
