#pragma once

#include <string>

#include "spar/zRecord.h"
#include "spar/zVariable.h"
#include "tarn/export.h"

/// What a media record describes; the value of its `fType`.
enum tnMediaType : unsigned int {
    TN_MEDIA_VIDEO = 'vido',
    TN_MEDIA_AUDIO = 'audo',
};

/// The value of `fFieldOrder`. Whoever finds another value there, or none, goes by progressive.
enum tnFieldOrder : int {
    TN_FIELD_PROGRESSIVE = 1,
    TN_FIELD_INTERLACED_2 = 2,  // 2 and 3 are the media library's numbers as well
    TN_FIELD_INTERLACED_3 = 3,
};

/// How a format of pictures or sound is told from one room of the library to the next.
///
/// A record whose thirteen most read values are members, so that reading them needs no look-up;
/// every other property ("timescale", "fps", "codecname", ...) is an ordinary keyed variable. By
/// id, by key and through the member the same value is reached. An ordinary value: copied freely,
/// no lock; what threads share is a copy or a `std::shared_ptr` of a record that nobody changes any
/// more.
///
/// Queries are total: a missing variable reads as the default that the operation names.
class TARN_API tnMediaRecord : public zRecord {
public:
    /// Everything unset.
    tnMediaRecord();
    /// Everything unset but the type.
    tnMediaRecord(tnMediaType type);
    tnMediaRecord(const tnMediaRecord& source);
    /// Takes over what any record holds; what stands under a member's id goes into that member.
    tnMediaRecord(const zRecord& source);
    ~tnMediaRecord() override;

    tnMediaRecord& operator=(const tnMediaRecord& source);

    /// Lets the members be reached by id and key. The constructors have done it.
    void RegisterVariables();

    /// Copies the first child of `parent` whose type is `type` into `out`: 0; or -1021 and `out`
    /// stays as it was. A child that is `out` itself is found and left alone.
    static int FindFirstByType(const zRecord& parent, tnMediaType type, tnMediaRecord& out);
    /// The same child itself, which `parent` goes on owning: 0; or -1021 with `*out` null, or -22
    /// for a null `out`.
    static int FindFirstByType(const zRecord& parent, tnMediaType type, zRecord** out);

    /// Sets `fBytesPerRow` to the padded pitch of the width and raster type, whatever it was
    /// before.
    void SetBytesPerRowBasedOnFormat();

    /// Lets this record's size, if at least one side is a multiple of 16, replace the canvas size,
    /// and corrects `*ratio` for the change of shape against the channel's. No pointer may be null.
    void AlignChannelAndCanvasCoordinates(int* channelWidth, int* channelHeight, int* canvasWidth,
                                          int* canvasHeight, float* ratio);

    /// 'r601' below 720 lines (an unset height included), 'r709' from there.
    unsigned int GuessColorSpace() const;
    /// 'limt' for YUV raster types, else 'full'.
    unsigned int GuessNominalRange() const;
    /// Whether the frame rate counts as one of PAL: 25, 50, and a few others that this test takes
    /// for such.
    bool IsPALFrameRate() const;

    /// Bytes of `count` frames or sample frames; 0 for a record without a type. 32-bit and
    /// wrapping.
    int CalculateBufferSize(int count) const;

    /// Whether the encoder of that name takes its frames from main memory; false for a null name.
    static bool CodecRequiresCpuBuffers(const char* name);
    /// The same of this record's "codecname"; false if it has none.
    bool CodecRequiresCpuBuffers() const;

    /// 48 kHz, one bus of two channels, 16 bits; the sample format stays as it was.
    void MakeDefaultAudioFormat();

    /// A short text for display, as `1920x1080p59.94` or `Stereo 16 bit 48 kHz`; empty for a record
    /// that does not say enough.
    std::string ToCompactFormatString() const;

    zVariable fType;           // a tnMediaType
    zVariable fWidth;          // pixels, as stored in memory
    zVariable fHeight;         // pixels
    zVariable fColourspace;    // the raster type: the pixel layout, despite the word, not a matrix
    zVariable fFieldOrder;     // a tnFieldOrder
    zVariable fColorSpace;     // the matrix: 'r601' or 'r709'
    zVariable fNominalRange;   // 'limt' or 'full'
    zVariable fBytesPerRow;    // 0: it follows from the format
    zVariable fAudioFormat;    // four-character code, see tnAudioFormat
    zVariable fBitsPerSample;  // bits
    zVariable fBusses;         // independent groups of channels in one sample frame
    zVariable fChannels;       // per bus
    zVariable fSampleRate;     // sample frames a second

private:
    std::string compact_video_string() const;
    std::string compact_audio_string() const;
};
