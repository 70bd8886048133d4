#pragma once

#include <string>

/// `text` as a JSON string, quotes included. Bytes that are no UTF-8, as names of files may have
/// them, become U+FFFD each: a line with others is no JSON to anybody.
std::string JsonString(const std::string& text);
