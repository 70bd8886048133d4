#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "orb/CVideoCompressor.h"
#include "spar/zMutex.h"
#include "spar/zThread.h"
#include "spar/zThreadMain.h"

#include "JpegPicture.h"
#include "RawPicture.h"
#include "VideoCompressorSupport.h"

namespace Quillon::Orb {

/// 'mjpg': Motion JPEG through libjpeg-turbo.
///
/// Every picture stands alone, so that threads work on one picture each and the pictures come out
/// in the order in which they went in, the same bytes for any number of threads. With one thread
/// ProcessSample encodes by itself; with more it waits while all of them have work ahead.
class JpegCompressor final : public CVideoCompressor, private zThreadMain {
public:
    static constexpr unsigned int kCode = 'mjpg';

    JpegCompressor();
    ~JpegCompressor() override;

    Result Begin() override;
    /// Waits for the pictures inside, which are then fetched by ReceiveSample.
    Result End() override;
    CValueList<unsigned int>* GetInputFormats() override;
    CValueList<unsigned int>* GetOutputFormats() override;
    Result ProcessSample(CVideoSample* sample) override SPAR_EXCLUDES(fLock);
    /// A picture that went in and could not be encoded fails here, when its turn has come.
    Result ReceiveSample(RObject<CVideoSample>& sample) override SPAR_EXCLUDES(fLock);

private:
    struct Job {
        RawPicture picture;
        RObject<CVideoSample> encoded;  ///< has the times from the start, the bytes when done
        Result result;
        bool done = false;
    };

    Result begin();
    Result process(CVideoSample* sample) SPAR_EXCLUDES(fLock);
    int Main(int argumentCount, const char** arguments) override SPAR_EXCLUDES(fLock);
    Result make_job(const CVideoSample& sample, Job& job) const;
    void encode(JpegPicture& encoder, Job& job) const;
    bool has_room() const SPAR_REQUIRES(fLock);
    void wait_for_all() SPAR_EXCLUDES(fLock);
    void stop_threads() SPAR_EXCLUDES(fLock);

    // fixed while begun
    VideoShape fShape;
    int fQuality = 0;
    std::vector<std::unique_ptr<zThread>> fThreads;  // empty: the caller's thread encodes
    std::unique_ptr<JpegPicture> fOwnEncoder;

    // the caller's thread only
    bool fBegun = false;
    bool fDrained = false;
    FailureTrace fFailures{*this};

    zMutex fLock;
    zCondition fWork;  // there is a job to take, or fStop
    zCondition fDone;  // a job was done
    // Grows at the back and shrinks at the front, which leaves the jobs in between in place.
    std::deque<Job> fJobs SPAR_GUARDED_BY(fLock);
    std::size_t fTaken SPAR_GUARDED_BY(fLock) = 0;  // how many of fJobs a thread has taken
    bool fStop SPAR_GUARDED_BY(fLock) = false;
};

}  // namespace Quillon::Orb
