#pragma once

#include <string>

// What a code of a movie, of its file or of an encoder means to a person, and what to do about it.

/// For a host whose trace stands on the terminal, above this line. `encoder` is its name.
std::string WriterText(int code, const std::string& encoder);

/// For a host that shows the trace itself: `location` is the movie's path or address.
std::string MovieErrorText(int code, const std::string& location);
