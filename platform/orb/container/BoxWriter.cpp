#include "BoxWriter.h"

namespace Quillon::Orb {

void BoxWriter::put(unsigned long long value, int bytes) {
    const std::size_t at = fBytes.size();
    fBytes.resize(at + static_cast<std::size_t>(bytes));
    PutBig(&fBytes[at], value, bytes);
}

void BoxWriter::Leave(int id, long long size) {
    fGaps.push_back({id, Position(), size});
    fLeft += size;
}

void BoxWriter::Free(long long size) {
    if (size == 0) return;
    U32(static_cast<unsigned long long>(size));
    U32('free');
    Zeros(static_cast<std::size_t>(size - 8));
}

void BoxWriter::Open(unsigned int type) {
    const Start start{fBytes.size(), Position()};
    U32(0);
    U32(type);
    // Last: a box without memory for its head is none, and the one around it closes itself.
    fOpen.push_back(start);
}

void BoxWriter::OpenFull(unsigned int type, unsigned int version, unsigned int flags) {
    Open(type);
    U8(version);
    U24(flags);
}

void BoxWriter::Close() {
    const Start start = fOpen.back();
    fOpen.pop_back();
    PutBig(&fBytes[start.byte], static_cast<unsigned long long>(Position() - start.position), 4);
}

std::vector<BoxWriter::Piece> BoxWriter::Pieces() const {
    std::vector<Piece> pieces;
    long long position = 0;
    std::size_t byte = 0;
    const auto upTo = [&](long long end) {
        const auto size = static_cast<std::size_t>(end - position);
        if (size > 0) pieces.push_back({position, &fBytes[byte], size});
        byte += size;
        position = end;
    };
    for (const Gap& gap : fGaps) {
        upTo(gap.position);
        position += gap.size;
    }
    upTo(Position());
    return pieces;
}

void BoxWriter::Clear() {
    fBytes.clear();
    fGaps.clear();
    fOpen.clear();
    fLeft = 0;
}

}  // namespace Quillon::Orb
