#pragma once

#include <CLI/CLI.hpp>
#include <string>

/// A finite number from `least` to `most`, both allowed; what is refused is told with the bounds
/// and their unit. Takes the place of CLI::Range, which lets "nan" through.
CLI::Validator NumberBetween(double least, double most, const std::string& unit);
