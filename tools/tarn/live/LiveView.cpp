#include "LiveView.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include "../ProgressLine.h"

LiveView::LiveView() : fOnTerminal(isatty(STDERR_FILENO) == 1) {}

void LiveView::Show(const std::string& text) {
    fText = text;
    if (fOnTerminal) draw();
}

// Room is made once by new lines; from then on the cursor goes up, writes, and comes back to where
// somebody may be typing. A line that is wider than the screen would wrap and be two.
void LiveView::draw() {
    const int lines = static_cast<int>(std::count(fText.begin(), fText.end(), '\n'));
    std::string out;
    for (; fLines < lines; ++fLines) out += "\n";
    out += "\0337\033[" + std::to_string(std::max(1, fLines)) + "A";
    const std::size_t width = TerminalWidth();
    std::size_t at = 0;
    for (int line = 0; line < fLines; ++line) {
        const std::size_t end = std::min(fText.find('\n', at), fText.size());
        out += "\r\033[K" + fText.substr(at, std::min(end - at, width - 1)) + "\033[B";
        at = std::min(end + 1, fText.size());
    }
    out += "\0338";
    std::fwrite(out.data(), 1, out.size(), stderr);
    std::fflush(stderr);
}

void LiveView::Say(const std::string& line) {
    if (!fOnTerminal) return;
    std::fprintf(stderr, "\r\033[K%s\n", line.c_str());
    fLines = 0;
    draw();
}
