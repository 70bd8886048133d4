#pragma once

#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "spar/zFileStream.h"
#include "spar/zThread.h"
#include "spar/zTime.h"
#include "tarn/foundation/tnTarn.h"
#include "tarn/replay/tnReplayManifest.h"

#include "tests/support/TestFolder.h"

/// What the tests of a manifest see of its inside.
class tnReplayManifestAccess {
public:
    static tnReplaySegment* SegmentByID(const tnReplayManifest& manifest, unsigned int id) {
        return manifest.get_segment_by_id(id);
    }
    static std::vector<unsigned int> ListedIDs(const tnReplayManifest& manifest) {
        const zCriticalLock lock(*manifest.fSegmentsCritical);
        std::vector<unsigned int> ids;
        for (const tnReplaySegment* segment : manifest.fSegments) ids.push_back(segment->fId);
        return ids;
    }
    static bool HasStream(const tnReplayManifest& manifest) {
        const zCriticalLock lock(*manifest.fFileCritical);
        return manifest.fStream != nullptr;
    }
    static tnMediaRecord VideoFormat(const tnReplayManifest& manifest) {
        const zMutexLock lock(manifest.fFormatsLock);
        return manifest.fVideoFormat;
    }
    static tnMediaRecord AudioFormat(const tnReplayManifest& manifest) {
        const zMutexLock lock(manifest.fFormatsLock);
        return manifest.fAudioFormat;
    }
    static int WriteBegin(tnReplayManifest& manifest) { return manifest.write_begin(); }
    static int WriteEnd(tnReplayManifest& manifest) { return manifest.write_end(); }
    static int WriteSegment(tnReplayManifest& manifest, const tnReplaySegment& segment) {
        return manifest.write_segment(&segment);
    }
};

namespace tests {

using Ids = std::vector<unsigned int>;

inline void WriteText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadText(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

/// Waits for what another thread does on its own time; the margin is for a machine under load.
inline bool WaitUntil(const std::function<bool()>& isSo) {
    constexpr long long kMarginUs = 30'000'000;
    const long long end = zTime::MicroNow() + kMarginUs;
    while (!isSo()) {
        if (zTime::MicroNow() > end) return false;
        zThread::MicroSleep(500);
    }
    return true;
}

/// Around what displaces segments from a manifest's list: these keep their reference for good, and
/// the leak checker is told so.
class DisplacedSegments {
public:
#if defined(__SANITIZE_ADDRESS__)
    DisplacedSegments() {
        __lsan_disable();
    }
    ~DisplacedSegments() {
        __lsan_enable();
    }
#else
    DisplacedSegments() {}
    ~DisplacedSegments() {}
#endif
    DisplacedSegments(const DisplacedSegments&) = delete;
    DisplacedSegments& operator=(const DisplacedSegments&) = delete;
};

/// A set of segments that gives its references back.
class HeldSegments {
public:
    ~HeldSegments() { Release(); }
    void Release() {
        for (tnReplaySegment* segment : fSegments) segment->Release();
        fSegments.RemoveAll();
    }
    Ids IDs() const {
        Ids ids;
        for (const tnReplaySegment* segment : fSegments) ids.push_back(segment->fId);
        return ids;
    }
    tnReplayManifest::Segments fSegments;
};

/// A registry, a folder, and one manifest in it.
class ReplayTest : public testing::Test {
protected:
    ReplayTest() {
        tnTarn::string_defines();  // formats are written and read by their keys
        tnReplayManifest::Startup();
        fManifest = tnReplayManifest::GetManifest(Path().c_str());
    }
    ~ReplayTest() override {
        Close();
        tnReplayManifest::Shutdown();
    }

    std::string Path() const { return fFolder.File("replay.xml"); }
    std::string Movie(const std::string& name) const { return fFolder.File(name); }
    void MakeMovie(int id) const { WriteText(fFolder.File(std::to_string(id) + ".mov"), "movie"); }
    bool HasMovie(int id) const {
        return zFileStream::Exists(fFolder.File(std::to_string(id) + ".mov").c_str());
    }
    std::string Text() const { return ReadText(Path()); }

    static tnMediaRecord Video() {
        tnMediaRecord video(TN_MEDIA_VIDEO);
        video.fWidth = 640;
        video.fHeight = 360;
        video.SetInt32('tmsc', 25000);
        return video;
    }
    static tnMediaRecord Audio() {
        tnMediaRecord audio(TN_MEDIA_AUDIO);
        audio.fSampleRate = 48000;
        audio.fChannels = 2;
        return audio;
    }

    int Begin() { return fManifest->BeginRecording(Video(), Audio()); }
    /// A segment with its movie file, 100 units long.
    void Add(unsigned int id) {
        MakeMovie(static_cast<int>(id));
        const long long start = (static_cast<long long>(id) - 1) * 100;
        ASSERT_EQ(fManifest->AddSegment(id, start, start + 100), 0);
    }
    void Record(unsigned int count) {
        ASSERT_EQ(Begin(), 0);
        for (unsigned int id = 1; id <= count; ++id) Add(id);
    }
    Ids Listed() const { return tnReplayManifestAccess::ListedIDs(*fManifest); }
    /// What a reader of its own finds in the file now; `result` is that of its Read.
    Ids InFile(int* result = nullptr) const {
        tnReplayManifest reader(Path().c_str());
        const int read = reader.Read();
        if (result != nullptr) *result = read;
        return tnReplayManifestAccess::ListedIDs(reader);
    }
    void Close() {
        if (fManifest != nullptr) tnReplayManifest::ReleaseManifest(fManifest);
        fManifest = nullptr;
    }
    void Reopen() {
        Close();
        fManifest = tnReplayManifest::GetManifest(Path().c_str());
    }

    TestFolder fFolder;
    tnReplayManifest* fManifest = nullptr;
};

}  // namespace tests
