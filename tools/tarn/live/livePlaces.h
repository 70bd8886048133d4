#pragma once

#include <string>

// What an output's location says, as the add-ons take it: an address, or a path with or without
// "file://" in front.

bool IsAddress(const std::string& location);
/// False for udp:// without a port behind its host, or with one that is none: only its lowest bits
/// would be taken, and be somebody else's.
bool HasGoodPort(const std::string& location);
/// Of a location that is no address.
std::string PathOf(const std::string& location);
