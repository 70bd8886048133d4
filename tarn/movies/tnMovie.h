#pragma once

#include <functional>
#include <memory>

#include "spar/xCUnknown.h"
#include "spar/zDirectObserver.h"
#include "tarn/export.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/foundation/tnOutputAccessor.h"

class tnStream;
class zObject;
class zRecord;

/// What UpdateOutput does with an output.
enum tn_output_update : int {
    TN_OUTPUT_UPDATE_ADD = 1,     ///< it begins, and is remembered
    TN_OUTPUT_UPDATE_REMOVE = 2,  ///< it ends, and is forgotten
    TN_OUTPUT_UPDATE_ENABLE = 3,  ///< what is remembered of it takes over whether it is switched on
};

/// What the host writes one programme to: a file, or all the network outputs that one add-on
/// serves. It owns its streams.
///
/// As in tnStream everything has an answer already, and a subclass overrides what it has a better
/// one for: -28 is the answer for what cannot be done, 0 where there is nothing to say.
class TARN_API tnMovie : public xCUnknown {
public:
    tnMovie();
    ~tnMovie() override;

    virtual int CreateStreams(const zRecord& tracks, int videoFlags, int audioFlags);
    /// The caller releases the stream.
    virtual int GetWriteStreamForType(tnMediaType type, tnStream** stream);
    virtual int CreateWriteStream(tnMediaRecord& format, tnStream** stream, int flags);
    virtual int CreateReadStream(unsigned int index, tnStream** stream);
    virtual void WaitForIndexingToComplete();
    virtual int CreateDiskFile(const char* path);
    virtual int ExecuteRPC(zRecord& request, zRecord& answer);
    virtual int SendRtmpDataMessage(zRecord& message);
    virtual int StatisticsControl(zRecord& request, zRecord& answer);
    virtual int BeginWritingFromDestination(const zRecord& outputs, const zRecord* settings,
                                            zRecord& result);
    virtual int UpdateOutput(const tnOutputAccessor& output, const zRecord* settings,
                             zRecord& result, tn_output_update update);
    virtual bool IsOutputActive(tn_output type);
    /// Both note in fWriting what was asked, and then answer -28 all the same: an override that
    /// begins by calling them has the flag kept for it.
    virtual int BeginWriting(const zRecord* settings);
    virtual int FinishWriting();
    virtual unsigned int TrackCount() = 0;
    /// Fills in the track's format, and leaves the element's name ('xTag') that `format` bears:
    /// whoever asks has named it.
    virtual int GetTrackFormat(unsigned int index, tnMediaRecord* format) = 0;
    virtual unsigned int FormatID() = 0;
    /// Owned by the add-on.
    virtual const char* FormatName() = 0;
    /// For the add-on that makes the movie and the host that knows it: nothing here calls them.
    virtual int GetMovieSetting(const char* name, zRecord& value) = 0;
    virtual int SetMovieSetting(const char* name, const zRecord& value) = 0;

    void SetStatisticsObserver(int observer) { fStatisticsObserver = observer; }

    /// Describes the movie: an element "movie" with "format_name" and "format_id", and a child
    /// "track" with the format of each track. 0; -1022 and `record` untouched for a movie without
    /// tracks.
    int ArchiveTracksToRecord(zRecord& record);

    /// Told of changes of the movie; entries live as long as their owners.
    zDirectObserver<std::function<void()>>& MovieObservers() { return fMovieObservers; }

protected:
    zDirectObserver<std::function<void()>> fMovieObservers;
    std::shared_ptr<zObject> fObserverToken;  ///< the movie's own owner of observer entries
    int fStatisticsObserver = 0;
    bool fWriting = false;
};
