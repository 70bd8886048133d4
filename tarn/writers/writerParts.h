#pragma once

class tnAudioConverter;
class tnMediaRecord;

// What the two movie file writers do alike.

/// Makes an empty file where nothing stands yet, so that a host can show it before the first frame.
void MakeFileIfMissing(const char* path);

/// Whether a track is asked for: both sides are described, and the encoded one is on.
bool IsTrackWanted(const tnMediaRecord& source, const tnMediaRecord& encoded);

/// Makes the conversion in front of a PCM track, if the formats ask for one, in place of an earlier
/// one: the converter and a buffer of half a second of the encoded format. The writer owns both.
/// 0, or the code of the converter's Init; the converter is made all the same.
int MakeAudioConversion(const tnMediaRecord& source, const tnMediaRecord& encoded,
                        tnAudioConverter*& converter, unsigned char*& buffer,
                        unsigned int& bufferSize);

/// A block of audio in its track's format.
struct writerBlock {
    unsigned char* fData;
    int fBytes;
    long long fPackets;
};

/// The caller's bytes as they come.
writerBlock BlockOf(const unsigned char* data, int size, int bytesPerPacket);

/// Puts what the converter makes of the block, in `buffer`, in the block's place. Gives what the
/// converter gave.
int ConvertBlock(tnAudioConverter& converter, unsigned char* buffer, unsigned int bufferSize,
                 int bytesPerPacket, writerBlock& block);
