#pragma once

#include "spar/zPool.h"
#include "tarn/export.h"
#include "tarn/movies/tnStreamBuffer.h"

class tnMediaRecord;

/// A pool of equally large stream buffers, all of which it owns.
///
/// The free buffer of lowest position goes out first, so that the buffers in use stay few and warm.
/// Taking and giving back allocate nothing while a buffer is free; any thread may do either. Every
/// user is done with the buffers before the group goes.
class TARN_API tnStreamBufferGroup {
public:
    tnStreamBufferGroup() = default;
    tnStreamBufferGroup(const tnStreamBufferGroup&) = delete;
    tnStreamBufferGroup& operator=(const tnStreamBufferGroup&) = delete;
    virtual ~tnStreamBufferGroup();

    /// A group of `count` buffers that each hold one frame, or one second of sound, of `format`.
    /// The caller owns it; null when out of memory. A count below 1 gives a group without buffers.
    static tnStreamBufferGroup* CreateForFormat(const tnMediaRecord& format, int count);

    /// Adds `count` buffers of `size` bytes: 0, or -1024 with those that could be made. `touch`
    /// makes their pages resident now instead of on the road of the first frames.
    int CreateBuffers(int count, int size, bool touch);

    /// Takes a free buffer into `*out`, never blocking: 0; -22 for a null `out`; -1025 and null
    /// when none is free and none could be added. `grow` adds one in need.
    int GetBuffer(tnStreamBuffer** out, bool grow);

    /// `function` hears of every buffer that has come back, which it may take again at once, on the
    /// thread that brought it back. Set before buffers circulate; null for none.
    void SetBufferReturnFunction(void (*function)(tnStreamBuffer*, void*), void* userData);

    /// The buffer that was added as number `index`, from 0, whether it is out or not; nothing about
    /// it changes. Null past the end.
    tnStreamBuffer* PeekBufferAt(int index);

    /// Adds one free buffer of the group's size; null when out of memory.
    virtual tnStreamBuffer* create_and_add_buffer();
    /// A buffer's last writing reference has gone.
    virtual void buffer_returned(tnStreamBuffer* buffer);

private:
    zPool<tnStreamBuffer, zPoolAllocator<tnStreamBuffer>> fPool;
    int fBufferSize = 0;
    void (*fReturnFunction)(tnStreamBuffer*, void*) = nullptr;
    void* fReturnUserData = nullptr;
};
