// The earlier movie file writer's frames and blocks of sound: to their tracks, or dropped.

#include <algorithm>

#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoCompressor.h"
#include "orb/CAssetWriter.h"
#include "orb/CAudioSample.h"
#include "orb/CByteArray.h"
#include "orb/CPixelBufferDataReference.h"
#include "orb/CVideoConverter.h"
#include "orb/CVideoSample.h"
#include "spar/zCritical.h"
#include "spar/zThread.h"
#include "tarn/audio/tnAudioConverter.h"
#include "tarn/audio/tnOrbAudio.h"
#include "tarn/foundation/tnRasterType.h"
#include "tarn/writers/tnORBUncompressedVideoBuffer.h"
#include "tarn/writers/tnWriteORB.h"
#include "tarn/writers/writerParts.h"

using namespace Quillon::Orb;

namespace {

constexpr int kTriesForRoom = 3;
constexpr unsigned int kBetweenTriesUs = 10'000;

/// Whether the track takes a sample at one of three tries, with a sleep behind each that failed.
bool has_room(const CAssetTrackWriter& track) {
    for (int i = 0; i < kTriesForRoom; ++i) {
        if (track.IsReady()) return true;
        zThread::MicroSleep(kBetweenTriesUs);
    }
    return false;
}

/// Bytes from row to row. Planes lie without padding, whatever the record says.
int stride_of(const tnMediaRecord& source) {
    const int raster = source.fColourspace.AsInt32(0);
    return tnRasterType::IsPlanarFormat(raster)
               ? tnRasterType::ActiveBytesPerRow(source.fWidth.AsInt32(0), raster)
               : source.fBytesPerRow.AsInt32(0);
}

}  // namespace

// False, with its code, when the set-up failed. Otherwise `code` is what a write without a track
// answers: 0 if this very write has done the set-up, else -1. Kept so: add-ons were built with it.
bool tnWriteORB::initialize_if_needed(int& code) {
    const zCriticalLock init(*fInitLock);
    code = fInitialized ? -1 : CompleteInitialization();
    return fInitialized;
}

int tnWriteORB::WriteVideo(tnVideoCompressor::EncodedBuffer& buffer) {
    int code = 0;
    if (!initialize_if_needed(code)) return code;
    const zCriticalLock lock(*fVideoLock);
    if (!fVideoWriter || !fAssetWriter) return code;

    release_frames_not_in_use();
    RObject<CByteArray> bytes;
    RObject<CVideoSample> sample = sample_of(buffer, bytes);
    if (fVideoConverter && !convert_picture(sample)) return -1;

    const long long before = fVideoWriter->GetBytesWritten();
    // A picture that finds room just after the last sleep still goes in; sound does not.
    if (!has_room(*fVideoWriter) && !fVideoWriter->IsReady()) return 0;
    if (fVideoWriter->WriteSample(sample.Get()).Failed()) return -1;
    sample.Clear();
    if (bytes && bytes->IsShared()) {
        buffer.AddRef();
        fFramesInUse.push_back({bytes, &buffer});
    }
    if (auto* told = dynamic_cast<tnORBUncompressedVideoBuffer*>(&buffer)) {
        told->fBytesWritten = static_cast<int>(fVideoWriter->GetBytesWritten() - before);
    }
    return 0;
}

// `bytes` are the buffer's own where they are read in place, and null where they were copied. No
// time is set: the track lays its frames end to end.
RObject<CVideoSample> tnWriteORB::sample_of(tnVideoCompressor::EncodedBuffer& buffer,
                                            RObject<CByteArray>& bytes) const {
    const unsigned char* data = buffer.Data();
    const int size = static_cast<int>(buffer.DataSize());
    RObject<CVideoSample> sample(new CVideoSample(0, buffer.Duration(), 0));
    const bool inPlace = fWrapFrames || fVideoConverter;
    const RObject<CByteArray> picture(
        inPlace ? new CByteArray(size, const_cast<unsigned char*>(data), nullptr)
                : new CByteArray(data, size));
    const RObject<CPixelBufferDataReference> pixels(new CPixelBufferDataReference(
        picture.Get(), fSourceVideoFormat.fWidth.AsInt32(0), fSourceVideoFormat.fHeight.AsInt32(0),
        stride_of(fSourceVideoFormat)));
    sample->SetDataReference(pixels.Get());
    if (inPlace) bytes = picture;
    return sample;
}

bool tnWriteORB::convert_picture(RObject<CVideoSample>& sample) {
    RObject<CVideoSample> converted;
    int first = 0;
    int second = 0;
    if (fVideoConverter->TransformSample(sample.Get(), 0, converted, &first, &second).Failed()) {
        return false;
    }
    sample = converted;
    return static_cast<bool>(sample);  // no sample at all would end the track
}

void tnWriteORB::release_frames_not_in_use() {
    std::erase_if(fFramesInUse, [](const FrameInUse& frame) {
        if (frame.fBytes->IsShared()) return false;
        frame.fBuffer->Release();
        return true;
    });
}

void tnWriteORB::release_all_frames() {
    for (const FrameInUse& frame : fFramesInUse) frame.fBuffer->Release();
    fFramesInUse.clear();
}

int tnWriteORB::WriteAudioPacket(tnAudioCompressor::EncodedBuffer*, int, long long,
                                 const unsigned char* data, int size, int track) {
    int code = 0;
    if (!initialize_if_needed(code)) return code;
    const zCriticalLock lock(*fAudioLock);
    if (track < 0 || track >= kAudioTracks || !fAudioWriters[track] || !fAssetWriter) return code;

    writerBlock block = BlockOf(data, size, fBytesPerPacket);
    if (fAudioConverter && ConvertBlock(*fAudioConverter, fConvertBuffer, fConvertBufferSize,
                                        fBytesPerPacket, block) != 0) {
        return -1;
    }
    if (!has_room(*fAudioWriters[track])) return 0;
    const RObject<CAudioSample> sample(new CAudioSample(block.fPackets));
    ORB_SetAudioSampleData(sample, block.fData, block.fBytes, true);
    fAudioWriters[track]->WriteSample(sample.Get());
    return 0;
}
