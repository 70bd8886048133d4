#pragma once

#include "BoxWriter.h"
#include "MovieFile.h"

namespace Quillon::Orb {

/// True for formats that are stored as plain samples, all packets of one size.
bool IsPlainSound(unsigned int format);

/// 0, or the negative code with which a track of this description is refused.
int CheckTrack(const MovieTrack& track, unsigned int containerType);

/// Writes the stsd box of a track. `quickTime` is for 'mov ', else ISO's customs hold.
void WriteSampleDescription(BoxWriter& writer, const MovieTrack& track, bool quickTime);

// The two kinds of entries in it.
void WriteVideoDescription(BoxWriter& writer, const MovieTrack& track, bool quickTime);
void WriteSoundDescription(BoxWriter& writer, const MovieTrack& track, bool quickTime);

/// What an esds box says of a stream, ISO/IEC 14496-1.
struct StreamDescriptor {
    unsigned int objectType;
    unsigned int streamType;
    int bitRate;
    const std::vector<unsigned char>* specificInfo;  ///< may be empty
};
void WriteStreamDescriptor(BoxWriter& writer, const StreamDescriptor& stream);

}  // namespace Quillon::Orb
