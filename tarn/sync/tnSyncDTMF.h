#pragma once

#include "tarn/export.h"

/// Hears the sixteen DTMF digits in 16-bit stereo sound, in its left channel.
///
/// Sound is judged in blocks of 11.5 ms at most, so that a tone is told of at the end of the first
/// block that it fills well enough. One thread; nothing is allocated.
class TARN_API tnSyncDTMF {
public:
    static constexpr int kTones = 8;

    /// Hertz: the four rows of the keypad, then its four columns.
    static constexpr double kFreqDTMF[kTones] = {697, 770, 852, 941, 1209, 1336, 1477, 1633};
    /// The digits row by row.
    static constexpr char kAsciiDTMF[] = "123A456B789C*0#D";

    tnSyncDTMF() = default;

    /// Frames in one of the detector's own blocks at a rate; 0 below 8000.
    static int BlockSize(int rate);

    /// Starts over for sound of `rate` frames a second. Below 8000 nothing is ever heard.
    void changeSampleRate(int rate);

    /// Takes one sample: a digit's character at the end of a block that holds one, else 0.
    char processSample(unsigned short sample);

    /// What the powers of the last whole block are: a digit's character, or 0.
    char detectDTMF() const;

    /// The time of the first digit within a block of sound, or 0.0. `time` is that of the first
    /// frame, in milliseconds. What follows the digit is not looked at.
    ///
    /// A block should be as long as one of the detector's own or longer: a shorter one may hold no
    /// end of those and then counts as quiet even while a tone sounds.
    double AudioStereoPCM16(double time, int sampleRate, const void* samples, int frames);

private:
    friend struct tnSyncDTMFPeek;

    int fSampleRate = -1;  // what the state below is made for
    int fBlockSize = 0;    // samples
    int fBlockFill = 0;    // samples
    double fQ1[kTones] = {};
    double fQ2[kTones] = {};
    double fPower[kTones] = {};  // of the last whole block
    double fCoefficient[kTones] = {};
};
