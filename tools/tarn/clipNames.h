#pragma once

#include <string>
#include <vector>

// What the name of a clip leads to, as far as that can be told before it is opened.

/// Whether what is read once is gone then, so that a second reader gets other bytes: a pipe, a
/// terminal, a socket, datagrams for one receiver, a port that waits for one sender.
bool IsReadOnce(const std::string& clip);

/// The files of this machine that belong to the clip: the one that it names, also behind "file:"
/// and the like, and those that a list of clips (ffconcat, m3u8) names in turn.
std::vector<std::string> FilesOfClip(const std::string& clip);
