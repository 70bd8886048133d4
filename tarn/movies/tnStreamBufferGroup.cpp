#include "tarn/movies/tnStreamBufferGroup.h"

#include <memory>
#include <new>

#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/foundation/tnRasterType.h"

namespace {

constexpr int kNullArgument = -22;
constexpr int kOutOfMemory = -1024;
constexpr int kNoFreeBuffer = -1025;
constexpr int kPageBytes = 4096;

// Sizes wrap as everywhere in format arithmetic; one that wraps below 0 fails at the allocation.
int wrapping_product(int a, int b) {
    return static_cast<int>(static_cast<unsigned int>(a) * static_cast<unsigned int>(b));
}

int video_buffer_size(const tnMediaRecord& format) {
    const int raster = format.fColourspace.AsInt32(0);
    int rowBytes = format.fBytesPerRow.AsInt32(0);
    if (rowBytes == 0)
        rowBytes = tnRasterType::BytesPerRow(format.fWidth.AsInt32(0), raster, false);
    return wrapping_product(tnRasterType::RowCount(format.fHeight.AsInt32(0), raster), rowBytes);
}

// One second. Busses play no part here, unlike in tnMediaRecord::CalculateBufferSize: a buffer
// carries the sound of one of them.
int audio_buffer_size(const tnMediaRecord& format) {
    const int sampleBytes = format.fBitsPerSample.AsInt32('mbps') / 8;
    return wrapping_product(wrapping_product(format.fChannels.AsInt32(0), sampleBytes),
                            format.fSampleRate.AsInt32(0));
}

int buffer_size(const tnMediaRecord& format) {
    switch (format.fType.AsInt32(0)) {
        case TN_MEDIA_VIDEO:
            return video_buffer_size(format);
        case TN_MEDIA_AUDIO:
            return audio_buffer_size(format);
        default:
            return 0;
    }
}

}  // namespace

tnStreamBufferGroup::~tnStreamBufferGroup() {
    fPool.RemoveAndDeleteAll();
}

tnStreamBufferGroup* tnStreamBufferGroup::CreateForFormat(const tnMediaRecord& format, int count) {
    auto group = std::make_unique<tnStreamBufferGroup>();
    group->fBufferSize = buffer_size(format);
    for (int made = 0; made < count; ++made) {
        if (!group->create_and_add_buffer()) return nullptr;
    }
    return group.release();
}

int tnStreamBufferGroup::CreateBuffers(int count, int size, bool touch) {
    fBufferSize = size;
    for (int made = 0; made < count; ++made) {
        const tnStreamBuffer* buffer = create_and_add_buffer();
        if (!buffer) return kOutOfMemory;
        auto* bytes = static_cast<volatile char*>(buffer->GetPointer());
        if (!touch || !bytes) continue;
        for (int page = 0; page < size / kPageBytes; ++page)
            bytes[static_cast<long>(page) * kPageBytes] = 0;
    }
    return 0;
}

int tnStreamBufferGroup::GetBuffer(tnStreamBuffer** out, bool grow) {
    if (!out) return kNullArgument;
    *out = nullptr;
    if (fPool.Get(out) >= 0) return 0;
    if (!grow || !create_and_add_buffer()) return kNoFreeBuffer;
    return fPool.Get(out) >= 0 ? 0 : kNoFreeBuffer;
}

void tnStreamBufferGroup::SetBufferReturnFunction(void (*function)(tnStreamBuffer*, void*),
                                                  void* userData) {
    fReturnFunction = function;
    fReturnUserData = userData;
}

tnStreamBuffer* tnStreamBufferGroup::PeekBufferAt(int index) {
    return fPool.ItemAt(index);
}

tnStreamBuffer* tnStreamBufferGroup::create_and_add_buffer() {
    std::unique_ptr<tnStreamBuffer> buffer(new (std::nothrow) tnStreamBuffer());
    if (!buffer || buffer->Create(fBufferSize, this) != 0) return nullptr;
    buffer->SetNumberOfSamples(1);
    if (fPool.Add(buffer.get()) < 0) return nullptr;
    return buffer.release();
}

void tnStreamBufferGroup::buffer_returned(tnStreamBuffer* buffer) {
    if (!buffer) return;
    fPool.Return(buffer);
    if (fReturnFunction) fReturnFunction(buffer, fReturnUserData);
}
