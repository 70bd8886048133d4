// What happens to a file when an allocation fails: on the thread that writes samples, or on the
// one that makes checkpoints.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <pthread.h>

#include "WholeMovieFile.h"
#include "tests/support/Probe.h"
#include "tests/support/TestFolder.h"
#include "tests/support/WaitUntil.h"

namespace {

/// Allocations until one fails, once; -1: none does.
thread_local int gLeftHere = -1;
std::atomic<int> gLeftOnIndexThread{-1};

bool is_index_thread() {
    static thread_local int known = -1;
    if (known < 0) {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        known = std::strcmp(name, "movie index") == 0 ? 1 : 0;
    }
    return known == 1;
}

bool must_fail() {
    if (gLeftHere >= 0 && gLeftHere-- == 0) return true;
    return gLeftOnIndexThread >= 0 && is_index_thread() && gLeftOnIndexThread-- == 0;
}

}  // namespace

void* operator new(std::size_t size) {
    void* memory = must_fail() ? nullptr : std::malloc(size > 0 ? size : 1);
    if (!memory) throw std::bad_alloc();
    return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return must_fail() ? nullptr : std::malloc(size > 0 ? size : 1);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace Quillon::Orb {
namespace {

constexpr int kFramesPerSecond = 25;

/// Which allocation fails next: each of the first, then one of many that are alike.
int next(int left) {
    return left + (left < 8 ? 1 : 11);
}

class LostMemoryTest : public testing::Test {
protected:
    void AddTracks(MovieFile& file) {
        MovieTrack picture;
        picture.format = 'apch';
        picture.timescale = kFramesPerSecond;
        picture.frameDuration = 1;
        picture.width = picture.height = 64;
        file.AddTrack(picture);
        MovieTrack sound;
        sound.kind = MovieTrack::Kind::Audio;
        sound.format = 'sowt';
        sound.timescale = sound.sampleRate = 48000;
        sound.channels = 1;
        sound.bytesPerPacket = 2;
        file.AddTrack(sound);
    }
    /// A file of both tracks whose checkpoints are made by hand.
    std::unique_ptr<WholeMovieFile> Begin() {
        auto file = std::make_unique<WholeMovieFile>(fPath.c_str(), fOptions, MakePosixFile(),
                                                     WholeMovieFile::Checkpoints::ByHand);
        AddTracks(*file);
        EXPECT_EQ(file->Begin(), 0);
        return file;
    }
    /// A frame of picture and sound; every tenth picture is one that is not copied.
    Result WriteFrame(MovieFile& file, int number) {
        MovieSample sample;
        sample.data = fBytes.data();
        sample.size = number % 10 == 9 ? fBytes.size() : 1000;
        sample.decodeTime = number;
        sample.duration = 1;
        Result result = file.WriteSample(0, sample);
        if (result.Failed()) return result;
        sample.size = 2 * 48000 / kFramesPerSecond;
        sample.packets = 48000 / kFramesPerSecond;
        return file.WriteSample(1, sample);
    }
    void CheckpointAsOnThread(WholeMovieFile& file) {
        try {
            file.Checkpoint();
        } catch (...) {
            static_cast<CheckpointThread::Client&>(file).OnException();
            throw;
        }
    }
    /// The file is closed without success, says what it keeps, and keeps it.
    void ExpectWhole(const Result& finished) {
        const std::string reason = finished.GetMessage();
        const std::string before = "': Cannot allocate memory; recording stopped, ";
        const std::size_t at = reason.find(before);
        ASSERT_NE(at, std::string::npos) << reason;
        const double kept = std::stod(reason.substr(at + before.size()));
        EXPECT_EQ(tests::ProbePackets(fPath, "v:0").size(),
                  static_cast<std::size_t>(kept * kFramesPerSecond + 0.5));
        EXPECT_NEAR(tests::ProbeSeconds(fPath, "a:0"), kept, 0.05);
    }

    tests::TestFolder fFolder;
    const std::string fPath = fFolder.File("a.mov");
    const std::vector<unsigned char> fBytes = std::vector<unsigned char>(100000, 1);
    const MovieFileOptions fOptions = {.containerType = 'mov '};
};

TEST_F(LostMemoryTest, WhereverASampleHasNoneTheLastCheckpointStands) {
    bool failed = true;
    for (int left = 0; failed; left = next(left)) {
        SCOPED_TRACE(left);
        const std::unique_ptr<WholeMovieFile> begun = Begin();
        WholeMovieFile& file = *begun;
        failed = false;
        std::size_t written = 0;
        gLeftHere = left;
        try {
            for (int i = 0; i < 40; ++i, ++written) {
                ASSERT_EQ(WriteFrame(file, i), 0);
                if (i % 20 == 14) CheckpointAsOnThread(file);
            }
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        gLeftHere = -1;
        if (failed) file.Checkpoint();  // as the file's own thread would
        const Result finished = file.Finish();
        if (finished.Failed())
            ExpectWhole(finished);
        else
            EXPECT_GE(tests::ProbePackets(fPath, "v:0").size(), written);
        EXPECT_EQ(WriteFrame(file, 60), ResultError::kCode);
    }
}

TEST_F(LostMemoryTest, AfterASampleThatHadNoneEveryCallSaysWhatIsKept) {
    const std::unique_ptr<WholeMovieFile> begun = Begin();
    WholeMovieFile& file = *begun;
    for (int i = 0; i < 20; ++i) ASSERT_EQ(WriteFrame(file, i), 0);
    ASSERT_EQ(file.Checkpoint(), 0);
    gLeftHere = 0;
    EXPECT_THROW(for (int i = 20; i < 10000; ++i) WriteFrame(file, i), std::bad_alloc);
    const Result next = WriteFrame(file, 1);
    EXPECT_NE(std::string(next.GetMessage()).find("0.8 seconds kept"), std::string::npos);
    const Result finished = file.Finish();
    EXPECT_STREQ(finished.GetMessage(), next.GetMessage());
    ExpectWhole(finished);
}

TEST_F(LostMemoryTest, WhereverTheEndHasNoneTheLastCheckpointStands) {
    bool failed = true;
    for (int left = 0; failed; left = next(left)) {
        SCOPED_TRACE(left);
        const std::unique_ptr<WholeMovieFile> begun = Begin();
        WholeMovieFile& file = *begun;
        for (int i = 0; i < 15; ++i) ASSERT_EQ(WriteFrame(file, i), 0);
        ASSERT_EQ(file.Checkpoint(), 0);
        for (int i = 15; i < 30; ++i) ASSERT_EQ(WriteFrame(file, i), 0);
        gLeftHere = left;
        const Result finished = file.Finish();
        failed = gLeftHere < 0;
        gLeftHere = -1;
        if (failed) ExpectWhole(finished);
    }
}

/// Counts how often the disk was waited for.
class CountingFile final : public FileLayer {
public:
    explicit CountingFile(std::atomic<int>& syncs) : fSyncs(syncs) {}
    int Create(const char* path) override { return fFile->Create(path); }
    int WriteAt(long long offset, const FileSpan* spans, int count) override {
        return fFile->WriteAt(offset, spans, count);
    }
    int Publish() override { return fFile->Publish(); }
    int Sync() override {
        const int error = fFile->Sync();
        ++fSyncs;
        return error;
    }
    int Truncate(long long size) override { return fFile->Truncate(size); }
    int Reserve(long long offset, long long size) override { return fFile->Reserve(offset, size); }
    int Release(long long offset, long long size) override { return fFile->Release(offset, size); }
    int Close() override { return fFile->Close(); }

private:
    std::atomic<int>& fSyncs;
    const std::unique_ptr<FileLayer> fFile = MakePosixFile();
};

TEST_F(LostMemoryTest, WhereverACheckpointHasNoneTheFileStopsAlone) {
    bool failed = true;
    for (int left = 0; failed; left = next(left)) {
        SCOPED_TRACE(left);
        std::atomic<int> syncs{0};
        WholeMovieFile file(fPath.c_str(), fOptions, std::make_unique<CountingFile>(syncs),
                            WholeMovieFile::Checkpoints::OnThread);
        AddTracks(file);
        gLeftOnIndexThread = left;
        ASSERT_EQ(file.Begin(), 0);
        // One for the head, two for the first checkpoint.
        ASSERT_TRUE(tests::WaitUntil([&] { return syncs >= 3 || gLeftOnIndexThread < 0; },
                                     std::chrono::microseconds(100)));
        // A later checkpoint, of the frame below, lacks nothing any more.
        failed = gLeftOnIndexThread.exchange(-1) < 0;
        int frames = 0;
        const auto has_stopped = [&] { return WriteFrame(file, frames++).Failed(); };
        if (failed)
            EXPECT_TRUE(tests::WaitUntil(has_stopped, std::chrono::microseconds(100)));
        else
            EXPECT_FALSE(has_stopped());
        const Result finished = file.Finish();
        EXPECT_EQ(finished.Failed(), failed);
        if (failed) ExpectWhole(finished);
    }
}

}  // namespace
}  // namespace Quillon::Orb
