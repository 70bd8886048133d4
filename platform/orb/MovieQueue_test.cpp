#include "orb/MovieQueue.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include "orb/testComponents.h"

#include "tests/support/TestFolder.h"
#include "tests/support/ThreadState.h"
#include "tests/support/WaitUntil.h"

namespace Quillon::Orb {
namespace {

MovieTrack track_of(long long timescale) {
    MovieTrack track;
    track.timescale = timescale;
    return track;
}

MovieQueue::Sample sample_at(long long time, long long duration, unsigned char mark = 0) {
    MovieQueue::Sample sample;
    RObject<CByteArray> bytes = bytes_of({mark, mark, mark});
    sample.data = new CMemoryDataReference(bytes.Get());
    sample.description.decodeTime = time;
    sample.description.duration = duration;
    return sample;
}

class MovieQueueTest : public testing::Test {
protected:
    Result Begin(MovieQueue& queue, int size = 64) {
        return queue.Begin(std::make_unique<FakeMovieFile>(disk), {track_of(100), track_of(1000)},
                           size);
    }
    /// Track and decode time of each sample, in the order in which they were written.
    std::vector<std::pair<int, long long>> Order() {
        std::vector<std::pair<int, long long>> order;
        for (const FakeDisk::Written& w : disk.written) {
            order.emplace_back(w.track, w.sample.decodeTime);
        }
        return order;
    }
    FakeDisk disk;
};

// Track 0 counts hundredths, track 1 thousandths of a second:
//
//   track 0    0 ----- 10 ---- 20 ---- 30          (0, 0.1, 0.2, 0.3 s)
//   track 1    0 -- 60 -- 120 -- 180 -- 240        (0, 0.06, ... 0.24 s)
TEST_F(MovieQueueTest, WritesInTheOrderOfTime) {
    MovieQueue queue("'test'");
    ASSERT_EQ(0, Begin(queue));
    for (const long long time : {0, 10, 20, 30}) {
        EXPECT_EQ(0, queue.Push(0, sample_at(time, 10)));
    }
    for (const long long time : {0, 60, 120, 180, 240}) {
        EXPECT_EQ(0, queue.Push(1, sample_at(time, 60)));
    }
    queue.EndTrack(0);
    queue.EndTrack(1);
    EXPECT_EQ(0, queue.Finish());
    const std::vector<std::pair<int, long long>> expected = {
        {0, 0}, {1, 0}, {1, 60}, {0, 10}, {1, 120}, {1, 180}, {0, 20}, {1, 240}, {0, 30}};
    EXPECT_EQ(expected, Order());
    EXPECT_EQ(1, disk.finished);
    EXPECT_EQ(0, disk.living);
    EXPECT_EQ(12, queue.GetBytesWritten(0));
    EXPECT_EQ(15, queue.GetBytesWritten(1));
}

TEST_F(MovieQueueTest, SilentTrackDelaysTheOthersOnceAndStallsNobody) {
    MovieQueue queue("'test'");
    ASSERT_EQ(0, Begin(queue, 4));
    // The fifth push waits for room until the patience with track 1, half a second, is over. The
    // rest go without waiting: ten seconds would pass otherwise.
    for (int i = 0; i < 80; ++i) EXPECT_EQ(0, queue.Push(0, sample_at(i, 1)));
    EXPECT_EQ(0, queue.Finish());
    EXPECT_EQ(80, disk.CountWritten());
}

// Track 1 comes second; a full queue of track 0 waits for it all the same, well within the
// patience, which is half a second. A round that the machine held up for longer has another try:
// it shows nothing, as track 1 was late then.
TEST_F(MovieQueueTest, FullQueueWaitsForTheTrackThatIsBehind) {
    bool isInTime = false;
    bool hadRoom = true;
    for (int round = 0; round < 10 && !isInTime; ++round) {
        disk.written.clear();
        MovieQueue queue("'test'");
        ASSERT_EQ(0, Begin(queue, 4));
        const auto begun = std::chrono::steady_clock::now();
        for (int i = 0; i < 4; ++i) ASSERT_EQ(0, queue.Push(0, sample_at(10 * i, 10)));
        hadRoom = queue.HasRoom(0);
        for (int i = 0; i < 4; ++i) ASSERT_EQ(0, queue.Push(1, sample_at(100 * i - 50, 100)));
        isInTime = std::chrono::steady_clock::now() - begun < std::chrono::milliseconds(400);
        EXPECT_EQ(0, queue.Finish());
    }
    ASSERT_TRUE(isInTime);
    EXPECT_FALSE(hadRoom);
    const std::vector<std::pair<int, long long>> expected = {{1, -50}, {0, 0},  {1, 50},  {0, 10},
                                                             {1, 150}, {0, 20}, {1, 250}, {0, 30}};
    EXPECT_EQ(expected, Order());
}

TEST_F(MovieQueueTest, SampleGoesAtOnceWhenNoEarlierOneCanCome) {
    MovieQueue queue("'test'");
    ASSERT_EQ(0, Begin(queue));
    // Track 1 has told everything up to 0.5 s and then stays silent without having ended.
    ASSERT_EQ(0, queue.Push(1, sample_at(0, 500)));
    for (int i = 0; i <= 50; ++i) ASSERT_EQ(0, queue.Push(0, sample_at(i, 1)));
    disk.gate.WaitForArrivals(52);
    EXPECT_EQ(0, queue.Finish());
}

/// Tells which thread writes.
class WatchedFile : public FakeMovieFile {
public:
    WatchedFile(FakeDisk& disk, std::atomic<int>& thread) : FakeMovieFile(disk), fThread(thread) {}
    Result WriteSample(int track, const MovieSample& sample) override {
        fThread = gettid();
        return FakeMovieFile::WriteSample(track, sample);
    }

private:
    std::atomic<int>& fThread;
};

// The pictures' clock begins anew at 0 while sound runs on from 10 s: no wait brings them together.
TEST_F(MovieQueueTest, NobodyWaitsForATrackThatIsFarBehindWhatIsWritten) {
    std::atomic<int> thread{0};
    MovieQueue queue("'test'");
    ASSERT_EQ(0, queue.Begin(std::make_unique<WatchedFile>(disk, thread),
                             {track_of(100), track_of(1000)}, 64));
    const auto write = [&](int track, const MovieQueue::Sample& sample) {
        const int before = disk.CountWritten();
        ASSERT_EQ(0, queue.Push(track, sample));
        // Asleep for a while means that it waits for another track.
        int quiet = 0;
        ASSERT_TRUE(tests::WaitUntil(
            [&] {
                quiet = thread != 0 && tests::IsThreadAsleep(thread) ? quiet + 1 : 0;
                return disk.CountWritten() > before || quiet > 10;
            },
            std::chrono::milliseconds(1)));
        EXPECT_EQ(before + 1, disk.CountWritten());
    };
    ASSERT_EQ(0, queue.Push(0, sample_at(1000, 2)));
    ASSERT_EQ(0, queue.Push(1, sample_at(10000, 20)));
    ASSERT_TRUE(
        tests::WaitUntil([&] { return disk.CountWritten() == 2; }, std::chrono::milliseconds(1)));
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        write(0, sample_at(2 * i, 2));
        write(1, sample_at(10020 + 20 * i, 20));
    }
    EXPECT_EQ(0, queue.Finish());
}

TEST_F(MovieQueueTest, FullQueueBlocksAndDropsNothing) {
    disk.gate.Close();
    MovieQueue queue("'test'");
    ASSERT_EQ(0, Begin(queue, 3));
    queue.EndTrack(1);
    // One is in the file's hands, three wait.
    ASSERT_EQ(0, queue.Push(0, sample_at(0, 1)));
    disk.gate.WaitForArrivals(1);
    for (int i = 1; i <= 3; ++i) {
        EXPECT_TRUE(queue.HasRoom(0));
        ASSERT_EQ(0, queue.Push(0, sample_at(i, 1)));
    }
    EXPECT_FALSE(queue.HasRoom(0));
    std::atomic<bool> pushed{false};
    std::thread writer([&] {
        EXPECT_EQ(0, queue.Push(0, sample_at(4, 1)));
        pushed = true;
    });
    EXPECT_FALSE(pushed);
    disk.gate.Open();
    writer.join();
    EXPECT_EQ(0, queue.Finish());
    EXPECT_EQ(5, disk.CountWritten());
}

TEST_F(MovieQueueTest, FailureReachesEveryTrackWithItsReasonAndFreesWhoWaits) {
    TraceCatcher trace;
    disk.failAt = 1;
    disk.gate.Close();
    MovieQueue queue("'cam1.mov'");
    ASSERT_EQ(0, Begin(queue, 2));
    for (int i = 0; i < 2; ++i) ASSERT_EQ(0, queue.Push(0, sample_at(i, 1)));
    ASSERT_EQ(0, queue.Push(1, sample_at(0, 1)));
    std::thread writer([&] {
        // Some go before the second write fails, then none.
        Result result = 0;
        for (int i = 2; result.Succeeded(); ++i) result = queue.Push(0, sample_at(i, 1));
        EXPECT_STREQ("no space left on device", result.GetMessage());
    });
    disk.gate.Open();
    writer.join();
    EXPECT_STREQ("no space left on device", queue.Push(1, sample_at(5, 1)).GetMessage());
    EXPECT_TRUE(queue.HasRoom(0));
    EXPECT_TRUE(queue.GetFailure().Failed());
    EXPECT_STREQ("no space left on device", queue.Finish().GetMessage());
    EXPECT_EQ(1, disk.finished);
    EXPECT_EQ(1, disk.CountWritten());
    EXPECT_EQ(1, trace.Count());
    EXPECT_TRUE(trace.HasLineWith({"'cam1.mov'", "no space left on device; writing stopped"}));
}

TEST_F(MovieQueueTest, BeginFailsAsTheFileDoesAndMayBeTriedAgain) {
    TraceCatcher trace;
    MovieQueue queue("'test'");
    disk.failBegin = true;
    EXPECT_STREQ("no such disk", Begin(queue).GetMessage());
    EXPECT_EQ(0, disk.living);
    disk.failBegin = false;
    disk.refuseTracks = true;
    EXPECT_EQ(ResultNotSupported::kCode, Begin(queue));
    EXPECT_TRUE(queue.Push(0, sample_at(0, 1)).Failed());
    disk.refuseTracks = false;
    EXPECT_EQ(0, Begin(queue));
    EXPECT_TRUE(Begin(queue).Failed());
    EXPECT_EQ(0, queue.Push(0, sample_at(0, 1)));
    EXPECT_EQ(0, queue.Finish());
    EXPECT_EQ(1, disk.CountWritten());
    EXPECT_EQ(2, trace.Count());
}

TEST_F(MovieQueueTest, FailureOfTheEndIsToldByFinish) {
    TraceCatcher trace;
    MovieQueue queue("'test'");
    ASSERT_EQ(0, Begin(queue));
    disk.failFinish = true;
    EXPECT_STREQ("the disk went away", queue.Finish().GetMessage());
    EXPECT_EQ(1, trace.Count());
}

/// A host's log that puts beside each line how far the recording has come.
class AskingTrace : public TraceCatcher {
public:
    explicit AskingTrace(MovieQueue& queue) : fQueue(queue) {}
    void TraceMessage(int kind, const std::string& text) override {
        EXPECT_TRUE(fQueue.HasRoom(0));
        EXPECT_TRUE(fQueue.GetFailure().Failed());
        EXPECT_TRUE(fQueue.Push(0, sample_at(9, 1)).Failed());
        fBytesWritten = fQueue.GetBytesWritten(0);
        TraceCatcher::TraceMessage(kind, text);
    }
    std::atomic<long long> fBytesWritten{-1};

private:
    MovieQueue& fQueue;
};

TEST_F(MovieQueueTest, WhoIsToldOfAFailedWriteMayAskTheQueue) {
    disk.failAt = 2;
    MovieQueue queue("'test'");
    AskingTrace trace(queue);
    ASSERT_EQ(0, Begin(queue));
    queue.EndTrack(1);
    for (int i = 0; i < 3; ++i) queue.Push(0, sample_at(i, 1));
    EXPECT_STREQ("no space left on device", queue.Finish().GetMessage());
    EXPECT_EQ(1, trace.Count());
    EXPECT_EQ(6, trace.fBytesWritten);
}

TEST_F(MovieQueueTest, WhoIsToldOfAFileThatDoesNotBeginMayAskTheQueue) {
    disk.failBegin = true;
    MovieQueue queue("'test'");
    AskingTrace trace(queue);
    EXPECT_STREQ("no such disk", Begin(queue).GetMessage());
    EXPECT_EQ(1, trace.Count());
}

TEST_F(MovieQueueTest, WhoIsToldOfAFileThatDoesNotEndMayAskTheQueue) {
    disk.failFinish = true;
    MovieQueue queue("'test'");
    AskingTrace trace(queue);
    ASSERT_EQ(0, Begin(queue));
    ASSERT_EQ(0, queue.Push(0, sample_at(0, 1)));
    EXPECT_STREQ("the disk went away", queue.Finish().GetMessage());
    EXPECT_EQ(1, trace.Count());
    EXPECT_EQ(3, trace.fBytesWritten);
}

/// A file for which there is no memory in one place. What it says of its end it says of a failure.
class HungryFile : public FakeMovieFile {
public:
    enum class Place { Begin, Sample, FirstEnd, Everything };

