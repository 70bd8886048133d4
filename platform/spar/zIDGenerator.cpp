#include "spar/zIDGenerator.h"

#include <atomic>
#include <random>

unsigned long long zIDGenerator::Generate(char kind) {
    static const unsigned long long kProcess = std::random_device()() & 0xFFFFFFu;
    static std::atomic<unsigned int> gLast{0};
    unsigned int number = gLast.fetch_add(1, std::memory_order_relaxed) + 1;
    // Nobody is given 0: clocks keep the low half alone, and there 0 means none.
    if (number == 0) number = gLast.fetch_add(1, std::memory_order_relaxed) + 1;
    return static_cast<unsigned long long>(static_cast<unsigned char>(kind)) << 56 |
           kProcess << 32 | number;
}
