#include "PixelKernels.h"

#include <initializer_list>

#include "PixelKernelsPlain.h"

namespace Quillon::Orb {

#if defined(__x86_64__)

const PixelKernels* Sse41PixelKernels() {
    return __builtin_cpu_supports("sse4.1") ? &gSse41PixelTable : nullptr;
}

const PixelKernels* Avx2PixelKernels() {
    return __builtin_cpu_supports("avx2") ? &gAvx2PixelTable : nullptr;
}

const PixelKernels* Avx512PixelKernels() {
    // The first processors with AVX-512 lack the last, and slow down when they use the rest.
    const bool has = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                     __builtin_cpu_supports("avx512vnni");
    return has ? &gAvx512PixelTable : nullptr;
}

#else

const PixelKernels* Sse41PixelKernels() {
    return nullptr;
}
const PixelKernels* Avx2PixelKernels() {
    return nullptr;
}
const PixelKernels* Avx512PixelKernels() {
    return nullptr;
}

#endif

const PixelKernels& BestPixelKernels() {
    static const PixelKernels* const kBest = [] {
        for (const PixelKernels* set :
             {Avx512PixelKernels(), Avx2PixelKernels(), Sse41PixelKernels()}) {
            if (set) return set;
        }
        return &PlainPixelKernels();
    }();
    return *kBest;
}

}  // namespace Quillon::Orb
