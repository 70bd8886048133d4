#pragma once

#include <string>

// What an output's location says, as the add-ons take it: an address, or a path with or without
// "file://" in front.

bool IsAddress(const std::string& location);
/// Of a location that is no address.
std::string PathOf(const std::string& location);
