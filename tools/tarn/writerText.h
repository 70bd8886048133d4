#pragma once

#include <string>

/// What a code of the movie file writer means to a person, and what to do about it. `subject` is
/// the encoder's name, or "sound".
std::string WriterText(int code, const std::string& subject);
