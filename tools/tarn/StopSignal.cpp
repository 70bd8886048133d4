#include "StopSignal.h"

#include <csignal>
#include <cstdio>

namespace {

std::atomic<bool> gStop{false};

void ask_to_stop(int) {
    gStop = true;
    for (const int second : {SIGINT, SIGTERM}) std::signal(second, SIG_DFL);
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
