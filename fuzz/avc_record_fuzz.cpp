// avcC records and parameter sets behind start codes: whatever is accepted renders to a record that
// reads back the same.
#include <cstddef>
#include <cstdint>

#include "orb/CMpeg4AvcDecoderConfiguration.h"

using namespace Quillon::Orb;

namespace {

void check(const CMpeg4AvcDecoderConfiguration& configuration) {
    RObject<CByteArray> record;
    if (configuration.Render(record).Failed()) __builtin_trap();
    RObject<CMpeg4AvcDecoderConfiguration> again(new CMpeg4AvcDecoderConfiguration());
    if (again->Parse(record->GetData(), record->GetLength()).Failed()) __builtin_trap();
    RObject<CByteArray> second;
    if (again->Render(second).Failed() || !second->Equals(record.Get())) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int length = static_cast<int>(size);
    RObject<CMpeg4AvcDecoderConfiguration> record(new CMpeg4AvcDecoderConfiguration());
    if (record->Parse(data, length).Succeeded()) check(*record);
    RObject<CMpeg4AvcDecoderConfiguration> stream(new CMpeg4AvcDecoderConfiguration());
    if (stream->ParseAnnexB(data, length).Succeeded()) check(*stream);
    return 0;
}
