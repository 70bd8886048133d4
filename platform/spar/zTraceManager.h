#pragma once

#include <string>

#include "spar/export.h"

/// A sink of trace messages. This class writes to standard error; a host derives its own. What
/// standard error does not take is lost, also when it is a pipe that nobody reads any more.
///
/// Any thread may trace. A message goes out in one piece, so that the lines of two threads, or of
/// two processes that share one log file, do not mix. Production code traces through spar/trace.h.
class SPAR_API zTraceManager {
public:
    zTraceManager() = default;
    zTraceManager(const zTraceManager&) = delete;
    zTraceManager& operator=(const zTraceManager&) = delete;
    virtual ~zTraceManager();

    /// The sink of the process, or null while the host has switched tracing off.
    static zTraceManager* Default();

    /// Makes `sink` the sink of the process, null for none, and gives the one before. A sink is not
    /// owned, and a thread may be inside it when it is replaced: it lives until such threads are
    /// done.
    static zTraceManager* SetDefault(zTraceManager* sink);

    /// The sink to standard error, which is the default until a host says otherwise.
    static zTraceManager* StandardError();

    /// Writes one message at `level`, a four-character code; 'note' is the only one in use. Nothing
    /// is added to `text`: the newline at its end is the caller's.
    virtual void TraceMessage(int level, const std::string& text);

    /// The same as a 'note', in the words of printf.
    void TraceNote(const char* format, ...) __attribute__((format(printf, 2, 3)));
};
