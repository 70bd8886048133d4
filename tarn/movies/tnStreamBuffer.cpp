#include "tarn/movies/tnStreamBuffer.h"

#include <cstdint>
#include <cstdlib>

#include "tarn/movies/tnStreamBufferGroup.h"

namespace {

constexpr int kOutOfMemory = -1024;
constexpr std::uintptr_t kAlignment = 32;

}  // namespace

tnStreamBuffer::~tnStreamBuffer() {
    std::free(fAllocation);
}

void* tnStreamBuffer::GetPointer() const {
    return fData;
}

int tnStreamBuffer::GetDataSize() const {
    return fDataSize;
}

void* tnStreamBuffer::GetOutputDeviceData() const {
    return nullptr;
}

int tnStreamBuffer::Create(int size, tnStreamBufferGroup* group) {
    // The size of a nonsensical format wraps below 0; no memory is that small.
    if (size < 0) return kOutOfMemory;
    if (size != 0) {
        fAllocation = std::malloc(static_cast<std::size_t>(size) + kAlignment);
        if (!fAllocation) return kOutOfMemory;
        const auto start = reinterpret_cast<std::uintptr_t>(fAllocation);
        fData = reinterpret_cast<void*>((start + kAlignment - 1) / kAlignment * kAlignment);
        fDataSize = size;
    }
    fGroup = group;
    return 0;
}

int tnStreamBuffer::AddWritingRef() {
    return fWritingRefCount.fetch_add(1, std::memory_order_seq_cst) + 1;
}

int tnStreamBuffer::ReleaseWriting() {
    const int left = fWritingRefCount.fetch_sub(1, std::memory_order_seq_cst) - 1;
    if (left == 0 && fGroup) fGroup->buffer_returned(this);
    return left;
}

int tnStreamBuffer::ReturnToGroupIfWritingRefCountIsZero() {
    AddWritingRef();
    return ReleaseWriting();
}
