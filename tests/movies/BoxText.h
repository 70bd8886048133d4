#pragma once

#include <string>
#include <vector>

/// The boxes in `bytes` as text, a line each, with what their fields say: the form in which golden
/// texts are kept. Free boxes are left out, and chunks are counted from `media`, so that the text
/// does not hang on how much room an index has.
std::string BoxText(const std::vector<unsigned char>& bytes, long long media);
