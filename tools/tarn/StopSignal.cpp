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
    return gStop;
}
