#include "spar/zTraceManager.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
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
    while (left > 0) {
        const ssize_t written = write(STDERR_FILENO, next, left);
        if (written < 0 && errno == EINTR) continue;
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
