#pragma once

#include <string>

/// What a file takes of the disk, in bytes: a growing movie has holes, which its length counts.
/// 0 where nothing stands there, `otherwise` for what is no regular file.
long long BytesOnDisk(const std::string& path, long long otherwise = 0);
