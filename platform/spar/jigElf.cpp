#include "spar/jigElf.h"

#include <cstring>
#include <elf.h>
#include <link.h>
#include <vector>

namespace {

constexpr std::size_t kMostSegments = 1024;
constexpr unsigned char kNativeClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;

#if defined(__x86_64__)
constexpr int kNativeMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr int kNativeMachine = EM_AARCH64;
#else
constexpr int kNativeMachine = -1;  // left to the loader
#endif

const char* header_problem(const ElfW(Ehdr) & header) {
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return "not a shared object";
    if (header.e_ident[EI_CLASS] != kNativeClass) return "of another word size";
    if (kNativeMachine >= 0 && header.e_machine != kNativeMachine) return "for another processor";
    if (header.e_type != ET_DYN) return "not a shared object";
    if (header.e_phentsize != sizeof(ElfW(Phdr)) || header.e_phnum == 0 ||
        header.e_phnum > kMostSegments)
        return "damaged headers";
    return nullptr;
}

bool lies_within(const ElfW(Phdr) & segment, std::uint64_t fileSize) {
    return segment.p_offset <= fileSize && segment.p_filesz <= fileSize - segment.p_offset;
}

}  // namespace

std::string jigElfProblem(std::uint64_t fileSize, const jigElfReader& read) {
    ElfW(Ehdr) header;
    if (fileSize < sizeof header || !read(0, &header, sizeof header)) return "not a shared object";
    if (const char* problem = header_problem(header)) return problem;

    std::vector<ElfW(Phdr)> segments(header.e_phnum);
    const std::size_t size = segments.size() * sizeof segments[0];
    if (header.e_phoff > fileSize || size > fileSize - header.e_phoff ||
        !read(header.e_phoff, segments.data(), size))
        return "cut short";

    bool dynamic = false;
    for (const auto& segment : segments) {
        if (segment.p_type == PT_DYNAMIC) dynamic = true;
        if ((segment.p_type == PT_LOAD || segment.p_type == PT_DYNAMIC) &&
            !lies_within(segment, fileSize))
            return "cut short";
    }
    return dynamic ? "" : "not a shared object";
}
