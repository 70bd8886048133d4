#include <algorithm>
#include <cmath>

#include "orb/CByteArray.h"
#include "orb/CPixelBufferDataReference.h"
#include "spar/zAsSharedPtr.h"
#include "spar/zBuffer.h"
#include "spar/zCritical.h"
#include "spar/zMemory.h"
#include "spar/zRecord.h"
#include "tarn/filters/OrbVideoBuffer.h"
#include "tarn/filters/tnOrbVideoCompressor.h"
#include "tarn/foundation/tnRasterType.h"
#include "tarn/foundation/wholeNumber.h"
#include "tarn/movies/tnStreamBuffer.h"

// The road of the frames: into samples, through the encoder, and out with their times.

using namespace Quillon::Orb;

namespace {

constexpr int kNoEncoder = -1044;
constexpr int kNoTime = -1046;
constexpr int kNoSample = -1;
constexpr int kUnusable = -1050;
constexpr int kRefused = -1052;

int raster_of(const tnMediaRecord& format) {
    return format.fColourspace.AsInt32(0);
}

bool is_planar420(int raster) {
    return raster == 'I420' || raster == 'NV12';
}

/// How many rows of `rowBytes`, each `stride` behind the last, lie in so many bytes.
int rows_in(long long bytes, int stride, int rowBytes) {
    if (stride <= 0 || rowBytes > bytes) return 0;
    return static_cast<int>((bytes - rowBytes) / stride + 1);
}

/// Holds pixels for as long as it lives; without data where they could not be locked.
class LockedPixels {
public:
    LockedPixels(CPixelDataReference& pixels, int mode)
        : fPixels(pixels), fLocked(pixels.Lock(mode).Succeeded()) {}
    ~LockedPixels() {
        if (fLocked) fPixels.Unlock();
    }
    LockedPixels(const LockedPixels&) = delete;
    LockedPixels& operator=(const LockedPixels&) = delete;

    unsigned char* Data() const { return fLocked ? fPixels.GetData() : nullptr; }
    int Stride() const { return fPixels.GetStride(); }
    int Rows(int rowBytes) const { return rows_in(fPixels.GetLength(), Stride(), rowBytes); }

private:
    CPixelDataReference& fPixels;
    const bool fLocked;
};

}  // namespace

int tnOrbVideoCompressor::EncodeFrame(tnStreamBuffer& buffer, const tnMediaRecord& format,
                                      long long time, bool keyFrame, Callback callback,
                                      const zRecord* metaData) {
    int error = fConfigureError;
    if (error == 0 && !fEncoder) error = kNoEncoder;
    RObject<CVideoSample> sample;
    if (error == 0) error = create_uncompressed_videosample(buffer, format, sample);
    // The sample has pixels of its own; the frame's memory is free while the encoder works.
    buffer.ReleaseWriting();
    if (error != 0) return note_frame(error);
    if (!sample || sample->SetTime(time).Failed()) return kNoTime;
    if (metaData) keep_meta_data(time, *metaData);
    // Before the encoder gets the frame, so that a time waits for whatever it gives. A frame that
    // is refused leaves its time there, and those after it take the time of the one before them:
    // what comes out is never without a time, and nothing tells which frame is missing.
    fInputTimes.push(time);
    if (keyFrame) sample->SetHint(CMediaSample::kHintKeyFrame);
    note_frame(compress_h264(sample) ? 0 : kRefused);
    pop_encoded_buffers(callback);
    return 0;
}

/// Nobody looks at the answers to frames, so that an output would end without a word where its
/// source changed its shape.
int tnOrbVideoCompressor::note_frame(int error) {
    constexpr int kManyFrames = 30;
    fFramesLost = error == 0 ? 0 : std::min(fFramesLost + 1, kManyFrames);
    // In an output's statistics -1 would say nothing.
    const int told = error == kNoSample ? kUnusable : error;
    fFrameError.store(fFramesLost == kManyFrames ? told : 0, std::memory_order_relaxed);
    return error;
}

// Samples.

int tnOrbVideoCompressor::create_cpu_uncompressed_videosample(tnStreamBuffer& buffer,
                                                              const tnMediaRecord& format,
                                                              RObject<CVideoSample>& sample) {
    auto* const pixels = static_cast<unsigned char*>(buffer.GetPointer());
    const int height = format.fHeight.AsInt32(0);
    int stride = format.fBytesPerRow.AsInt32(0);
    long long size = static_cast<long long>(stride) * height;
    if (is_planar420(raster_of(format))) {
        stride = tnRasterType::ActiveBytesPerRow(format.fWidth.AsInt32(0), raster_of(format));
        size = static_cast<long long>(stride) * (static_cast<long long>(height) * 3 / 2);
    }
    // Subclasses of the stream buffer that bring memory of their own may not tell its size.
    const int available = buffer.GetDataSize();
    if (size < 0 || size > 0x7FFFFFFF || (available > 0 && size > available)) return -1;
    if (!fNeedsConversion) {
        return wrap_pixels(pixels, static_cast<int>(size), buffer, format, stride, true, sample)
                   ? 0
                   : -1;
    }
    if (!fConverter) return -1;
    RObject<CVideoSample> borrowed;
    if (!wrap_pixels(pixels, static_cast<int>(size), buffer, format, stride, false, borrowed)) {
        return -1;
    }
    int reserved = 0;
    int reserved2 = 0;
    sample.Clear();
    return fConverter->TransformSample(borrowed.Get(), 0, sample, &reserved, &reserved2).Failed()
               ? -1
               : 0;
}

