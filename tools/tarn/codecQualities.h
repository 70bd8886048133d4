#pragma once

#include <string>
#include <vector>

/// The texts of "codec_quality" that an encoder knows; null for one that goes by its bit rate, or
/// that this program does not know.
const std::vector<std::string>* QualitiesOf(const std::string& codec);
