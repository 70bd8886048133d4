#include "tarn/audio/tnRTBuffer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "spar/zCritical.h"
#include "spar/zSignal.h"
#include "spar/zTime.h"

namespace {

constexpr int kDataPending = -2;
constexpr int kNoData = -3;
constexpr int kDataSkip = -4;
constexpr int kReadIsLate = -5;
constexpr int kBeyondHeldBytes = -29;

constexpr std::size_t kAlignment = 32;

/// Whole units of a time difference. Differences beyond 32 bits are beyond any buffer.
long long whole_units(double difference) {
    constexpr double kFar = 2147483647.0;
    return static_cast<long long>(std::clamp(difference, -kFar, kFar));
}

/// Copies what `from` holds at `offset`; the tail that it does not hold becomes zeros. After a hole
/// at the break the second stretch reaches past the data, and stale bytes must not be heard.
void copy_or_zero(char* to, const tnRTBuffer::rt_buffer& from, long long offset, int bytes) {
    const long long held = std::clamp<long long>(from.fUsed - offset, 0, bytes);
    std::memcpy(to, from.fData + std::min<long long>(offset, from.fUsed),
                static_cast<std::size_t>(held));
    std::memset(to + held, 0, static_cast<std::size_t>(bytes - held));
}

}  // namespace

tnRTBuffer::rt_buffer::rt_buffer(int size)
    : fStorage(static_cast<std::size_t>(size) + kAlignment, 0) {
    const auto address = reinterpret_cast<std::uintptr_t>(fStorage.data());
    fData = fStorage.data() + (kAlignment - address % kAlignment) % kAlignment;
}

tnRTBuffer::tnRTBuffer() : fCritical(zCritical::Factory(1)), fSignal(zSignal::Factory()) {}

tnRTBuffer::~tnRTBuffer() {
    delete fSignal;
    delete fCritical;
}

int tnRTBuffer::Initialize(int size) {
    fBufferSize = size;
    fFirst = std::make_unique<rt_buffer>(size);
    fSecond = std::make_unique<rt_buffer>(size);
    fCurrent = fFirst.get();
    return 0;
}

void tnRTBuffer::Reset() {
    const zCriticalLock lock(*fCritical);
    fCurrent = fFirst.get();
    for (rt_buffer* buffer : {fFirst.get(), fSecond.get()}) {
        if (buffer != nullptr) {
            buffer->fUsed = 0;
            buffer->fStartTime = -1.0;
            buffer->fEndTime = -1.0;
        }
    }
}

void tnRTBuffer::WriteToBuffer(const void* data, int size, long long, long long, double time,
                               double duration, int bytesPerUnit) {
    const zCriticalLock lock(*fCritical);
    if (fCurrent == nullptr) {
        return;
    }
    if (fCurrent->fStartTime < 0.0) {
        fCurrent->fStartTime = time;
    }
    if (fCurrent->fEndTime >= 0.0) {
        meet_end(time, bytesPerUnit);
    }
    if (fBufferSize - fCurrent->fUsed < size) {
        flip_buffer(time);
    }
    if (data != nullptr) {
        std::memcpy(fCurrent->fData + fCurrent->fUsed, data, static_cast<std::size_t>(size));
    }
    fCurrent->fUsed += size;
    fCurrent->fEndTime = time + duration;
    if (fWaiters != 0) {
        fSignal->Raise();
        --fWaiters;
    }
}

/// Makes the end of the current buffer meet `time`, where the next write goes.
void tnRTBuffer::meet_end(double time, int bytesPerUnit) {
    rt_buffer& current = *fCurrent;
    if (time > current.fEndTime) {
        increment_data_gap(whole_units(time - current.fEndTime) * bytesPerUnit, 0, time,
                           bytesPerUnit);
    } else if (time < current.fStartTime) {
        current.fStartTime = time;
        current.fUsed = 0;
    } else {
        const long long cut = whole_units(current.fEndTime - time) * bytesPerUnit;
        current.fUsed = static_cast<int>(std::max<long long>(current.fUsed - cut, 0));
    }
}

void tnRTBuffer::flip_buffer(double time) {
    fCurrent = fCurrent == fFirst.get() ? fSecond.get() : fFirst.get();
    fCurrent->fUsed = 0;
    fCurrent->fStartTime = time;
    fCurrent->fEndTime = time;
}

