// Access units in both forms: what is accepted renders to bytes that read back the same, and filler
// makes it longer by exactly what was asked, or by nothing.
#include <cstddef>
#include <cstdint>

#include "orb/CMpeg4AvcAccessUnit.h"

using namespace Quillon::Orb;

namespace {

void check(CMpeg4AvcAccessUnit& unit, int nalLengthSize, int filler) {
    const int before = unit.GetLength(nalLengthSize);
    const bool grown = unit.AddFillerData(filler).Succeeded();
    if (unit.GetLength(nalLengthSize) != before + (grown ? filler : 0)) __builtin_trap();
    RObject<CByteArray> bytes;
    if (unit.RenderLengthPrefixed(4, bytes).Failed()) __builtin_trap();
    RObject<CMpeg4AvcAccessUnit> again(new CMpeg4AvcAccessUnit());
    if (again->ParseLengthPrefixed(bytes.Get(), 4).Failed()) __builtin_trap();
    RObject<CByteArray> second;
    if (again->RenderLengthPrefixed(4, second).Failed()) __builtin_trap();
    if (!second->Equals(bytes.Get())) __builtin_trap();
    unit.IsKeyFrame();
    unit.RemoveNalUnits(CMpeg4AvcAccessUnit::kNalSei);
    unit.RenderAnnexB(bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const int nalLengthSize = 1 + data[0] % 4;
    const int filler = data[1] * 3;
    RObject<CByteArray> bytes(new CByteArray(data + 2, static_cast<int>(size - 2)));
    RObject<CMpeg4AvcAccessUnit> unit(new CMpeg4AvcAccessUnit());
    if (unit->ParseAnnexB(bytes.Get()).Succeeded()) check(*unit, 4, filler);
    if (unit->ParseLengthPrefixed(bytes.Get(), nalLengthSize).Succeeded()) {
        check(*unit, nalLengthSize, filler);
    }
    return 0;
}
