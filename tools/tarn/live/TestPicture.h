#pragma once

#include "LivePictures.h"
#include "LiveSound.h"

/// Colour bars with a white box that moves one step a frame, and the frame's number along the lower
/// edge.
std::unique_ptr<LivePictures> MakeTestPictures(const ShowSource& source);

/// A steady sine on both channels.
std::unique_ptr<LiveSound> MakeTone(const ShowSource& source);
