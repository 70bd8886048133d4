#include "orb/annexB.h"

namespace Quillon::Orb {

namespace {
constexpr std::ptrdiff_t kStartCode = 3;
}

AnnexBReader::AnnexBReader(const unsigned char* data, std::size_t length) noexcept
    : fNext(data), fEnd(data + length) {
    fNext = find_start(fNext);
}

const unsigned char* AnnexBReader::find_start(const unsigned char* from) const noexcept {
    // A third byte above 1 rules out three places at once, which is the rule in coded data.
    while (fEnd - from >= kStartCode) {
        if (from[2] > 1) {
            from += 3;
        } else if (from[2] == 1 && from[0] == 0 && from[1] == 0) {
            return from;
        } else {
            ++from;
        }
    }
    return fEnd;
}

bool AnnexBReader::Next(const unsigned char*& unit, std::size_t& length) noexcept {
    while (fNext < fEnd) {
        unit = fNext + kStartCode;
        fNext = find_start(unit);
        const unsigned char* end = fNext;
        // Zeros belong to the next start code or pad the stream: no NAL unit ends in one.
        while (end > unit && end[-1] == 0) --end;
        length = static_cast<std::size_t>(end - unit);
        if (length > 0) return true;
    }
    return false;
}

}  // namespace Quillon::Orb
