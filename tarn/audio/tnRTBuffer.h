#pragma once

#include <memory>
#include <vector>

#include "spar/threadSafety.h"
#include "tarn/export.h"

class zCritical;
class zSignal;

/// The last stretch of a stream of bytes, kept by time: a real-time thread writes it, another
/// reads.
///
/// Whoever reads names the time that it wants, as often as it likes: nothing is used up. There are
/// two buffers of fixed size. When one is full, the writer forgets what the other holds and goes on
/// there; at any moment between one and two buffers' worth can be read. A reader that lags behind
/// holds up nobody, and no write fails.
///
/// Times are doubles; the caller decides what one unit is and says how many bytes it takes
/// (`bytesPerUnit`): for PCM, a sample frame. A call is atomic against the others and holds the
/// lock while it copies. Writing copies once and allocates nothing.
class TARN_API tnRTBuffer {
public:
    /// One of the two buffers.
    struct rt_buffer {
        explicit rt_buffer(int size);

        char* fData;               // first 32-byte boundary in fStorage
        int fUsed = 0;             // bytes held
        double fStartTime = -1.0;  // of the first byte; negative: unset
        double fEndTime = -1.0;    // just after the last byte; negative: unset
        std::vector<char> fStorage;
    };

    tnRTBuffer();
    ~tnRTBuffer();
    tnRTBuffer(const tnRTBuffer&) = delete;
    tnRTBuffer& operator=(const tnRTBuffer&) = delete;

    /// Makes both buffers, of `size` bytes each; gives 0. Takes no lock: call it once, before any
    /// use.
    int Initialize(int size);

    /// Empties both buffers.
    void Reset();

    /// Puts `size` bytes at `time`; a null `data` leaves the content open but counts as written.
    ///
    /// A hole since the last write is filled by whole units: below one nothing is, from one to
    /// below two the last unit is heard again, and a longer one is silence; one that does not fit
    /// falls between the two buffers. A write before the end of what the buffer holds cuts it back,
    /// one before its start starts over. `size` must not exceed
    /// the size given to Initialize: that is not checked. The two `long long`s are not used.
    void WriteToBuffer(const void* data, int size, long long, long long, double time,
                       double duration, int bytesPerUnit);

    /// Reads the `size` bytes of the stretch from `time` for `duration`: 0, or with `data`
    /// untouched -2 the end is not there yet; -3 the start is not held; -4 the hole between the
    /// buffers swallows the request; -5 the data is gone; -29 the buffer holds fewer bytes than its
    /// times say. A null `data` only asks. The `long long` is not used.
    ///
    /// A read over a break between the buffers skips as many units at the start of the second one
    /// as the break is long, and what that one does not hold comes as zeros.
    int ReadFromBuffer(void* data, int size, long long, double time, double duration,
                       int bytesPerUnit);

    /// The same, but waits up to `timeout` microseconds for data that is not there yet (-2, -3).
    int ReadFromBufferWithTimeout(void* data, int size, long long, double time, double duration,
                                  int bytesPerUnit, long long timeout);

    /// Makes the other buffer the current one, empty at `time`. Takes no lock: the caller holds off
    /// the writer.
    void flip_buffer(double time) SPAR_NO_THREAD_SAFETY_ANALYSIS;

    /// Fills a hole of `gap` bytes before `time`, or flips where it does not fit. At most
    /// `fillLimit` bytes are filled with what came before, more with zeros. Takes no lock, as
    /// flip_buffer.
    void increment_data_gap(long long gap, long long, double time,
                            int fillLimit) SPAR_NO_THREAD_SAFETY_ANALYSIS;

    /// The name of a reading result from -5 to -2; "dunno" for any other.
    static const char* ErrorString(int code);

    void Print();

private:
    friend struct tnRTBufferPeek;

    void meet_end(double time, int bytesPerUnit) SPAR_REQUIRES(fCritical);
    rt_buffer* holder_of_start(double time) SPAR_REQUIRES(fCritical);
    rt_buffer* holder_of_end(rt_buffer* start, double end) SPAR_REQUIRES(fCritical);
    int time_out(int result);

    std::unique_ptr<rt_buffer> fFirst SPAR_PT_GUARDED_BY(fCritical);
    std::unique_ptr<rt_buffer> fSecond SPAR_PT_GUARDED_BY(fCritical);
    rt_buffer* fCurrent = nullptr;                // the one being written
    int fBufferSize = 0;                          // bytes of each; fixed by Initialize
    zCritical* const fCritical;                   // owned
    zSignal* const fSignal;                       // owned; wakes a waiting reader
    int fWaiters SPAR_GUARDED_BY(fCritical) = 0;  // raises that readers still want
};