    HungryFile(FakeDisk& disk, Place place) : FakeMovieFile(disk), fPlace(place) {}
    Result Begin() override {
        if (fPlace == Place::Begin) throw std::bad_alloc();
        return FakeMovieFile::Begin();
    }
    Result WriteSample(int track, const MovieSample& sample) override {
        if (fPlace == Place::Sample || fPlace == Place::Everything) {
            fFailed = true;
            throw std::bad_alloc();
        }
        return FakeMovieFile::WriteSample(track, sample);
    }
    Result Finish() override {
        if (fPlace == Place::Everything) throw std::length_error("too long");
        if (fPlace == Place::FirstEnd && !fFailed) {
            fFailed = true;
            throw std::bad_alloc();
        }
        FakeMovieFile::Finish();
        return fFailed ? Result(ResultError("'cam1.mov': no memory; 7 seconds kept")) : Result(0);
    }

private:
    const Place fPlace;
    bool fFailed = false;
};

TEST_F(MovieQueueTest, AFileWithoutMemoryStopsAloneAndSaysWhatItKeeps) {
    struct Case {
        HungryFile::Place place;
        const char* line;
        int finished;
    };
    const Case kCases[] = {
        {HungryFile::Place::Sample, "'cam1.mov': no memory; 7 seconds kept\n", 1},
        {HungryFile::Place::FirstEnd, "'cam1.mov': no memory; 7 seconds kept\n", 1},
        {HungryFile::Place::Everything, "'cam1.mov': out of memory; writing stopped\n", 0},
    };
    for (const Case& one : kCases) {
        SCOPED_TRACE(one.line);
        TraceCatcher trace;
        FakeDisk other;
        MovieQueue beside("'cam2.mov'");
        ASSERT_EQ(0, beside.Begin(std::make_unique<FakeMovieFile>(other), {track_of(100)}, 4));
        disk.finished = 0;
        MovieQueue queue("'cam1.mov'");
        ASSERT_EQ(0, queue.Begin(std::make_unique<HungryFile>(disk, one.place),
                                 {track_of(100), track_of(1000)}, 2));
        queue.EndTrack(1);
        // More than the queue holds: who waits for room is told.
        for (int i = 0; i < 5; ++i) queue.Push(0, sample_at(i, 1));
        EXPECT_TRUE(queue.Finish().Failed());
        EXPECT_EQ(trace.Lines(), std::vector<std::string>{one.line});
        EXPECT_EQ(one.finished, disk.finished);
        EXPECT_EQ(0, disk.living);
        for (int i = 0; i < 20; ++i) EXPECT_EQ(0, beside.Push(0, sample_at(i, 1)));
        EXPECT_EQ(0, beside.Finish());
        EXPECT_EQ(20, other.CountWritten());
    }
}

TEST_F(MovieQueueTest, AFileThatHasNoMemoryToBeginMayBeTriedAgain) {
    TraceCatcher trace;
    MovieQueue queue("'test'");
    EXPECT_EQ(ResultOutOfMemory::kCode,
              queue.Begin(std::make_unique<HungryFile>(disk, HungryFile::Place::Begin),
                          {track_of(100)}, 4));
    EXPECT_EQ(trace.Lines(), std::vector<std::string>{"'test': out of memory; writing stopped\n"});
    EXPECT_EQ(0, disk.living);
    EXPECT_EQ(0, Begin(queue));
    EXPECT_EQ(0, queue.Push(0, sample_at(0, 1)));
    EXPECT_EQ(0, queue.Finish());
    EXPECT_EQ(1, disk.CountWritten());
}

// Runs in a process of its own, where the signal of a file that grew too large would be the end.
int record_beyond_the_largest_file() {
    const tests::TestFolder folder;
    const std::string path = folder.File("grown.mov");
    constexpr rlim_t kLargest = 8000000;
    const rlimit limit{kLargest, kLargest};
    if (std::signal(SIGXFSZ, SIG_DFL) == SIG_ERR || setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
    MovieTrack track;
    track.format = 'jpeg';
    track.timescale = 25;
    track.width = track.height = 16;
    MovieQueue queue("'" + path + "'");
    if (queue.Begin(MakeMovieFile(path.c_str(), {.containerType = 'mov '}), {track}, 4).Failed())
        return 3;
    const std::vector<unsigned char> picture(kLargest / 4);
    Result result = 0;
    for (int i = 0; i < 100 && result.Succeeded(); ++i) {
        MovieQueue::Sample sample = sample_at(i, 1);
        const RObject<CByteArray> bytes(
            new CByteArray(picture.data(), static_cast<int>(picture.size())));
        sample.data = new CMemoryDataReference(bytes.Get());
        result = queue.Push(0, std::move(sample));
    }
    return queue.Finish().Failed() ? 0 : 4;
}

TEST_F(MovieQueueTest, AFileThatMayNotGrowIsAFailedWriteAndNotTheEndOfTheHost) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::_Exit(record_beyond_the_largest_file()), testing::ExitedWithCode(0),
                "File too large");
}

