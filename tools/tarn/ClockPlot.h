#pragma once

#include <string>

#include "ClockMeasure.h"

/// A drawing of a measurement as SVG: how many ticks came how late, and how late they came over
/// time. `title` is one line.
std::string DrawClockFigures(const std::string& title, const ClockFigures& figures);
