#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "spar/zMemoryStream.h"
#include "spar/zRecord.h"
#include "spar/zXML.h"

// Whatever is read is written, and reads back as what was written.

static zMemoryStream written(const zRecord& record) {
    zMemoryStream stream;
    if (zXML::WriteStream(5, &record, &stream, "\n", 0) != 0) std::abort();
    return stream;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    zRecord record;
    if (zXML::ParseMemory(1, &record, data, size) != 0) {
        if (!record.IsEmpty()) std::abort();
        return 0;
    }
    const zMemoryStream first = written(record);
    zRecord again;
    if (zXML::ParseMemory(1, &again, first.Content().data(), first.Content().size()) != 0) {
        std::abort();
    }
    if (written(again).Content() != first.Content()) std::abort();
    return 0;
}
