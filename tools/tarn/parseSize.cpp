#include "parseSize.h"

#include <charconv>

bool ParseSize(const std::string& text, int least, int most, int& width, int& height) {
    const auto side = [&](const char* from, const char* to, int& value) {
        const auto [end, failure] = std::from_chars(from, to, value);
        return failure == std::errc() && end == to && value >= least && value <= most;
    };
    const std::size_t middle = text.find('x');
    if (middle == std::string::npos) return false;
    const char* const begin = text.data();
    int columns = 0;
    int rows = 0;
    if (!side(begin, begin + middle, columns) ||
        !side(begin + middle + 1, begin + text.size(), rows)) {
        return false;
    }
    width = columns;
    height = rows;
    return true;
}
