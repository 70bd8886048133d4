#pragma once

#include "spar/xCUnknown.h"
#include "tarn/export.h"
#include "tarn/foundation/tnOutputAccessor.h"

class tnMediaRecord;
class tnStreamBuffer;
class tnStreamBufferGroup;
class zRecord;

/// A stream's recent performance, for the add-on that fills it and the host that shows it.
struct tn_perf_stats;

/// The state of a stream's output.
struct tn_output_statistics {
    int fState = 0;              ///< 2 while the output reports a problem, else 0
    int fStatus = 0;             ///< the add-on's code of the problem, 0 for none
    long long fStatusValue = 0;  ///< a number that goes with the code
};

/// One track of an output, as the host sees it: samples go in, of the format that it shows.
///
/// Every operation has an answer here, and a subclass overrides those for which it has a better
/// one: -28 for what cannot be done, 0 where there is nothing to say. Whether calls may come from
/// several threads is the subclass's matter; the count is atomic.
class TARN_API tnStream : public xCUnknown {
public:
    virtual long long Timescale() const;
    virtual long long Duration() const;
    virtual long long CurrentTime() const;
    virtual long long CurrentSample() const;
    virtual long long SampleForTime(long long time) const;
    virtual unsigned int ID() const;
    virtual int SetFormat(const tnMediaRecord& format);
    virtual int SeekToTime(long long time, unsigned int flags);
    virtual void Sleep();
    virtual void Wake();
    virtual int GetNextSampleTime(long long after, long long* time, long long* duration);
    virtual int ReadSample(void* data, unsigned int size, unsigned int* read, int flags);
    virtual int InitializeWritingWithGroup(tnStreamBufferGroup& group);
    virtual int WriteSample(void* data, unsigned int size, long long time, unsigned int samples,
                            long long duration, zRecord& info);
    /// Owns one writing reference of `buffer` from the call on and gives it back on every path.
    /// Here: hands its data to the other form and gives that one's result.
    virtual int WriteSample(tnStreamBuffer& buffer, long long time, zRecord& info, int flags);
    /// Buffers that one write may hold at a time: 1 here. `count` may be null.
    virtual int GetInFlightWriteBufferCount(int* count);
    /// What the host renders, and what the output carries. Both live as long as the stream.
    virtual const tnMediaRecord& DisplayFormat() const = 0;
    virtual const tnMediaRecord& EncodedFormat() const = 0;
    virtual int InsertMetaData(const zRecord& data);
    virtual int SetRawSamples(bool raw);
    virtual int CanOutputFormat(tnMediaRecord& format, bool flag) const;
    virtual int GetLastStatistics(tn_perf_stats& statistics) const;
    virtual int GetOutputStatistics(tn_output_statistics& statistics);
    virtual bool OutputDoesAutoReconnectOnError(int error) const;
    virtual bool LastSeekRendered() const;

    /// The id of the stream's output of that type; 0 for a type that has none.
    int GetOutputUniqueID(tn_output type) const;
    void SetOutputUniqueID(tn_output type, int id);

private:
    int fUniqueIDType2 = 0;
    int fUniqueIDType1 = 0;
};
