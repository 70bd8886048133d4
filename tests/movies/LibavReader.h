#pragma once

#include <string>
#include <vector>

#include "tests/movies/Readers.h"

/// libavformat in this process: what ffprobe does, without starting a program for each file.
///
/// Opens the movie, reads every packet, and collects what the library warns of. `decodable` says
/// that the packets are real, and has their streams probed too; an `empty` movie leaves open what
/// its pictures would be like.
ReaderOpinion LibavRead(const std::string& path, bool decodable, bool empty);
ReaderOpinion LibavRead(const std::vector<unsigned char>& image, bool decodable, bool empty);
