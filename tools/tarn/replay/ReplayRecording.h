#pragma once

#include <string>
#include <vector>

/// Times in a recording are microseconds on its own timeline. Those that are absurdly far off are
/// read as 10^17, above or below 0.
constexpr long long kReplayUnitsPerSecond = 1'000'000;

/// How often a manifest is looked at that is another one each time, before what stands there
/// counts.
constexpr int kMostReplayReads = 10;

/// One segment of a recording, as its manifest lists it.
struct ReplayPiece {
    unsigned int id = 0;
    long long start = 0;
    long long stop = 0;  ///< exclusive
    std::string path;
    long long bytes = 0;
};

/// What a manifest lists at one moment; the recording may go on meanwhile.
struct ReplayRecording {
    std::string folder;
    std::string manifest;             ///< path
    std::vector<ReplayPiece> pieces;  ///< in order of time
    bool closed = false;              ///< the manifest has its end: nobody records any more
    bool listedBefore = false;  ///< by the text that the manifest had before it was written anew

    long long Start() const { return pieces.empty() ? 0 : pieces.front().start; }
    long long Stop() const { return pieces.empty() ? 0 : pieces.back().stop; }
    long long Bytes() const;
};

/// The library, up for as long as a command on recordings runs.
class ReplayLibrary {
public:
    ReplayLibrary();
    ~ReplayLibrary();
    ReplayLibrary(const ReplayLibrary&) = delete;
    ReplayLibrary& operator=(const ReplayLibrary&) = delete;
};

/// The manifest in a recording's folder; a file is a manifest itself.
std::string ReplayManifestPath(const std::string& place);

/// Reads the manifest of `place`, a folder or a manifest. A recording that has just begun lists
/// nothing and is no error. Where the manifest is being written anew, or that was cut off, its list
/// from before counts if more segments stand in it; one that changes meanwhile is read again. False
/// with one line in `error`.
bool ReadReplay(const std::string& place, ReplayRecording& recording, std::string& error);

/// "12.5", "1:02.5", "1:00:00" as microseconds; false for what is no time. Below 0 counts from the
/// end of a recording, which is the caller's business.
bool ParseReplayTime(const std::string& text, long long& time);

double ReplaySeconds(long long time);
