#pragma once

// What a host's mixer and renderer say of the blocks and frames that they hand over.

namespace pm {

struct AudioFormat {
    unsigned int format;   ///< 'sowt' or 'fl32'
    int sampleRate;        ///< frames a second
    signed char channels;  ///< interleaved
};

struct VideoFormat {
    unsigned int format;  ///< 'rgba', or the code of a format of two bytes a pixel
    int width;
    int height;
};

}  // namespace pm
