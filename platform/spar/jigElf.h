#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

/// Says what is wrong with a shared object before the loader maps it; empty when nothing is.
///
/// The loader itself trusts a file's headers: one that was cut short kills the process with a bus
/// error, on the first touch of a page that the file no longer has. `read` copies `size` bytes of
/// the file from `offset` and says whether they were all there.
using jigElfReader = std::function<bool(std::uint64_t offset, void* to, std::size_t size)>;

std::string jigElfProblem(std::uint64_t fileSize, const jigElfReader& read);
