#include "tarn/replay/tnManifestBefore.h"

#include <filesystem>
#include <limits>
#include <system_error>

#include "spar/zFileStream.h"

static unsigned int count_of(tnReplayManifest& manifest) {
    tnReplayManifest::Segments all;
    long long in = std::numeric_limits<long long>::min();
    long long out = std::numeric_limits<long long>::max();
    manifest.AppendSegmentIDsByMarks(all, nullptr, &in, &out);
    for (tnReplaySegment* segment : all) segment->Release();
    return all.Count();
}

tnManifestBefore::tnManifestBefore(const std::string& manifest)
    : fManifest(manifest), fPath(manifest + ".before") {}

// A link needs no room and is there at once. Disks without links get a copy, which must not be
// taken for the list before it is whole.
bool tnManifestBefore::Keep() const {
    zFileStream::RemoveFile(fPath.c_str());
    if (zFileStream::LinkFile(fManifest.c_str(), fPath.c_str()) == 0) return true;
    std::error_code failed;
    const std::string half = fPath + ".part";
    const bool isCopied =
        std::filesystem::copy_file(fManifest, half,
                                   std::filesystem::copy_options::overwrite_existing, failed) &&
        zFileStream::RenameFile(half.c_str(), fPath.c_str()) == 0;
    if (!isCopied) zFileStream::RemoveFile(half.c_str());
    return isCopied;
}

bool tnManifestBefore::DropIfListed(tnReplayManifest& manifest,
                                    const tnReplayManifest::Segments& kept) const {
    if (count_of(manifest) != kept.Count()) return false;
    zFileStream::RemoveFile(fPath.c_str());
    return true;
}

bool tnManifestBefore::BringBack() const {
    return zFileStream::RenameFile(fPath.c_str(), fManifest.c_str()) == 0;
}
