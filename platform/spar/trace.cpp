#include "spar/trace.h"

#include <fmt/format.h>
#include <stdexcept>

namespace {

void message(const std::string& text) {
    if (zTraceManager* sink = zTraceManager::Default()) sink->TraceMessage('note', text);
}

// A sink that threw may throw again; then there is nobody left to tell.
void complain(const char* what) noexcept {
    try {
        message(what != nullptr ? fmt::format("zTrace '{}'\n", what)
                                : "zTrace Unknown Assertion\n");
    } catch (...) {
    }
}

}  // namespace

void zTraceFormatted(fmt::string_view format, fmt::format_args arguments) noexcept {
    try {
        message(fmt::vformat(format, arguments));
    } catch (const std::runtime_error& error) {
        complain(error.what());
    } catch (...) {
        complain(nullptr);
    }
}