bool tnOrbVideoCompressor::wrap_pixels(unsigned char* pixels, int size,
                                       const tnStreamBuffer& buffer, const tnMediaRecord& format,
                                       int stride, bool copy, RObject<CVideoSample>& sample) const {
    const RObject<CByteArray> bytes(copy ? new CByteArray(pixels, size)
                                         : new CByteArray(size, pixels, nullptr));
    sample = new CVideoSample(0, buffer.GetDurationForData(), 0);
    if (!bytes || !sample) return false;
    const RObject<CPixelBufferDataReference> reference(new CPixelBufferDataReference(
        bytes.Get(), format.fWidth.AsInt32(0), format.fHeight.AsInt32(0), stride));
    return reference && sample->SetDataReference(reference.Get()).Succeeded();
}

int tnOrbVideoCompressor::copy_buffer(RObject<CPixelDataReference>& target, tnStreamBuffer& buffer,
                                      const tnMediaRecord& format) {
    const LockedPixels to(*target, CDataReference::kWrite);
    const auto* from = static_cast<const unsigned char*>(buffer.GetPointer());
    unsigned char* const out = to.Data();
    if (!from || !out) return -1;
    const bool planar = is_planar420(raster_of(format));
    if (!planar && raster_of(format) != 'rgb ') return 0;
    // Planes lie behind each other without a gap, each row as long as the picture is wide.
    const int width = format.fWidth.AsInt32(0);
    const int height = format.fHeight.AsInt32(0);
    const int stride = planar ? width : format.fBytesPerRow.AsInt32(0);
    const int rowBytes = planar ? width : width * 4;
    const int rows = planar ? height * 3 / 2 : height;
    const int available = buffer.GetDataSize();
    if (available > 0 && rows_in(available, stride, rowBytes) < rows) return -1;
    zCopyImage(from, stride, out, to.Stride(), rowBytes, std::min(rows, to.Rows(rowBytes)));
    return 0;
}

int tnOrbVideoCompressor::convert_buffer(RObject<CPixelDataReference>& target,
                                         tnStreamBuffer& buffer, const tnMediaRecord& format) {
    RObject<CVideoSample> sample;
    const int error = create_cpu_uncompressed_videosample(buffer, format, sample);
    if (error != 0) return error;
    RObject<CPixelDataReference> source;
    if (sample) source = sample->GetDataReference<CPixelDataReference>();
    if (!source) return -1;
    const LockedPixels to(*target, CDataReference::kWrite);
    const LockedPixels from(*source, CDataReference::kRead);
    if (!to.Data() || !from.Data()) return -1;
    const bool planar = raster_of(format) == 'I420';
    const int height = format.fHeight.AsInt32(0);
    const int rowBytes = planar ? format.fWidth.AsInt32(0) : std::min(from.Stride(), to.Stride());
    // A converter that made packed pixels of planar ones leaves fewer rows than came in.
    const int rows =
        std::min({planar ? height * 3 / 2 : height, from.Rows(rowBytes), to.Rows(rowBytes)});
    zCopyImage(from.Data(), from.Stride(), to.Data(), to.Stride(), rowBytes, rows);
    return 0;
}

// Through the encoder.

bool tnOrbVideoCompressor::compress_h264(RObject<CVideoSample> sample) {
    if (!sample) return false;
    if (fEncoder->ProcessSample(sample.Get()).Failed()) return false;
    for (;;) {
        RObject<CVideoSample> out;
        if (fEncoder->ReceiveSample(out).Failed()) return false;
        if (!out) break;
        process_compressed_sample(out);
    }
    ++fFramesSubmitted;
    return true;
}

void tnOrbVideoCompressor::process_compressed_sample(RObject<CVideoSample>& sample) {
    if (!sample || !sample->HasDataReference()) return;
    fill_decoder_info();
    if (fInputTimes.empty()) return;
    const long long time = fInputTimes.front();
    fInputTimes.pop();
    // Streams that need no description get this one, which nobody writes to.
    static zBuffer none;
    OrbVideoBuffer* buffer = create_compressed_buffer(
        sample, fEncoder, fDecoderDescription ? *fDecoderDescription : none, time);
    if (buffer) PostBuffer(*buffer);
}

