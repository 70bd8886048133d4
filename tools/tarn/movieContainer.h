#pragma once

#include <string>

/// Which container the ending of a movie's name asks for, in letters of either case: 'mov ', or
/// 'mp4 ' for .mp4 and .m4v. 0 for any other ending.
unsigned int ContainerOf(const std::string& path);

/// The line for a name with any other ending.
std::string UnknownContainer(const std::string& path);
