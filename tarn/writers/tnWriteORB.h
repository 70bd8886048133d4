#pragma once

#include <vector>

#include "orb/RObject.h"
#include "spar/zRefCount.h"
#include "tarn/export.h"
#include "tarn/filters/tnAudioCompressor.h"
#include "tarn/filters/tnVideoCompressor.h"
#include "tarn/foundation/tnMediaRecord.h"

class tnAudioConverter;
class zCritical;

namespace Quillon::Orb {
class CAssetAudioWriter;
class CAssetTrackWriter;
class CAssetVideoCompressor;
class CAssetWriter;
class CAudioProperties;
class CByteArray;
class CContainerReaderVideoProperties;
class CVideoConverter;
class CVideoSample;
}  // namespace Quillon::Orb

/// The earlier movie file writer. Its 'mov ' files hold ProRes or Motion JPEG, or no pictures, and
/// up to eight tracks of PCM.
///
/// A recording is: construct, Open, the four formats, writes, close, Release. The first write (or
/// CompleteInitialization) builds the tracks, and blocks while encoders open. A write drops rather
/// than blocks: what finds its track full for 30 milliseconds is gone, and the write a success.
///
/// Video, and audio, may be written from two threads at once. Nothing keeps a first write from
/// overlapping close: the caller does.
class TARN_API tnWriteORB : public zRefCount {
public:
    static constexpr int kAudioTracks = 8;

    tnWriteORB();
    /// Closes the file.
    ~tnWriteORB() override;

    /// Names the file and makes an empty one at once if there is none; an existing file is left
    /// alone until writing starts. False: no file can be written there.
    ///
    /// `moovRate` is the number of seconds between two states of the file that survive a crash, 0
    /// for the container's own choice. `expectedSeconds` is the length announced to the container,
    /// -1 for 13 hours; other numbers below 0, and 0, announce no length.
    bool Open(const char* path, int moovRate, long long expectedSeconds);

    // Before the first write, from the thread that will write; no lock, no check.
    void SetSourceVideoFormat(const tnMediaRecord& format);
    void SetEncodedVideoFormat(const tnMediaRecord& format);
    /// It switches audio on and says no more: all sound is taken for 48 kHz, stereo, 16 bits.
    void SetSourceAudioFormat(const tnMediaRecord& format);
    /// Bit t of "audio_output_track_mask", of 16 bits, asks for track t; bits 8 to 15 for nothing.
    /// Without the key there is no audio.
    void SetEncodedAudioFormat(const tnMediaRecord& format);

    /// Builds the tracks from the four formats and starts the file; 0 at once if that has happened.
    ///
    /// -1 without a file; -1006 for everything that fails. The writer is open all the same, and
    /// sets everything up anew when the next write comes.
    int CompleteInitialization();

    /// Writes one frame of raw pixels in the source format, behind the frame before: Duration()
    /// tells, in ticks of the encoded record, how long it lasts. 0, also for a frame that was
    /// dropped.
    ///
    /// The bytes are read in place, on the encoder's thread; the writer keeps a reference of the
    /// buffer as long, and so the bytes stay as they are while it is referenced. A
    /// tnORBUncompressedVideoBuffer is told what it cost.
    ///
    /// The code of a set-up that failed; -1: there is no video track (0 from the write that found
    /// this out by its set-up), or conversion or track refused the frame.
    int WriteVideo(tnVideoCompressor::EncodedBuffer& buffer);

    /// Writes one block of audio, 48 kHz, stereo, 16 bits, to the track of that number. 0, also for
    /// a block that was dropped or that the track refused.
    ///
    /// `data` is copied. Time in the file follows from the blocks' order and length alone; the
    /// first three arguments are there for the interface of callers and not used. The code of a
    /// set-up that failed; -1: there is no such track (0 from the write that found this out by its
    /// set-up), or the conversion failed.
    int WriteAudioPacket(tnAudioCompressor::EncodedBuffer* buffer, int, long long,
                         const unsigned char* data, int size, int track);

    /// Completes the file. Waits up to 3 seconds until the tracks are ready to end, with all
    /// writers waiting, and then as long as they take to encode what they hold.
    void close();

private:
    template <typename T>
    using RObject = Quillon::Orb::RObject<T>;
    using Properties = Quillon::Orb::CContainerReaderVideoProperties;

    struct Codec {
        unsigned int fTrackFormat = 0;
        unsigned int fCompressorCode = 0;
    };

    /// A frame that the track reads in place.
    struct FrameInUse {
        RObject<Quillon::Orb::CByteArray> fBytes;
        tnVideoCompressor::EncodedBuffer* fBuffer;  // a reference of ours
    };

    void drop_earlier_set_up();
    bool announce_duration();
    bool initialize_if_needed(int& code);

    bool complete_initialization_for_video();
    bool describe_source(Properties& source) const;
    bool choose_codec(Properties& source, Codec& codec, unsigned int& inputFormat);
    bool place_converter(Properties& source, unsigned int inputFormat);
    bool make_video_track(Properties& source, const Codec& codec, unsigned int inputFormat);
    bool tune_container();

    bool complete_initialization_for_audio();
    bool make_audio_track(Quillon::Orb::CAudioProperties& properties, int track);

    RObject<Quillon::Orb::CVideoSample> sample_of(tnVideoCompressor::EncodedBuffer& buffer,
                                                  RObject<Quillon::Orb::CByteArray>& bytes) const;
    bool convert_picture(RObject<Quillon::Orb::CVideoSample>& sample);
    void release_frames_not_in_use();
    void release_all_frames();

    bool are_all_tracks_ready();
    void end_tracks();

    RObject<Quillon::Orb::CAssetWriter> fAssetWriter;
    RObject<Quillon::Orb::CAssetVideoCompressor> fVideoWriter;
    RObject<Quillon::Orb::CAssetAudioWriter> fAudioWriters[kAudioTracks];

    // Recursive. Set-up takes init, then audio, then video; close takes audio, then video, then
    // init. The orders are opposite on purpose: a close waits for writers and writers for a close,
    // and the caller keeps a first write and a close apart.
    zCritical* fAudioLock;
    zCritical* fVideoLock;

    // video side, under fVideoLock once writing
    tnMediaRecord fSourceVideoFormat;
    tnMediaRecord fEncodedVideoFormat;
    RObject<Quillon::Orb::CVideoConverter> fVideoConverter;
    bool fWrapFrames = false;
    std::vector<FrameInUse> fFramesInUse;

    // audio side, under fAudioLock once writing
    tnMediaRecord fSourceAudioFormat;
    tnMediaRecord fEncodedAudioFormat;

    // under fInitLock
    bool fInitialized = false;
    zCritical* fInitLock;

    int fBytesPerPacket = -1;
    tnAudioConverter* fAudioConverter = nullptr;
    unsigned char* fConvertBuffer = nullptr;  // all tracks share it
    unsigned int fConvertBufferSize = 0;

    // fixed by Open and set-up
    int fMoovRate = 0;
    long long fExpectedSeconds = -1;
};
