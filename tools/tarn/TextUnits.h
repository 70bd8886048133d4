#pragma once

#include <string>

/// "1.2 GB", "34 kB": decimal units, as file managers show them.
std::string TextOfBytes(long long bytes);

/// "1:02:03.4", "0:07.5": hours only where there are any, hundredths below a tenth.
std::string TextOfSeconds(double seconds);
