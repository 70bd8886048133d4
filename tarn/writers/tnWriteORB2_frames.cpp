// A movie file writer's frames: from an add-on's buffer to a timed sample of the track.

#include "orb/CAssetVideoCompressor.h"
#include "orb/CAssetWriter.h"
#include "orb/CPixelDataReference.h"
#include "orb/CVideoCompressor.h"
#include "orb/CVideoConverter.h"
#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "spar/zCritical.h"
#include "spar/zMemory.h"
#include "tarn/writers/fileTimescale.h"
#include "tarn/writers/tnWriteORB2.h"
#include "tarn/writers/writerErrors.h"

using namespace Quillon::Orb;

namespace {

constexpr int kLockRead = 1;
constexpr int kLockWrite = 2;

bool can_copy(unsigned int format) {
    return format == 'BGRA' || format == 'NV12' || format == 'UYVY' || format == 'YUYV' ||
           format == 'YV12';
}

/// Holds a pixel reference locked for a scope.
class PixelLock {
public:
    PixelLock(CPixelDataReference& pixels, int mode) : fPixels(pixels) { fPixels.Lock(mode); }
    ~PixelLock() { fPixels.Unlock(); }
    PixelLock(const PixelLock&) = delete;
    PixelLock& operator=(const PixelLock&) = delete;

    unsigned char* Data() const { return static_cast<unsigned char*>(fPixels.GetData()); }
    int Stride() const { return fPixels.GetStride(); }

private:
    CPixelDataReference& fPixels;
};

// Row counts and halved strides are those of the hosts' own buffers of these formats.
void copy_planes(const CVideoProperties& shape, const PixelLock& from, const PixelLock& to) {
    const int widthBytes = shape.GetStride(1);
    const int height = shape.GetHeight();
    const unsigned int format = shape.GetFormat();
    const int rows = format == 'NV12' ? height * 2 / 3 : height;
    zCopyImage(from.Data(), from.Stride(), to.Data(), to.Stride(), widthBytes, rows);
    if (format != 'YV12') return;
    zCopyImage(from.Data() + static_cast<long>(height) * from.Stride(), from.Stride() / 2,
               to.Data() + static_cast<long>(height) * to.Stride(), to.Stride() / 2, widthBytes / 2,
               rows);
}

}  // namespace

int tnWriteORB2::initialize_if_needed() {
    const zCriticalLock init(*fInitLock);
    return fInitialized ? 0 : CompleteInitialization();
}

int tnWriteORB2::WriteVideo(tnVideoCompressor2::EncodedBuffer& buffer) {
    int code = initialize_if_needed();
    if (code != 0) return code;
    const zCriticalLock lock(*fVideoLock);
    if (!fVideoWriter || !fAssetWriter) return kWriterNoFile;

    RObject<CVideoSample> sample(new CVideoSample(nullptr));
    if (!sample) return kWriterCopy;
    sample->SetPictureType(0);
    const RObject<CPixelDataReference> pixels(buffer.GetPixelData());
    sample->SetDataReference(pixels.Get());
    const EncodedBufferTiming timing = buffer.GetTiming();
    sample->SetTime(timing.fHasTime ? timing.fTime : 0);
    sample->SetDuration(timing.fHasDuration ? timing.fDuration : 0);

    if (fVideoConverter) code = convert_picture(sample);
    if (code == 0 && fCopySamples) code = copy_picture(sample);
    if (code != 0) return code;

    AdjustVideoSampleTiming(sample);
    if (!sample) {
        buffer.SetBytesWritten(0);
        return 0;
    }
    const long long before = fVideoWriter->GetBytesWritten();
    if (fVideoWriter->WriteSample(sample.Get()).Failed()) return kWriterVideoSample;
    ++fVideoFramesWritten;
    buffer.SetBytesWritten(static_cast<int>(fVideoWriter->GetBytesWritten() - before));
    return 0;
}

int tnWriteORB2::convert_picture(RObject<CVideoSample>& sample) {
    if (fVideoConverter->ProcessSample(sample.Get()).Failed()) return kWriterConversion;
    RObject<CVideoSample> converted;
    if (fVideoConverter->ReceiveSample(converted).Failed() || !converted) return kWriterConversion;
    sample = converted;
    return 0;
}

// Nothing in this class sets fCopySamples: the path stands for builds whose hosts reuse a frame's
// memory before its last reference is gone.
int tnWriteORB2::copy_picture(RObject<CVideoSample>& sample) {
    const RObject<CVideoFilter> compressor(fVideoWriter->GetCompressor());
    const RObject<CVideoProperties> shape(compressor->GetInputProperties(0));
    if (!shape || !can_copy(shape->GetFormat())) return kWriterConversion;

    CVideoSample* made = nullptr;
    if (CVideoFilter::CreateSample(shape.Get(), made).Failed()) return kWriterCopy;
    const RObject<CVideoSample> copy(made);
    const RObject<CPixelDataReference> target(copy->GetDataReference<CPixelDataReference>());
    const RObject<CPixelDataReference> source(sample->GetDataReference<CPixelDataReference>());
    if (!target || !source) return kWriterCopy;
    {
        const PixelLock to(*target, kLockWrite);
        const PixelLock from(*source, kLockRead);
        copy_planes(*shape, from, to);
    }
    sample->SetDataReference(target.Get());
    return 0;
}

// A frame waits here until the next one comes: only then it is known how long it really lasts. Time
// that goes back gives it a negative duration: the container says what that means.
bool tnWriteORB2::AdjustVideoSampleTiming(RObject<CVideoSample>& sample) {
    long long time = sample->GetTime();
    long long duration = sample->GetDuration();
    if (fInputTimescale != fFileTimescale) {
        time = ToFileTimescale(time, fInputTimescale, fFileTimescale);
        duration = ToFileTimescale(duration, fInputTimescale, fFileTimescale);
    }
    sample->SetTime(time);
    sample->SetDuration(duration);

    if (!fHeldSample) {
        fHeldSample = sample;
        sample.Clear();
        return false;
    }
    // Unsigned, so that times from both ends of the scale wrap.
    const auto distance =
        static_cast<long long>(static_cast<unsigned long long>(time) -
                               static_cast<unsigned long long>(fHeldSample->GetTime()));
    if (fHeldSample->GetDuration() != distance) fHeldSample->SetDuration(distance);
    const RObject<CVideoSample> held = fHeldSample;
    fHeldSample = sample;
    sample = held;
    return true;
}
