#include "StopSignal.h"

#include <csignal>

namespace {

std::atomic<bool> gStop{false};

void ask_to_stop(int signal) {
    gStop = true;
    std::signal(signal, SIG_DFL);
}

}  // namespace

const std::atomic<bool>& WatchStopSignal() {
    std::signal(SIGINT, ask_to_stop);
    std::signal(SIGTERM, ask_to_stop);
    // A file that may not grow further is a failed write, told in a line, and not the program's
    // end.
    std::signal(SIGXFSZ, SIG_IGN);
    return gStop;
}
