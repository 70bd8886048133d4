#include "ReplayRecording.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <limits>
#include <memory>

#include "spar/zBoot.h"
#include "spar/zFileStream.h"
#include "tarn/replay/tnManifestBefore.h"
#include "tarn/replay/tnReplayManifest.h"

namespace {

constexpr char kManifestName[] = "replay.xml";
constexpr char kEnd[] = "</larkspur_replay_manifest>";
constexpr int kNoList = -1;
constexpr double kSecondsPerPart = 60;
/// Three thousand years: a manifest may hold any number, and sums of these still fit.
constexpr long long kMostTime = 100'000'000'000'000'000;

struct ReleaseManifest {
    void operator()(tnReplayManifest* manifest) const {
        tnReplayManifest::ReleaseManifest(manifest);
    }
};

/// Whether the file ends as a manifest does that nobody writes any more.
bool ends_as_closed(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    constexpr int kLength = sizeof kEnd - 1;
    if (!file.seekg(-kLength, std::ios::end)) return false;
    std::string tail(kLength, '\0');
    return file.read(tail.data(), kLength) && tail == kEnd;
}

void take_pieces(tnReplayManifest& manifest, std::vector<ReplayPiece>& pieces) {
    tnReplayManifest::Segments segments;
    long long in = std::numeric_limits<long long>::min();
    long long out = std::numeric_limits<long long>::max();
    manifest.AppendSegmentIDsByMarks(segments, nullptr, &in, &out);
    zString path;
    for (tnReplaySegment* segment : segments) {
        manifest.GetSegmentPath(segment, path);
        const long long bytes = zFileStream::FileSize(path);
        pieces.push_back({segment->fId, std::clamp(segment->fStart, -kMostTime, kMostTime),
                          std::clamp(segment->fStop, -kMostTime, kMostTime), path.AsString(),
                          bytes < 0 ? 0 : bytes});
        segment->Release();
    }
}

/// Adds what the manifest at `path` lists; the code of reading it.
int read_manifest(const std::string& path, std::vector<ReplayPiece>& pieces) {
    const std::unique_ptr<tnReplayManifest, ReleaseManifest> manifest(
        tnReplayManifest::GetManifest(path.c_str()));
    const int code = manifest->Read();
    if (code == 0) take_pieces(*manifest, pieces);
    return code;
}

/// What tells one state of a file from another. A file that is not there has a state as well.
struct FileState {
    explicit FileState(const std::string& path) {
        std::error_code missing;
        fSize = std::filesystem::file_size(path, missing);
        fWritten = std::filesystem::last_write_time(path, missing);
    }
    bool operator==(const FileState&) const = default;

    std::uintmax_t fSize = 0;
    std::filesystem::file_time_type fWritten;
};

/// The manifest's list, or the one from before if that lists more; the code of the manifest.
int read_lists(ReplayRecording& recording) {
    recording.pieces.clear();
    // Asked first: a recording that ends in between is then told as one that goes on.
    recording.closed = ends_as_closed(recording.manifest);
    const int code = read_manifest(recording.manifest, recording.pieces);
    std::vector<ReplayPiece> before;
    read_manifest(tnManifestBefore(recording.manifest).Path(), before);
    recording.listedBefore = before.size() > recording.pieces.size();
    if (recording.listedBefore) recording.pieces = std::move(before);
    return code;
}

/// A recorder that writes its manifest anew may be done between the two looks: the first finds no
/// list or a part of one, and the second finds that the list from before has gone. The manifest is
/// then another than at the beginning, and both are looked at again.
int read_settled_lists(ReplayRecording& recording) {
    int code = 0;
    for (int reads = 0; reads < kMostReplayReads; ++reads) {
        const FileState begun(recording.manifest);
        code = read_lists(recording);
        if (recording.listedBefore || FileState(recording.manifest) == begun) break;
    }
    return code;
}

std::string text_of_failure(const std::string& manifest, int code) {
    if (code == zFileStream::kErrorBase - 2) {
        return fmt::format("'{}': no replay recording there; give its folder", manifest);
    }
    if (code <= zFileStream::kErrorBase && code > zFileStream::kErrorBase - 200) {
        return fmt::format("'{}': cannot be read: {}; check its disk and permissions", manifest,
                           zFileStream::ErrorText(code));
    }
    return fmt::format(
        "'{}': is no replay manifest (code {}); give the folder of a recording, or its replay.xml",
        manifest, code);
}

}  // namespace

ReplayLibrary::ReplayLibrary() {
    zBoot::StartAll();
}

ReplayLibrary::~ReplayLibrary() {
    zBoot::StopAll();
}

long long ReplayRecording::Bytes() const {
    long long bytes = 0;
    for (const ReplayPiece& piece : pieces) bytes += piece.bytes;
    return bytes;
}

std::string ReplayManifestPath(const std::string& place) {
    std::error_code failed;
    if (!std::filesystem::is_directory(place, failed)) return place;
    return (std::filesystem::path(place) / kManifestName).string();
}

bool ReadReplay(const std::string& place, ReplayRecording& recording, std::string& error) {
    recording = {};
    recording.manifest = ReplayManifestPath(place);
    recording.folder = std::filesystem::path(recording.manifest).parent_path().string();
    if (recording.folder.empty()) recording.folder.push_back('.');
    const int code = read_settled_lists(recording);
    const bool hasBegun = code == kNoList && !recording.closed;
    if (code == 0 || hasBegun || recording.listedBefore) return true;
    error = text_of_failure(recording.manifest, code);
    return false;
}

bool ParseReplayTime(const std::string& text, long long& time) {
    const bool isNegative = !text.empty() && text[0] == '-';
    double seconds = 0;
    int parts = 0;
    const char* at = text.data() + (isNegative ? 1 : 0);
    const char* const end = text.data() + text.size();
    while (true) {
        double part = 0;
        const auto [next, failed] = std::from_chars(at, end, part, std::chars_format::fixed);
        const bool isWhole = part >= 0 && std::isfinite(part) && ++parts <= 3;
        if (failed != std::errc() || !isWhole || (parts > 1 && part >= kSecondsPerPart)) {
            return false;
        }
        seconds = seconds * kSecondsPerPart + part;
        if (next == end) break;
        if (*next != ':' || part != std::floor(part)) return false;
        at = next + 1;
    }
    constexpr double kMost = 1e9;
    if (seconds > kMost) return false;
    const auto units = std::llround(seconds * static_cast<double>(kReplayUnitsPerSecond));
    time = isNegative ? -units : units;
    return true;
}

double ReplaySeconds(long long time) {
    return static_cast<double>(time) / static_cast<double>(kReplayUnitsPerSecond);
}
