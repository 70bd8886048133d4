#pragma once

namespace Quillon::Orb {

/// What the numbers of a picture mean as colours: code points of ISO/IEC 23091-2.
class ColorSpace {
public:
    static constexpr unsigned char kUnspecified = 2;

    /// Nothing is known.
    constexpr ColorSpace() = default;
    constexpr ColorSpace(unsigned char primaries, unsigned char transfer, unsigned char matrix)
        : fPrimaries(primaries), fTransfer(transfer), fMatrix(matrix) {}

    constexpr bool operator==(const ColorSpace& other) const = default;

    constexpr unsigned char GetPrimaries() const { return fPrimaries; }
    constexpr unsigned char GetTransfer() const { return fTransfer; }
    constexpr unsigned char GetMatrix() const { return fMatrix; }

    static const ColorSpace BT709;
    static const ColorSpace BT601N;  ///< of the 30 Hz family
    static const ColorSpace BT601P;  ///< of the 25 Hz family: other primaries, the same matrix

private:
    unsigned char fPrimaries = kUnspecified;
    unsigned char fTransfer = kUnspecified;
    unsigned char fMatrix = kUnspecified;
};

inline constexpr ColorSpace ColorSpace::BT709{1, 1, 1};
inline constexpr ColorSpace ColorSpace::BT601N{6, 1, 6};
inline constexpr ColorSpace ColorSpace::BT601P{5, 1, 6};

static_assert(sizeof(ColorSpace) == 3);

}  // namespace Quillon::Orb
