#pragma once

#include "orb/RObject.h"
#include "spar/zRefCount.h"
#include "tarn/export.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/writers/tnAudioCompressor2.h"
#include "tarn/writers/tnVideoCompressor2.h"

class tnAudioConverter;
class zCritical;

namespace Quillon::Orb {
class CAssetAudioWriter;
class CAssetVideoCompressor;
class CAssetWriter;
class CAudioProperties;
class CVideoConverter;
class CVideoProperties;
class CVideoSample;
}  // namespace Quillon::Orb

/// Writes one movie file: raw frames and PCM in, an encoded and muxed file out. There is at most
/// one track of each kind.
///
/// A recording is: construct, Open, the four formats, writes, Close, Release. The first write (or
/// CompleteInitialization) builds the tracks; it blocks while encoders open. Encoding and file
/// output happen on threads behind the tracks; a write blocks only when its track is full, which
/// the readiness queries tell beforehand.
///
/// A writer that is opened again keeps its converters: other formats want a writer of their own.
///
/// Video and audio may be written from two threads at once. Nothing keeps a first write from
/// overlapping CloseStreams: the caller does. All results are 0 or a negative code.
class TARN_API tnWriteORB2 : public zRefCount {
public:
    tnWriteORB2();
    /// Close; blocks as long as that does.
    ~tnWriteORB2() override;

    /// Names the file and makes an empty one at once if there is none; an existing file is left
    /// alone until writing starts.
    ///
    /// `containerType` is 'mov ' or 'mp4 '; other codes go to the media library as they are,
    /// without tuning. `moovRate` is the number of seconds between two states of the file that
    /// survive a crash, 0 for the container's own choice. `expectedSeconds` is the length announced
    /// to the container, 0 or less for 13 hours. -1006: the place, the container type or the file
    /// name's extension was refused, or there is no memory.
    int Open(const char* path, unsigned int containerType, int moovRate, double expectedSeconds);

    // Before the first write, from the thread that will write; no lock, no check.
    void SetSourceVideoFormat(const tnMediaRecord& format);
    void SetEncodedVideoFormat(const tnMediaRecord& format);
    void SetSourceAudioFormat(const tnMediaRecord& format);
    void SetEncodedAudioFormat(const tnMediaRecord& format);

    /// Builds the tracks from the four formats and starts the file; 0 at once if that has happened.
    ///
    /// After a failure the writer is open as before, and the next write sets everything up anew.
    /// -1006 no file or it did not begin; -1032 to -1043 video; -1041, -1042, -1054 to -1057 audio.
    int CompleteInitialization();

    // Whether a write would not block. A track that does not exist is ready. Without a lock: any
    // thread may ask, but not while a set-up, be it in a first write, or CloseStreams runs.
    bool IsVideoReady();
    bool IsAudioReady();
    bool IsAllMediaReady();

    /// Writes one frame; blocks while the track is full.
    ///
    /// Each frame is held until the next one tells how long it lasted, so the first call of a file
    /// writes nothing and the last frame leaves with CloseStreams. -1006 no video track; -1050 the
    /// pixel conversion failed; -1051 no memory for the sample; -1052 the track refused the frame
    /// that was held, which is then lost.
    int WriteVideo(tnVideoCompressor2::EncodedBuffer& buffer);

    /// Writes one block of audio in the source format; blocks while the track is full.
    ///
    /// `data` is copied and free again on return. Time in the file follows from the order and
    /// length of the blocks alone; the two unnamed arguments are there for the interface of older
    /// callers. -1006 no audio track; -1058 the block gave nothing, and the next one is handled as
    /// usual: its conversion failed, or gave more than half a second, or it is one of the first of
    /// a change of rate, which keeps them until it has some 20 ms at 48 kHz; -1059 the track
    /// refused the block, or there is no memory for it.
    ///
    /// With a change of rate the file's sound ends some 20 ms early: what the filter still holds at
    /// the end stays behind.
    int WriteAudioPacket(tnAudioCompressor2::EncodedBuffer* buffer, int, long long,
                         const unsigned char* data, int size);

    /// Bytes of the track that the file has taken since Open, also once it is closed; what still
    /// waits for its encoder or for the disk is not among them. The thread that writes.
    long long BytesWritten(bool ofPictures) const;

    /// Whether the file takes nothing more: while it runs, from the failure of its disk on, which a
    /// write that follows answers with -1052 or -1059; once it is closed, also when what still
    /// waited then, or the end of the file, could not be written. A picture or a block that failed
    /// alone is none. False again from Open on. The thread that writes.
    bool HasFailed() const;

