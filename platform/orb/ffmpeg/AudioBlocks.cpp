#include "orb/ffmpeg/AudioBlocks.h"

#include <utility>

#include "orb/CBufferDataReference.h"
#include "orb/CMemoryDataReference.h"

namespace Quillon::Orb {

AudioBlock::AudioBlock(const CMediaSample& sample)
    : fLock(sample.GetLockedDataReference(CDataReference::kRead)) {}

Result AudioReadyQueue::AddPcm(CByteArray& bytes, long long time, int frames) {
    return add(new CAudioSample(frames), new CBufferDataReference(&bytes), time, frames);
}

Result AudioReadyQueue::AddPacket(const unsigned char* data, int length, long long time,
                                  long long duration) {
    RObject<CByteArray> bytes(new CByteArray(data, length));
    if (!bytes || bytes->GetLength() != length) return ResultOutOfMemory();
    return add(new CAudioSample(1), new CMemoryDataReference(bytes.Get()), time, duration);
}

/// Takes over the references of `made` and `reference`.
Result AudioReadyQueue::add(CAudioSample* made, CDataReference* reference, long long time,
                            long long duration) {
    RObject<CAudioSample> sample(made);
    RObject<CDataReference> data(reference);
    if (!sample || !data) return ResultOutOfMemory();
    sample->SetTime(time);
    sample->SetDuration(duration);
    sample->SetDataReference(data.Get());
    fSamples.emplace_back(std::move(sample));
    return ResultOK();
}

Result AudioReadyQueue::Take(RObject<CMediaSample>& sample) {
    if (fSamples.empty()) {
        sample.Clear();
        return ResultOK();
    }
    sample = std::move(fSamples.front());
    fSamples.pop_front();
    return ResultOK();
}

}  // namespace Quillon::Orb
