#include "CommandInput.h"

#include <poll.h>
#include <unistd.h>

#include "spar/zThread.h"

namespace {

/// Whether what is typed is for another program: to read it from the background would stop this
/// one, and its show.
bool is_in_background() {
    const pid_t foreground = tcgetpgrp(STDIN_FILENO);
    return foreground >= 0 && foreground != getpgrp();
}

}  // namespace

bool CommandInput::take_line(std::string& line) {
    const std::size_t end = fPending.find('\n');
    if (end == std::string::npos) {
        if (!fEnded || fPending.empty()) return false;
        line = std::move(fPending);
        fPending.clear();
        return true;
    }
    line = fPending.substr(0, end);
    fPending.erase(0, end + 1);
    return true;
}

bool CommandInput::WaitForLine(int milliseconds, std::string& line) {
    if (take_line(line)) return true;
    if (fEnded || is_in_background()) {
        zThread::MicroSleep(static_cast<unsigned int>(milliseconds) * 1000);
        return false;
    }
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, milliseconds) <= 0) return false;
    char block[4096];
    const ssize_t got = read(STDIN_FILENO, block, sizeof block);
    if (got <= 0) {
        fEnded = true;
    } else {
        fPending.append(block, static_cast<std::size_t>(got));
    }
    return take_line(line);
}