    /// Hands over the frame that is held and ends both tracks once both are ready; writers wait
    /// meanwhile. -14: a track was not ready in time, and both stand as they were.
    ///
    /// `timeoutMicroseconds` limits the wait for readiness alone. Ending the tracks takes as long
    /// as the encoders need for what they hold. The held frame finds its place at once if frames
    /// were written only while the track was ready; otherwise it may wait for room first.
    int CloseStreams(long long timeoutMicroseconds);

    /// CloseStreams with a minute's patience for the tracks to become ready, then completes the
    /// file whatever came of it: an encoder that does not move is cut off after some seconds more.
    /// HasFailed tells whether the file could be completed.
    void Close();

private:
    // Turns on the copying of pictures, which no operation does, and replaces what a set-up made.
    friend struct tnWriteORB2TestPeer;

    template <typename T>
    using RObject = Quillon::Orb::RObject<T>;

    int initialize_if_needed();
    int announce_duration();
    int wait_for_tracks(long long timeoutMicroseconds);
    void end_tracks();

    int complete_initialization_for_video();
    int make_video_track(unsigned int sourceFormat, Quillon::Orb::CVideoProperties* source);
    int place_converter(unsigned int inputFormat, Quillon::Orb::CVideoProperties* source,
                        bool intoLimited);
    int tune_container();
    int check_hardware();
    bool ConfigureVideoTimescaleAdjustment(const Quillon::Orb::CVideoProperties* properties);
    bool AdjustVideoPropertiesTimescale(Quillon::Orb::CVideoProperties* properties);

    int complete_initialization_for_audio();
    int make_compressed_audio_track(Quillon::Orb::CAudioProperties* properties);
    int make_plain_audio_track(Quillon::Orb::CAudioProperties* properties);

    int convert_picture(RObject<Quillon::Orb::CVideoSample>& sample);
    int copy_picture(RObject<Quillon::Orb::CVideoSample>& sample);
    bool AdjustVideoSampleTiming(RObject<Quillon::Orb::CVideoSample>& sample);

    RObject<Quillon::Orb::CAssetWriter> fAssetWriter;
    RObject<Quillon::Orb::CAssetVideoCompressor> fVideoWriter;
    RObject<Quillon::Orb::CAssetAudioWriter> fAudioWriter;

    // Recursive. Set-up takes init, then audio, then video; CloseStreams takes audio, then video,
    // then init. The orders are opposite on purpose: a close waits for writers and writers for a
    // close, and the caller keeps a first write and a close apart.
    zCritical* fAudioLock;
    zCritical* fVideoLock;

    // video side, under fVideoLock once writing
    tnMediaRecord fSourceVideoFormat;
    tnMediaRecord fEncodedVideoFormat;
    // Both converters stay when the file is closed: hosts that cut a recording into files open one
    // writer again and again with the same formats. What a later file does not replace still stands
    // in front of its track, also where its own formats would need no conversion. A picture
    // converter that brings frames of one format into another range is no such: it goes with the
    // track that it was made for, or the next one would store a range that it does not tell of.
    RObject<Quillon::Orb::CVideoConverter> fVideoConverter;

    // audio side, under fAudioLock once writing
    tnMediaRecord fSourceAudioFormat;
    tnMediaRecord fEncodedAudioFormat;

    // under fInitLock
    bool fInitialized = false;
    zCritical* fInitLock;

    bool fCopySamples = false;
    bool fConvertsRangeAlone = false;  // what fVideoConverter is there for
    int fBytesPerPacket = -1;
    tnAudioConverter* fAudioConverter = nullptr;
    unsigned char* fConvertBuffer = nullptr;
    unsigned int fConvertBufferSize = 0;

    // fixed by Open and set-up
    int fMoovRate = 0;
    double fExpectedSeconds = -1.0;
    unsigned int fContainerType;
    long long fAudioPacketsWritten = 0;
    long long fVideoFramesWritten = 0;
    long long fInputTimescale = 100;
    long long fFileTimescale = 100;
    long long fAudioRate = 48000;
    // Zeroed by set-up, read by nobody. They hold the places of the members behind them, which
    // hosts that lay out their own debugger views of the writer count on.
    long long fSpare1 = 0;
    long long fSpare2 = 0;
    RObject<Quillon::Orb::CVideoSample> fHeldSample;

    // The tracks between their end and the file's, and what they had come to then.
    RObject<Quillon::Orb::CAssetVideoCompressor> fEndedVideo;
    RObject<Quillon::Orb::CAssetAudioWriter> fEndedAudio;
    long long fVideoBytes = 0;
    long long fAudioBytes = 0;
    bool fClosedBadly = false;
};
