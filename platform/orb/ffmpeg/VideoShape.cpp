#include "VideoShape.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace Quillon::Orb {

namespace {

constexpr double kRateTolerance = 1e-4;
constexpr long long kLargestTerm = 1 << 30;  // fits where encoders compute with ints

constexpr Rational<int> kCommonRates[] = {
    {24000, 1001}, {24, 1},       {25, 1}, {30000, 1001}, {30, 1},        {48, 1},
    {50, 1},       {60000, 1001}, {60, 1}, {100, 1},      {120000, 1001}, {120, 1},
};

/// Reduced and, where a term is too large for an int, rounded.
Rational<int> to_int_ratio(long long numerator, long long denominator) {
    const long long divisor = std::gcd(numerator, denominator);
    numerator /= divisor;
    denominator /= divisor;
    while (numerator > kLargestTerm || denominator > kLargestTerm) {
        numerator -= numerator / 2;
        denominator -= denominator / 2;
    }
    return {static_cast<int>(numerator), static_cast<int>(denominator)};
}

}  // namespace

Rational<int> NominalFrameRate(const CVideoProperties& properties) {
    Rational<long long> rate{properties.GetTimescale(), properties.GetFrameDuration()};
    if (rate.numerator <= 0 || rate.denominator <= 0) rate = properties.GetFrameRate();
    if (rate.numerator <= 0 || rate.denominator <= 0) return {30, 1};
    const double value =
        static_cast<double>(rate.numerator) / static_cast<double>(rate.denominator);
    for (const Rational<int>& common : kCommonRates) {
        const double target = static_cast<double>(common.numerator) / common.denominator;
        if (std::abs(value - target) <= target * kRateTolerance) return common;
    }
    return to_int_ratio(rate.numerator, rate.denominator);
}

Result ReadVideoShape(const CVideoProperties* input, const unsigned int* formats, int count,
                      VideoShape& shape) {
    if (!input) return ResultInvalidArgument("no input properties");
    if (input->GetWidth() < 1 || input->GetHeight() < 1 || input->GetWidth() > kLargestSide ||
        input->GetHeight() > kLargestSide) {
        return ResultInvalidArgument("pictures of %d x %d; sides go from 1 to %d",
                                     input->GetWidth(), input->GetHeight(), kLargestSide);
    }
    const unsigned int* end = formats + count;
    const bool listed = std::find(formats, end, input->GetFormat()) != end;
    shape.format = listed ? input->GetFormat() : *formats;
    shape.width = input->GetWidth();
    shape.height = input->GetHeight();
    shape.frameRate = NominalFrameRate(*input);
    const Rational<int> aspect = input->GetPixelAspectRatio();
    shape.pixelAspect = aspect.numerator > 0 && aspect.denominator > 0
                            ? to_int_ratio(aspect.numerator, aspect.denominator)
                            : Rational<int>{1, 1};
    shape.fieldOrder = input->GetFieldOrder();
    shape.colour = input->GetColorSpace();
    shape.fullRange = input->GetVideoRange() == CVideoProperties::kFullRange;
    return 0;
}

}  // namespace Quillon::Orb
