#pragma once

#include <string>

/// What a code of an output add-on means to a person, and what to do about it.
std::string MovieErrorText(int code, const std::string& location);