void tnOrbVideoCompressor::PostBuffer(OrbVideoBuffer& buffer) {
    const zCriticalLock lock(*fEncodedLock);
    fEncodedBuffers->Append(&buffer);
}

void tnOrbVideoCompressor::flush_encoder() {
    if (!fEncoder) return;
    fInputTimes = {};
    const zCriticalLock lock(*fEncodedLock);
    fEncodedBuffers->RemoveAndReleaseAll();
}

// Out, one step late.

bool tnOrbVideoCompressor::pop_encoded_buffers(Callback callback) {
    while (pop_an_encoded_buffer(callback)) {
    }
    return false;
}

bool tnOrbVideoCompressor::pop_an_encoded_buffer(Callback callback) {
    OrbVideoBuffer* buffer = nullptr;
    {
        const zCriticalLock lock(*fEncodedLock);
        buffer = fEncodedBuffers->RemoveFirst();
    }
    if (!buffer) return false;
    buffer->fDecodeTime = buffer->fTime;
    buffer->fBufferTimeMs =
        1000.0 / static_cast<double>(timescale()) * static_cast<double>(buffer->fTime);
    if (zRecord* record = take_meta_data(buffer->fTime)) buffer->fFrameMetaData = record;
    if (fPendingBuffer) pop_encoded_buffer(buffer->fDecodeTime, fPendingBuffer, callback);
    fPendingBuffer = buffer;
    return true;
}

void tnOrbVideoCompressor::pop_encoded_buffer(long long nextTime, OrbVideoBuffer* buffer,
                                              Callback callback) {
    const long long ticks = timescale();
    if (fNextDecodeTime == -1) fNextDecodeTime = buffer->fTime;
    const bool lastOfSecond = buffer->fTime / ticks != nextTime / ticks;
    buffer->InitializeData(padding_of(lastOfSecond));
    buffer->fDisplayOffset = static_cast<int>(buffer->fCompositionTime - fNextDecodeTime);
    const int offset = static_cast<int>(buffer->fCompositionTime - buffer->fTime);
    buffer->fDisplayOffsetMs = WholeNumberOf<int>(1000.0 / static_cast<double>(ticks) * offset);
    set_duration(nextTime, *buffer);
    if (fPadForStrictCBR) {
        // The buffer that closed a second is that one's alone: the next begins empty.
        fBytesThisSecond = lastOfSecond ? 0 : buffer->DataSize() + fBytesThisSecond;
    }
    deliver(*buffer, callback);
}

// How long the buffer that ends a second has to be for the second to be full; 0 leaves it as it is.
// Where the bytes before it were too many already they stay so, and no later second makes up for
// it.
unsigned int tnOrbVideoCompressor::padding_of(bool lastOfSecond) const {
    if (!fPadForStrictCBR || !lastOfSecond || fBytesThisSecond > fTargetBytesPerSecond) return 0;
    return fTargetBytesPerSecond - fBytesThisSecond;
}

// The running decode time is the sum of all durations, whatever times the frames came with.
void tnOrbVideoCompressor::set_duration(long long nextTime, OrbVideoBuffer& buffer) {
    const int distance = static_cast<int>(nextTime - buffer.fDecodeTime);
    buffer.fIrregularTiming = buffer.fTime < fNextDecodeTime || distance <= 0;
    buffer.fDuration =
        buffer.fIrregularTiming ? nominal_duration() : static_cast<unsigned int>(distance);
    fNextDecodeTime += buffer.fDuration;
}

void tnOrbVideoCompressor::deliver(OrbVideoBuffer& buffer, Callback callback) {
    if (fOnEncodedBuffer) {
        fOnEncodedBuffer(zAsSharedPtr<tnVideoCompressor::EncodedBuffer>(&buffer));
    }
    if (callback) callback(&buffer, fUserData);
    buffer.Release();
}

long long tnOrbVideoCompressor::timescale() const {
    const long long ticks = fOutputFormat.AsInt64('tmsc', 0);
    return ticks != 0 ? ticks : 1;  // without one a time is no time, but nothing divides by zero
}

unsigned int tnOrbVideoCompressor::nominal_duration() const {
    constexpr float kLimit = 2147483648.0f;
    const float ticks = std::floor(static_cast<float>(fOutputFormat.AsInt64('tmsc', 0)) /
                                   fOutputFormat.AsFloat('mfps', 0.0f));
    return ticks >= 0.0f && ticks < kLimit ? static_cast<unsigned int>(ticks) : 0;
}

// What came with the frames.

void tnOrbVideoCompressor::keep_meta_data(long long time, const zRecord& metaData) {
    zRecord*& place = fFrameMetaData[time];
    // Subclasses may still point to the one that was there.
    if (place) fReplacedMetaData.push_back(place);
    place = new zRecord(metaData);
}

zRecord* tnOrbVideoCompressor::take_meta_data(long long time) {
    zRecord* record = nullptr;
    fFrameMetaData.RemoveFetch(time, &record);
    return record;
}
