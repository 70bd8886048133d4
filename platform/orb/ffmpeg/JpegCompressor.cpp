#include "JpegCompressor.h"

#include <algorithm>
#include <utility>

#include "orb/CMemoryDataReference.h"

namespace Quillon::Orb {

namespace {

using CodeBookProperty::JpegCompressor::Quality;
using CodeBookProperty::VideoCompressor::Threads;

constexpr int kDefaultQuality = 88;
constexpr int kMostThreads = 64;
constexpr int kMostChosenThreads = 8;
// Pictures that may wait beside one for each thread, so that none idles while the caller fetches.
constexpr std::size_t kSpareJobs = 2;

}  // namespace

JpegCompressor::JpegCompressor() : CVideoCompressor(kCode) {
    DeclareInt(Quality, kDefaultQuality, 1, 100);
    DeclareInt(Threads, 0, 0, kMostThreads);
}

JpegCompressor::~JpegCompressor() {
    stop_threads();
}

CValueList<unsigned int>* JpegCompressor::GetInputFormats() {
    RObject<CValueList<unsigned int>> list(new CValueList<unsigned int>());
    for (const unsigned int format : JpegPicture::kFormats) {
        if (list) list->AddValue(format);
    }
    return list.Detach();
}

CValueList<unsigned int>* JpegCompressor::GetOutputFormats() {
    return new CValueList<unsigned int>{'jpeg'};
}

Result JpegCompressor::Begin() {
    return fFailures.OfSetUp(begin());
}

Result JpegCompressor::begin() {
    if (fBegun) return ResultError("it has begun already");
    {
        zMutexLock held(fLock);
        fJobs.clear();
        fTaken = 0;
        fStop = false;
    }
    Result result =
        ReadVideoShape(Input(), JpegPicture::kFormats, JpegPicture::kFormatCount, fShape);
    if (result.Failed()) return result;
    RObject<CVideoProperties> output(new CVideoProperties(Input()));
    if (!output) return ResultOutOfMemory();
    output->SetFormat('jpeg');
    output->SetReorderDepth(0);
    UpdateOutputProperties(output.Detach());
    fQuality = GetInt(Quality);
    const int threads = ThreadCount(GetInt(Threads), kMostChosenThreads);
    for (int i = 0; threads > 1 && i < threads; ++i) {
        std::unique_ptr<zThread> thread(zThread::Factory("mjpg", this, 4, 1));
        if (thread) fThreads.push_back(std::move(thread));
    }
    // No thread to be had is no failure: the caller's does.
    if (fThreads.empty()) fOwnEncoder = std::make_unique<JpegPicture>();
    fBegun = true;
    fDrained = false;
    return 0;
}

Result JpegCompressor::End() {
    if (!fBegun) return 0;
    wait_for_all();
    stop_threads();
    fOwnEncoder.reset();
    fBegun = false;
    return 0;
}

Result JpegCompressor::ProcessSample(CVideoSample* sample) {
    return fFailures.OfInput(process(sample));
}

Result JpegCompressor::process(CVideoSample* sample) {
    if (!fBegun) return ResultError("a picture before Begin or after End");
    if (!sample) {
        fDrained = true;
        wait_for_all();
        return 0;
    }
    if (fDrained) return ResultError("a picture after the last one");
    Job job;
    Result result = make_job(*sample, job);
    if (result.Failed()) return result;
    if (fOwnEncoder) encode(*fOwnEncoder, job);
    job.done = fOwnEncoder != nullptr;

    zMutexLock held(fLock);
    fJobs.push_back(std::move(job));
    fWork.WakeOne();
    while (!has_room()) fDone.Wait(fLock);
    return 0;
}

Result JpegCompressor::make_job(const CVideoSample& sample, Job& job) const {
    Result result = job.picture.Lock(sample, fShape.format, fShape.width, fShape.height);
    if (result.Failed()) return result;
    job.encoded = new CVideoSample(nullptr);
    if (!job.encoded) return ResultOutOfMemory();
    job.encoded->SetTime(sample.GetTime());
    job.encoded->SetDuration(sample.GetDuration());
    job.encoded->SetPictureType(CVideoSample::kKeyPicture);
    return 0;
}

bool JpegCompressor::has_room() const {
    // Finished pictures that nobody fetched do not count: waiting for them would be for ever.
    const auto undone =
        std::count_if(fJobs.begin(), fJobs.end(), [](const Job& job) { return !job.done; });
    return static_cast<std::size_t>(undone) < fThreads.size() + kSpareJobs;
}

Result JpegCompressor::ReceiveSample(RObject<CVideoSample>& sample) {
    sample.Clear();
    Result result = 0;
    {
        zMutexLock held(fLock);
        if (fJobs.empty() || !fJobs.front().done) return 0;
        result = std::move(fJobs.front().result);
        if (result.Succeeded()) sample = std::move(fJobs.front().encoded);
        fJobs.pop_front();
        if (fTaken > 0) --fTaken;
    }
    return fFailures.OfOutput(std::move(result));
}

int JpegCompressor::Main(int, const char**) {
    JpegPicture encoder;
    fLock.Lock();
    for (;;) {
        if (fTaken < fJobs.size()) {
            Job& job = fJobs[fTaken++];
            fLock.Unlock();
            encode(encoder, job);
            fLock.Lock();
            job.done = true;
            fDone.WakeAll();
        } else if (fStop) {
            break;
        } else {
            fWork.Wait(fLock);
        }
    }
    fLock.Unlock();
    return 0;
}

void JpegCompressor::encode(JpegPicture& encoder, Job& job) const {
    RObject<CByteArray> jpeg;
    job.result = encoder.Encode(job.picture.GetImage(), fShape, fQuality, jpeg);
    job.picture = RawPicture();
    if (job.result.Failed()) return;
    RObject<CMemoryDataReference> bytes(new CMemoryDataReference(jpeg.Get()));
    job.result = bytes ? job.encoded->SetDataReference(bytes.Get()) : ResultOutOfMemory();
}

void JpegCompressor::wait_for_all() {
    zMutexLock held(fLock);
    for (const Job& job : fJobs) {
        while (!job.done) fDone.Wait(fLock);
    }
}

void JpegCompressor::stop_threads() {
    {
        zMutexLock held(fLock);
        fStop = true;
        fWork.WakeAll();
    }
    for (const std::unique_ptr<zThread>& thread : fThreads) thread->Join();
    fThreads.clear();
}

void RegisterMotionJpeg() {
    AddVideoCompressor<JpegCompressor>();
}

}  // namespace Quillon::Orb
