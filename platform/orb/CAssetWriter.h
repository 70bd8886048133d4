#pragma once

#include <vector>

#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoWriter.h"
#include "orb/CContainerWriter.h"
#include "orb/CObject.h"
#include "orb/CString.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// A movie file that is being written, and its tracks.
///
/// Released without Finish, what waits in the queues is dropped, and the file closes with what it
/// was given until then. One thread at a time; the
/// tracks' WriteSample may run on others meanwhile.
class ORB_API CAssetWriter : public CObject {
public:
    static constexpr unsigned int kType = 'asst';

    CAssetWriter();
    ~CAssetWriter() override;

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    /// Begins writing: every track that somebody still holds gets its place in the file, which is
    /// made, or emptied, here. Fails without Create, and as the file does; it may be tried again.
    virtual Result Begin();
    /// Completes and closes the file, and gives the first failure that it had. A track that was not
    /// ended is ended here; one that does not come to its end within kFinishPatienceMs is cut off.
    virtual Result Finish();

    static constexpr int kFinishPatienceMs = 5000;

    /// The reason why the file takes no more, or success while it does, before Begin and after
    /// Finish. Whoever writes to a track may ask.
    Result GetFailure() const;

    /// Says what file this will be, or for 'ts  ' what address, such as "udp://host:port". What
    /// stands at `path` is not touched before Begin. Created anew, the asset has no tracks.
    /// ResultNullPointer for a null or empty path, ResultNotSupported for a container type that
    /// nobody writes, ResultError where no file can be written, each with a trace line.
    Result Create(unsigned int containerType, CString* path);

    /// Null before Create.
    CContainerWriter* GetContainerWriter() const;

    /// Shares the track. ResultNullPointer for null; ResultError before Create, after Begin, or for
    /// a track that stands in an asset already.
    Result AddVideoWriter(CAssetVideoWriter* track);
    Result AddAudioWriter(CAssetAudioWriter* track);

    /// Blocks until every track, or one more than at the call, is ready, or the time is up. True
    /// when something became ready.
    bool WaitForMedia(int milliseconds);

private:
    Result add(CAssetTrackWriter* track);

    RObject<CContainerWriter> fContainer;
    std::vector<RObject<CAssetTrackWriter>> fTracks;
    bool fBegun = false;
};

}  // namespace Quillon::Orb
