#pragma once

#include <string>

#include "SyncFigures.h"
#include "SyncMeter.h"

/// A drawing of a measurement as SVG: each pair's offset over the clip's time, with the median and
/// the drift. `title` is one line.
std::string DrawSyncFigures(const std::string& title, const SyncMeasurement& measurement,
                            const SyncFigures& figures);
