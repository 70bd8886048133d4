#pragma once

// For sources, not for headers: it brings in fmt.
#include <fmt/core.h>

#include "spar/export.h"
#include "spar/zTraceManager.h"

/// The part of zTrace that is the same for every call. Throws nothing.
SPAR_API void zTraceFormatted(fmt::string_view format, fmt::format_args arguments) noexcept;

/// Formats one message and traces it at note level; the message ends in a newline.
///
///     zTrace("tnWriteORB2: '{}': no space left; {} frames kept\n", path, frames);
///
/// Tracing never stops the operation: an exception is caught here, and traced in place of the
/// message as "zTrace '...'" if it was a std::runtime_error, else as "zTrace Unknown Assertion".
/// Nothing is formatted while there is no sink.
template <class... Arguments>
void zTrace(fmt::format_string<Arguments...> format, Arguments&&... arguments) noexcept {
    if (zTraceManager::Default() == nullptr) return;
    zTraceFormatted(format, fmt::make_format_args(arguments...));
}
