#pragma once

#include <string>

#include "tarn/sync/tnSleeper.h"

/// Reads "renderer:20-80" or "decompressor:40": a point, and the milliseconds that a frame is held
/// up there. False with one line in `error`, and `configuration` as it was.
bool ParseSleep(const std::string& text, tnSleeper::Configuration& configuration,
                std::string& error);
