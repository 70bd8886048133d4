#pragma once

namespace Quillon::Orb {

/// A fraction as it was given: nothing reduces it or minds a zero below the line.
template <class T>
struct Rational {
    T numerator = 0;
    T denominator = 1;

    constexpr Rational() = default;
    constexpr Rational(T above, T below) : numerator(above), denominator(below) {}
    constexpr bool operator==(const Rational&) const = default;
};

}  // namespace Quillon::Orb
