#include "Program.h"

extern "C" {
/// What jemalloc takes its options from, before main. By default it hands freed blocks of 8 MiB and
/// more back to the system at once, and each raw picture of 1080p BGRA or of 4K would lie on fresh
/// pages.
// NOLINTNEXTLINE(readability-identifier-naming)
__attribute__((visibility("default"))) const char* malloc_conf = "oversize_threshold:0";
}

int main(int argc, char** argv) {
    return RunProgram(argc, argv);
}
