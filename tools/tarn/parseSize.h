#pragma once

#include <string>

/// "1280x720" in plain digits, each side from `least` to `most`. False, with both as they were, for
/// anything else.
bool ParseSize(const std::string& text, int least, int most, int& width, int& height);
