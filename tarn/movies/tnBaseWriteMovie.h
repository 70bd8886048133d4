#pragma once

#include "spar/zCriticalRW.h"
#include "spar/zList.h"
#include "spar/zRecord.h"
#include "tarn/movies/tnMovie.h"

/// What movies that write have in common: streams for the tracks that they are given, a note of
/// each output, and one lock under which any number of writes go on beside each other, and none
/// beside the start or end of an output.
///
/// Whoever writes a sample does so between BeginStreamWrite and EndStreamWrite; UpdateOutput waits
/// until nobody does. The streams come before the first sample and stay until the movie goes.
class TARN_API tnBaseWriteMovie : public tnMovie {
public:
    tnBaseWriteMovie();
    ~tnBaseWriteMovie() override;

    /// Makes a stream for each enabled track, but for audio tracks that no output's mask names. 0,
    /// or the first failure of CreateWriteStream; streams made before it stay.
    int CreateStreams(const zRecord& tracks, int videoFlags, int audioFlags) override;
    /// The first stream whose encoded format has that type, which the caller releases: 0; -22 for a
    /// null `stream`; -1009 if there is none.
    int GetWriteStreamForType(tnMediaType type, tnStream** stream) override;
    /// Starts each enabled output until one fails, and remembers them all, those that failed or
    /// were not tried included. Before samples flow: takes no lock.
    int BeginWritingFromDestination(const zRecord& outputs, const zRecord* settings,
                                    zRecord& result) override;
    /// Starts, stops or enables one output, with samples held off meanwhile. -1011 for an unknown
    /// `update`; -1023 for an output that is not there; else the subclass's code.
    int UpdateOutput(const tnOutputAccessor& output, const zRecord* settings, zRecord& result,
                     tn_output_update update) override;
    bool IsOutputActive(tn_output type) override;

    /// IsOutputActive without the lock, for use where it is held.
    virtual bool IsWritingType(tn_output type);
    virtual void BeginStreamWrite() SPAR_NO_THREAD_SAFETY_ANALYSIS;
    virtual void EndStreamWrite() SPAR_NO_THREAD_SAFETY_ANALYSIS;
    /// Starts one output: 0 on success.
    virtual int BeginOutput(const tnOutputAccessor& output, const zRecord* settings,
                            zRecord& result) = 0;
    /// Stops one output, of which `active` is what is remembered: 0 on success.
    virtual int EndOutput(const tnOutputAccessor& output, const tnOutputAccessor& active,
                          zRecord& result) = 0;

    void WriteLock() SPAR_NO_THREAD_SAFETY_ANALYSIS { fWriteLock->LockWrite(false); }
    void WriteUnlock() SPAR_NO_THREAD_SAFETY_ANALYSIS { fWriteLock->UnlockWrite(); }
    /// Copies the remembered output `index` into `output`'s record: 0, or -1010 past the end.
    int get_output_at(int index, tnOutputAccessor& output);

protected:
    zRecord fOutputs;  // under fWriteLock; one child an output
    zCriticalRW* fWriteLock;
    zList<tnStream*> fStreams;  // in order of creation, each with a reference of the movie's

private:
    int add_output(const tnOutputAccessor& output, tn_output type, const zRecord* settings,
                   zRecord& result);
    int remove_output(const tnOutputAccessor& output, tn_output type, zRecord& result);
    int enable_output(const tnOutputAccessor& output, tn_output type);
};
