#pragma once

#include <cstddef>

namespace Quillon::Orb {

/// Walks the NAL units of a byte stream with start codes of three or four bytes.
class AnnexBReader {
public:
    AnnexBReader(const unsigned char* data, std::size_t length) noexcept;

    /// The next unit that is not empty, without start code and without the zeros behind it; false
    /// at the end. Bytes before the first start code are no unit.
    bool Next(const unsigned char*& unit, std::size_t& length) noexcept;

private:
    /// The next 00 00 01 at or after `from`, or the end.
    const unsigned char* find_start(const unsigned char* from) const noexcept;

    const unsigned char* fNext;
    const unsigned char* fEnd;
};

}  // namespace Quillon::Orb
