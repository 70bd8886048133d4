#pragma once

#include <atomic>

#include "tarn/export.h"

class tnStreamBufferGroup;

/// One frame's memory, lent out by its group and handed along by a counted writing reference.
///
/// The producer takes it from the group with a count of 0, fills it, and adds a reference for
/// itself while it hands it to several consumers, one more for each. Whoever gives the last one
/// back, on whatever thread, returns the buffer to its group with it.
class TARN_API tnStreamBuffer {
public:
    tnStreamBuffer() = default;
    tnStreamBuffer(const tnStreamBuffer&) = delete;
    tnStreamBuffer& operator=(const tnStreamBuffer&) = delete;
    virtual ~tnStreamBuffer();

    /// Start of the data, aligned to 32 bytes; null in a buffer of size 0.
    virtual void* GetPointer() const;
    /// Usable bytes.
    virtual int GetDataSize() const;
    /// Memory of a device, in a subclass that has some; null here.
    virtual void* GetOutputDeviceData() const;

    /// Allocates `size` bytes (none for 0) and joins `group`, which may be null: 0, or -1024 with
    /// nothing changed. Once per buffer.
    int Create(int size, tnStreamBufferGroup* group);

    void SetNumberOfSamples(int samples) { fNumberOfSamples = samples; }
    int GetNumberOfSamples() const { return fNumberOfSamples; }
    /// Ticks of the stream's timescale.
    void SetDurationForData(long long duration) { fDurationForData = duration; }
    long long GetDurationForData() const { return fDurationForData; }

    /// Both give the new count. A release without a reference is not detected: the buffer then
    /// stays taken.
    int AddWritingRef();
    int ReleaseWriting();
    /// Gives a buffer that nobody references back to its group; leaves the others alone.
    int ReturnToGroupIfWritingRefCountIsZero();

private:
    tnStreamBufferGroup* fGroup = nullptr;
    std::atomic<int> fWritingRefCount{0};
    void* fAllocation = nullptr;
    void* fData = nullptr;
    int fDataSize = 0;
    int fNumberOfSamples = 1;
    long long fDurationForData = 0;
};
