#pragma once

#include <string>

struct RecordFigures;
struct RecordOptions;

/// The lines that tell a person what a recording that succeeded has made: `bytes` on disk, in
/// `elapsed` seconds, and, of one at the clip's own pace, whether the encoder kept up with it.
std::string RecordSummary(const RecordOptions& options, const RecordFigures& figures,
                          long long bytes, double elapsed, bool stopped);
