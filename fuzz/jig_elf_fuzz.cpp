// The headers of a would-be add-on: no bytes may make the check read past the file or die.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "spar/jigElf.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    jigElfProblem(size, [&](std::uint64_t offset, void* to, std::size_t wanted) {
        if (offset > size || wanted > size - offset) __builtin_trap();
        std::memcpy(to, data + offset, wanted);
        return true;
    });
    return 0;
}
