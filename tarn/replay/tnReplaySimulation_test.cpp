#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>
#include <unistd.h>

#include "spar/zDirectory.h"

#include "tests/support/ReplayFixture.h"

// A show in simulated time: three sources record segments of a second each, players take and
// return them at random, and everything that is older than a limit is deleted meanwhile.
//
// The short form runs a minute of the show as fast as it goes. With TARN_SOAK_SECONDS set it is
// that many seconds at a hundred times the speed of the clock.

using tests::HeldSegments;
using tests::Ids;
using tests::WaitUntil;

namespace {

constexpr int kSources = 3;
constexpr int kPlayersPerSource = 2;
constexpr unsigned int kShortSeconds = 60;
constexpr long long kSegmentMs = 1000;
constexpr long long kKeepMs = 20 * kSegmentMs;
constexpr int kPurgeEvery = 5;         // segments
constexpr std::size_t kMostHeld = 4;   // by one player
constexpr long long kPaceUs = 10'000;  // of the clock for a second of the show

unsigned int soak_seconds() {
    const char* const text = std::getenv("TARN_SOAK_SECONDS");
    return text != nullptr ? static_cast<unsigned int>(std::atoi(text)) : 0;
}

long long resident_bytes() {
    long long size = 0;
    long long resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

/// One source: its folder, its manifest, and what is wrong with it, counted.
class Source {
public:
    explicit Source(const std::string& folder) : fFolder(folder) {
        const std::unique_ptr<zDirectory> directory(zDirectory::Factory());
        EXPECT_EQ(directory->Create(folder.c_str()), 0);
        fManifest = tnReplayManifest::GetManifest((folder + "/replay.xml").c_str());
        EXPECT_EQ(
            fManifest->BeginRecording(tnMediaRecord(TN_MEDIA_VIDEO), tnMediaRecord(TN_MEDIA_AUDIO)),
            0);
    }
    ~Source() { tnReplayManifest::ReleaseManifest(fManifest); }

    std::string Movie(unsigned int id) const { return fFolder + "/" + std::to_string(id) + ".mov"; }

    void RecordSegment(unsigned int id) {
        tests::WriteText(Movie(id), "movie");
        const long long start = (static_cast<long long>(id) - 1) * kSegmentMs;
        EXPECT_EQ(fManifest->AddSegment(id, start, start + kSegmentMs), 0);
    }

    void Purge(long long nowMs) {
        HeldSegments active;
        EXPECT_EQ(fManifest->DeleteNonActiveSegments(active.fSegments, nowMs - kKeepMs), 0);
        EXPECT_TRUE(fManifest->IsRecording());
    }

    /// Nothing that is listed, and so held here, may lack its file.
    void CheckListed() {
        HeldSegments listed;
        long long in = 0;
        long long out = std::numeric_limits<long long>::max();
        fManifest->AppendSegmentIDsByMarks(listed.fSegments, nullptr, &in, &out);
        for (const tnReplaySegment* segment : listed.fSegments) {
            if (!zFileStream::Exists(Movie(segment->fId).c_str())) ++fMissing;
        }
    }

    std::size_t CountMovies() const {
        std::vector<std::string> names;
        const std::unique_ptr<zDirectory> directory(zDirectory::Factory());
        EXPECT_EQ(directory->List(fFolder.c_str(), names), 0);
        return static_cast<std::size_t>(std::count_if(
            names.begin(), names.end(), [](const auto& name) { return name.ends_with(".mov"); }));
    }

    const std::string fFolder;
    tnReplayManifest* fManifest = nullptr;
    std::atomic<int> fMissing{0};
    std::atomic<int> fPlayed{0};
};

/// Takes segments at random, plays them a while, and gives them back.
class Player {
public:
    Player(Source& source, unsigned int seed) : fSource(source), fRandom(seed) {}
    ~Player() {
        while (!fHeld.empty()) GiveBack();
    }

    void Step() {
        const bool takes = fHeld.empty() || (fHeld.size() < kMostHeld && fRandom() % 2 == 0);
        takes ? Take() : GiveBack();
        for (const tnReplaySegment* segment : fHeld) {
            if (!zFileStream::Exists(fSource.Movie(segment->fId).c_str())) ++fSource.fMissing;
        }
    }

private:
    void Take() {
        const long long end = fSource.fManifest->VideoDuration();
        const long long back = static_cast<long long>(fRandom() % (2 * kKeepMs));
        tnReplaySegment* const segment = fRandom() % 4 == 0
                                             ? fSource.fManifest->GetFirstSegment()
                                             : fSource.fManifest->GetSegmentByTime(end - 1 - back);
        if (segment == nullptr) return;  // too old, or a deletion is at work
        fHeld.push_back(segment);
        ++fSource.fPlayed;
    }
    void GiveBack() {
        std::swap(fHeld[fRandom() % fHeld.size()], fHeld.back());
        fHeld.back()->Release();
        fHeld.pop_back();
    }

    Source& fSource;
    std::mt19937 fRandom;
    std::vector<tnReplaySegment*> fHeld;
};

class ReplaySimulation : public testing::Test {
protected:
    ReplaySimulation() { tnReplayManifest::Startup(); }
    ~ReplaySimulation() override {
        fSources.clear();
        tnReplayManifest::Shutdown();
    }

    void RunShow(unsigned int seconds, bool paced) {
        std::atomic<bool> ended{false};
        std::vector<std::thread> threads;
        for (auto& source : fSources) {
            for (unsigned int index = 0; index < kPlayersPerSource; ++index) {
                threads.emplace_back([&source, &ended, index, paced] {
                    Player player(*source, index + 1);
                    while (!ended.load()) {
                        player.Step();
                        source->CheckListed();
                        if (paced) zThread::MicroSleep(kPaceUs / 4);
                    }
                });
            }
        }
        for (unsigned int id = 1; id <= seconds; ++id) RecordSecond(id, seconds, paced);
        ended = true;
        for (std::thread& thread : threads) thread.join();
    }

    void RecordSecond(unsigned int id, unsigned int seconds, bool paced) {
        for (auto& source : fSources) {
            source->RecordSegment(id);
            if (id % kPurgeEvery == 0) source->Purge(id * kSegmentMs);
        }
        if (id == seconds / 4) fResidentEarly = resident_bytes();
        if (paced) zThread::MicroSleep(kPaceUs);
        // The limit, what came since the last purge, and what players may hold; the checks of the
        // listed hold everything for a moment, which one more purge's worth allows for.
        const std::size_t most =
            kKeepMs / kSegmentMs + 2 * kPurgeEvery + kPlayersPerSource * kMostHeld;
        for (auto& source : fSources) fMostMovies = std::max(fMostMovies, source->CountMovies());
        if (id % (10 * kPurgeEvery) != 0) return;
        for (auto& source : fSources) {
            EXPECT_TRUE(WaitUntil([&] {
                source->Purge(id * kSegmentMs);
                return source->CountMovies() <= most;
            })) << source->CountMovies();
        }
    }

    tests::TestFolder fFolder;
    std::vector<std::unique_ptr<Source>> fSources;
    std::size_t fMostMovies = 0;
    long long fResidentEarly = 0;
};

TEST_F(ReplaySimulation, NothingListedIsMissingAndNothingHeldIsDeleted) {
    for (int index = 0; index < kSources; ++index) {
        fSources.push_back(std::make_unique<Source>(fFolder.File("cam" + std::to_string(index))));
    }
    const unsigned int soak = soak_seconds();
    RunShow(soak != 0 ? soak : kShortSeconds, soak != 0);
    const unsigned int last = soak != 0 ? soak : kShortSeconds;
    for (auto& source : fSources) {
        EXPECT_EQ(source->fMissing.load(), 0);
        EXPECT_GT(source->fPlayed.load(), 0);
        source->Purge(last * kSegmentMs);
        // Nobody holds anything any more: exactly the limit stays, in the list, the file and the
        // folder.
        const Ids listed = tnReplayManifestAccess::ListedIDs(*source->fManifest);
        EXPECT_EQ(listed.size(), static_cast<std::size_t>(kKeepMs / kSegmentMs));
        EXPECT_TRUE(WaitUntil([&] { return source->CountMovies() == listed.size(); }));
        tnReplayManifest reader((source->fFolder + "/replay.xml").c_str());
        EXPECT_EQ(reader.Read(), 0);
        EXPECT_EQ(tnReplayManifestAccess::ListedIDs(reader), listed);
    }
    RecordProperty("most_movies_of_a_source", static_cast<int>(fMostMovies));
    // Only the long form has the time to tell growth from warming up.
    constexpr long long kFlatBytes = 8 << 20;
    EXPECT_TRUE(soak < 600 || resident_bytes() - fResidentEarly < kFlatBytes);
}

}  // namespace
