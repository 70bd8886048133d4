#include "StopSignal.h"

#include <csignal>
#include <cstdio>

#include "spar/zTime.h"

namespace {

// `timeout` and its like tell the process and then its whole group, and mean one stop by it.
constexpr long long kOneAskingUs = 1'000'000;

std::atomic<bool> gStop{false};
std::atomic<long long> gAskedUs{0};

void ask_to_stop(int signal) {
    gStop = true;
    const long long now = zTime::MicroNow();
    long long asked = 0;
    if (gAskedUs.compare_exchange_strong(asked, now) || now - asked < kOneAskingUs) return;
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// A shell and the system may both tell that a terminal has closed, and mean one end by it.
void end_in_order(int) {
    gStop = true;
}

}  // namespace

const std::atomic<bool>& WatchStopSignal() {
    std::signal(SIGINT, ask_to_stop);
    std::signal(SIGTERM, ask_to_stop);
    // Unless somebody meant the program to outlive its terminal.
    if (std::signal(SIGHUP, end_in_order) == SIG_IGN) std::signal(SIGHUP, SIG_IGN);
    // A file that may not grow further is a failed write, told in a line, and not the program's
    // end.
    std::signal(SIGXFSZ, SIG_IGN);
    return gStop;
}

bool StopAsked() {
    return gStop;
}

void KeepStandardStreams() {
    // A file takes the lowest number that is free; those of the streams stay open for good.
    std::FILE* file = nullptr;
    do {
        file = std::fopen("/dev/null", "r+");
    } while (file != nullptr && fileno(file) <= fileno(stderr));
    if (file != nullptr) std::fclose(file);
}

void OutliveReaders() {
    std::signal(SIGPIPE, SIG_IGN);
}