TEST_F(MovieQueueTest, DestroyedWithoutFinishLeavesTheFileAsItIs) {
    {
        MovieQueue queue("'test'");
        ASSERT_EQ(0, Begin(queue));
        queue.EndTrack(1);
        ASSERT_EQ(0, queue.Push(0, sample_at(0, 1)));
        disk.gate.WaitForArrivals(1);
    }
    EXPECT_EQ(0, disk.finished);
    EXPECT_EQ(0, disk.living);
}

TEST_F(MovieQueueTest, PushesOutsideTheLifeOfATrackFail) {
    MovieQueue queue("'test'");
    EXPECT_TRUE(queue.Push(0, sample_at(0, 1)).Failed());
    EXPECT_TRUE(queue.Finish().Failed());
    EXPECT_TRUE(queue.HasRoom(0));
    ASSERT_EQ(0, Begin(queue));
    EXPECT_TRUE(queue.Push(-1, sample_at(0, 1)).Failed());
    EXPECT_TRUE(queue.Push(2, sample_at(0, 1)).Failed());
    queue.EndTrack(0);
    EXPECT_TRUE(queue.Push(0, sample_at(0, 1)).Failed());
    queue.EndTrack(7);
    EXPECT_EQ(0, queue.GetBytesWritten(7));
    EXPECT_EQ(0, queue.Finish());
    EXPECT_TRUE(queue.Push(1, sample_at(0, 1)).Failed());
    EXPECT_EQ(0, queue.Finish());
}

TEST_F(MovieQueueTest, SampleWithoutBytesIsAFailure) {
    TraceCatcher trace;
    MovieQueue queue("'test'");
    ASSERT_EQ(0, Begin(queue));
    MovieQueue::Sample empty;
    ASSERT_EQ(0, queue.Push(0, std::move(empty)));
    EXPECT_EQ(ResultNullPointer::kCode, queue.Finish());
}

TEST(ReadyBell, RingsForThoseWhoCountedBefore) {
    ReadyBell bell;
    const long long count = bell.GetCount();
    bell.Ring();
    bell.WaitBeyond(count, 60000000);
    EXPECT_EQ(count + 1, bell.GetCount());
    bell.WaitBeyond(count + 1, 0);
    bell.WaitBeyond(count + 1, 1000);
    std::thread ringer([&] { bell.Ring(); });
    bell.WaitBeyond(count + 1, 60000000);
    ringer.join();
    EXPECT_EQ(count + 2, bell.GetCount());
}

}  // namespace
}  // namespace Quillon::Orb
