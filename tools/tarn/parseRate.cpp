#include "parseRate.h"

#include <cmath>
#include <cstdlib>

bool ParseRate(const std::string& text, Rate& rate, double fastest) {
    char* end = nullptr;
    const double first = std::strtod(text.c_str(), &end);
    double second = 1;
    if (end == text.c_str()) return false;
    const bool fraction = *end == '/';
    if (fraction) {
        const char* const divisor = end + 1;
        second = std::strtod(divisor, &end);
        if (end == divisor) return false;
    }
    const bool whole = first == std::floor(first) && second == std::floor(second);
    const double perSecond = first / second;
    if (*end != 0 || !(first > 0) || !(second > 0) || !(perSecond >= kSlowestRate) ||
        !(perSecond <= fastest)) {
        return false;
    }
    if (fraction && (!whole || first > 1e9 || second > 1e9)) return false;
    if (whole) {
        rate = {static_cast<long long>(first), static_cast<long long>(second)};
        return true;
    }
    // The rates of television that are written with a decimal point stand for 1000/1001 of a whole.
    const double near = std::round(first * 1.001);
    if (std::fabs(near / 1.001 - first) < 0.005) {
        rate = {static_cast<long long>(near) * 1000, 1001};
    } else {
        rate = {static_cast<long long>(std::llround(first * 1000)), 1000};
    }
    return rate.numerator > 0;
}
