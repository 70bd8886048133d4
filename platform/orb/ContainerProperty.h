#pragma once

#include "orb/PropertyName.h"

/// Properties of container writers.
namespace Quillon::Orb::ContainerProperty::Mpeg4ContainerWriter {

inline constexpr PropertyName FastStart{
    "Mpeg4ContainerWriter::FastStart"};  ///< bool: index in front
inline constexpr PropertyName TrimAudio{
    "Mpeg4ContainerWriter::TrimAudio"};  ///< bool: priming is cut
/// int: seconds between two states of the file that survive a crash.
inline constexpr PropertyName MoovRate{"Mpeg4ContainerWriter::MoovRate"};

}  // namespace Quillon::Orb::ContainerProperty::Mpeg4ContainerWriter
