#include "spar/zTraceManager.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace {

// Both live to the very end, after every static destructor: those trace too.
zTraceManager& standard_error() {
    static zTraceManager& sink = *new zTraceManager;
    return sink;
}

std::atomic<zTraceManager*>& current() {
    static std::atomic<zTraceManager*>& sink = *new std::atomic<zTraceManager*>(&standard_error());
    return sink;
}

/// Keeps from the calling thread the signal that a write to a pipe without a reader raises: unasked
/// for, it would end the process. One that waited before is not ours and goes on waiting.
class PipeSignalHeld {
public:
    PipeSignalHeld() {
        sigemptyset(&fSignal);
        sigaddset(&fSignal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &fSignal, &fMaskBefore);
        sigset_t pending;
        sigpending(&pending);
        fWaitedBefore = sigismember(&pending, SIGPIPE) == 1;
    }
    PipeSignalHeld(const PipeSignalHeld&) = delete;
    PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;
    ~PipeSignalHeld() { pthread_sigmask(SIG_SETMASK, &fMaskBefore, nullptr); }

    /// Takes back the signal that a write has just raised.
    void Take() {
        const timespec atOnce = {};
        while (!fWaitedBefore && sigtimedwait(&fSignal, nullptr, &atOnce) < 0 && errno == EINTR) {
        }
    }

private:
    sigset_t fSignal;
    sigset_t fMaskBefore;
    bool fWaitedBefore;
};

}  // namespace

zTraceManager::~zTraceManager() = default;

zTraceManager* zTraceManager::Default() {
    return current().load(std::memory_order_acquire);
}

zTraceManager* zTraceManager::SetDefault(zTraceManager* sink) {
    return current().exchange(sink, std::memory_order_acq_rel);
}

zTraceManager* zTraceManager::StandardError() {
    return &standard_error();
}

void zTraceManager::TraceMessage(int, const std::string& text) {
    // One call a message keeps it whole; the loop is for a pipe that takes less than all of it.
    const char* next = text.data();
    std::size_t left = text.size();
    PipeSignalHeld signal;
    while (left > 0) {
        const ssize_t written = write(STDERR_FILENO, next, left);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0 && errno == EPIPE) signal.Take();
        if (written <= 0) return;
        next += written;
        left -= static_cast<std::size_t>(written);
    }
}

void zTraceManager::TraceNote(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text;
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length) + 1);
        vsnprintf(text.data(), text.size(), format, again);
        text.pop_back();
    }
    va_end(again);
    if (length >= 0) TraceMessage('note', text);
}
