#include "ProgressLine.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

ProgressLine::ProgressLine() : fOnTerminal(isatty(STDERR_FILENO) == 1) {}

ProgressLine::~ProgressLine() {
    if (fShown) std::fputs("\n", stderr);
}

void ProgressLine::Show(const std::string& text) {
    if (!fOnTerminal) return;
    fShown = true;
    std::fprintf(stderr, "\r%s\033[K", text.c_str());
    std::fflush(stderr);
}

std::string ProgressBar(double fraction) {
    constexpr int kWidth = 24;
    const int full = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * kWidth);
    std::string bar(static_cast<std::size_t>(kWidth), '.');
    bar.replace(0, static_cast<std::size_t>(full), static_cast<std::size_t>(full), '#');
    return '[' + bar + ']';
}