void tnRTBuffer::increment_data_gap(long long gap, long long, double time, int fillLimit) {
    if (gap <= 0) {
        return;
    }
    rt_buffer& current = *fCurrent;
    if (gap > fBufferSize - current.fUsed) {
        flip_buffer(time);
        return;
    }
    char* end = current.fData + current.fUsed;
    const auto bytes = static_cast<std::size_t>(gap);
    if (gap <= fillLimit && gap <= current.fUsed) {
        std::memcpy(end, end - gap, bytes);
    } else {
        std::memset(end, 0, bytes);
    }
    current.fUsed += static_cast<int>(gap);
}

tnRTBuffer::rt_buffer* tnRTBuffer::holder_of_start(double time) {
    for (rt_buffer* buffer : {fFirst.get(), fSecond.get()}) {
        if (time >= buffer->fStartTime && time < buffer->fEndTime) {
            return buffer;
        }
    }
    return nullptr;
}

tnRTBuffer::rt_buffer* tnRTBuffer::holder_of_end(rt_buffer* start, double end) {
    rt_buffer* other = start == fFirst.get() ? fSecond.get() : fFirst.get();
    for (rt_buffer* buffer : {start, other}) {
        if (end >= buffer->fStartTime && end <= buffer->fEndTime) {
            return buffer;
        }
    }
    return nullptr;
}

int tnRTBuffer::ReadFromBuffer(void* data, int size, long long, double time, double duration,
                               int bytesPerUnit) {
    const zCriticalLock lock(*fCritical);
    if (fCurrent == nullptr) {
        return kNoData;
    }
    rt_buffer* start = holder_of_start(time);
    if (start == nullptr) {
        // Only the first buffer's start is asked, however the two stand in time: readers know
        // "late" and "not yet" apart by exactly this.
        const bool isLate = time < fFirst->fStartTime && fSecond->fStartTime != 0.0;
        return isLate ? kReadIsLate : kNoData;
    }
    const rt_buffer* end = holder_of_end(start, time + duration);
    if (end == nullptr) {
        return kDataPending;
    }
    const long long offset = whole_units(time - start->fStartTime) * bytesPerUnit;
    const long long available = start->fUsed - offset;
    if (available < 0) {
        return kBeyondHeldBytes;
    }
    const double breakUnits = start == end ? 0.0 : end->fStartTime - start->fEndTime;
    if (start != end && bytesPerUnit * breakUnits >= size) {
        return kDataSkip;
    }
    if (data == nullptr) {
        return 0;
    }
    char* to = static_cast<char*>(data);
    const int first = static_cast<int>(std::min<long long>(size, available));
    std::memcpy(to, start->fData + offset, static_cast<std::size_t>(first));
    // A break below zero is data that a rewind cut off the start buffer: the other begins where it
    // ends.
    const long long skip = std::max<long long>(whole_units(breakUnits) * bytesPerUnit, 0);
    copy_or_zero(to + first, *end, skip, size - first);
    return 0;
}

int tnRTBuffer::ReadFromBufferWithTimeout(void* data, int size, long long, double time,
                                          double duration, int bytesPerUnit, long long timeout) {
    int result = ReadFromBuffer(data, size, 0, time, duration, bytesPerUnit);
    if ((result != kDataPending && result != kNoData) || timeout <= 0) {
        return result;
    }
    while (timeout > 0) {
        {
            const zCriticalLock lock(*fCritical);
            ++fWaiters;
        }
        const long long before = zTime::MicroNow();
        if (fSignal->WaitFor(timeout) != 0) {
            return time_out(result);
        }
        result = ReadFromBuffer(data, size, 0, time, duration, bytesPerUnit);
        // Data that turns out not to be held at all after a write is not waited for any longer.
        if (result != kDataPending) {
            return result;
        }
        timeout -= zTime::MicroNow() - before;
    }
    return result;
}

/// Withdraws the wish for a signal, and takes one that slipped in, so that the next wait is not
/// misled.
int tnRTBuffer::time_out(int result) {
    const zCriticalLock lock(*fCritical);
    fWaiters = 0;
    while (fSignal->WaitFor(0) == 0) {
    }
    return result;
}

const char* tnRTBuffer::ErrorString(int code) {
    switch (code) {
        case kDataPending:
            return "TN_DATA_PENDING";
        case kNoData:
            return "TN_NO_DATA";
        case kDataSkip:
            return "TN_DATA_SKIP";
        case kReadIsLate:
            return "TN_READ_IS_LATE";
        default:
            return "dunno";
    }
}

void tnRTBuffer::Print() {}
