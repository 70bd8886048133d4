#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <string>

#include "spar/zFileStream.h"
#include "tarn/foundation/tnTarn.h"
#include "tarn/replay/tnReplayManifest.h"

#include "tests/support/plainManifest.h"

// A manifest out of any bytes: it reads as the plain way reads it, what is listed has a file, and
// the list that is written anew out of it reads back as the same.

// A segment that is displaced from the list keeps its reference for good, on purpose.
// Seen from the sanitizer's library, so not hidden.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:tnReplayManifest::take_segments";
}

/// A folder with the movies of the segments 1 to 9, and the manifest.
static std::string make_folder() {
    std::string name = std::filesystem::temp_directory_path() / "fuzz_manifest_XXXXXX";
    const std::string folder = mkdtemp(name.data());
    for (int id = 1; id <= 9; ++id) {
        zFileStream((folder + "/" + std::to_string(id) + ".mov").c_str(), Z_FILE_WRITE, false)
            .Open();
    }
    tnTarn::string_defines();
    return folder;
}

static void write_file(const std::string& path, const std::uint8_t* data, std::size_t size) {
    zFileStream stream(path.c_str(), Z_FILE_WRITE, false);
    if (stream.Open() != 0 || stream.Write(data, size) != 0) std::abort();
}

/// A fingerprint of the list, by look-ups alone.
static long long walk(tnReplayManifest& manifest, bool mustStand) {
    tnReplayManifest::Segments segments;
    long long mark = 0;
    long long in = -1000000;
    long long out = 1000000;
    manifest.AppendSegmentIDsByMarks(segments, &mark, &in, &out);
    long long sum = manifest.VideoDuration();
    zString path;
    for (tnReplaySegment* segment : segments) {
        if (!segment->IsValid()) std::abort();
        if (mustStand && manifest.GetSegmentPath(segment, path) != 0) std::abort();
        sum = static_cast<long long>(static_cast<unsigned long long>(sum) * 31 + segment->fId);
        segment->Release();
    }
    return sum;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string folder = make_folder();
    const std::string path = folder + "/replay.xml";
    write_file(path, data, size);
    tnReplayManifest manifest(path.c_str());
    const tests::PlainManifest plain(folder, path);
    const int result = manifest.Read();
    if (result != plain.Result() || manifest.VideoDuration() != plain.Duration()) std::abort();
    if (result != 0) {
        if (!manifest.IsEmpty()) std::abort();
        return 0;
    }
    walk(manifest, true);
    if (tnReplaySegment* const first = manifest.GetFirstSegment()) first->Release();
    if (tnReplaySegment* const at = manifest.GetSegmentByTime(50)) at->Release();
    // Everything is kept: the manifest is written anew with what it lists.
    tnReplayManifest::Segments all;
    long long in = std::numeric_limits<long long>::min();
    long long out = std::numeric_limits<long long>::max();
    manifest.AppendSegmentIDsByMarks(all, nullptr, &in, &out);
    manifest.DeleteNonActiveSegments(all, -1);
    for (tnReplaySegment* segment : all) segment->Release();
    tnReplayManifest again(path.c_str());
    if (again.Read() != 0) std::abort();
    if (walk(again, true) != walk(manifest, true)) std::abort();
    return 0;
}
