#include "tests/movies/Recorder.h"

#include <csignal>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "spar/zTime.h"

using namespace Quillon::Orb;

namespace {

/// Passes on to a real file, and ends the process at the call that it was told: in the middle of it
/// for a write, else before it.
class DeadlyFile final : public FileLayer {
public:
    explicit DeadlyFile(int killAt) : fKillAt(killAt) {}

    int Create(const char* path) override { return due() ? 0 : fFile->Create(path); }
    int WriteAt(long long offset, const FileSpan* spans, int count) override {
        if (++fCalls == fKillAt) {
            write_half(offset, spans[0]);
            kill(getpid(), SIGKILL);
        }
        return fFile->WriteAt(offset, spans, count);
    }
    int Publish() override { return due() ? 0 : fFile->Publish(); }
    // What is killed leaves behind what it wrote, synced or not; the disk's part is not waited for.
    int Sync() override {
        due();
        return 0;
    }
    int Truncate(long long size) override { return due() ? 0 : fFile->Truncate(size); }
    int Reserve(long long offset, long long size) override {
        return due() ? 0 : fFile->Reserve(offset, size);
    }
    int Release(long long offset, long long size) override {
        return due() ? 0 : fFile->Release(offset, size);
    }
    int Close() override { return due() ? 0 : fFile->Close(); }

private:
    /// The system is interrupted between two pages, not within one.
    void write_half(long long offset, const FileSpan& span) {
        constexpr long long kPage = 4096;
        const long long half = offset + static_cast<long long>(span.size) / 2;
        const long long size = half / kPage * kPage - offset;
        if (size > 0) {
            const FileSpan part{span.data, static_cast<std::size_t>(size)};
            fFile->WriteAt(offset, &part, 1);
        }
    }

    bool due() {
        if (++fCalls == fKillAt) kill(getpid(), SIGKILL);
        return false;
    }

    const std::unique_ptr<FileLayer> fFile = MakePosixFile();
    const int fKillAt;
    int fCalls = 0;
};

int record_paced(const std::string& path, const MediaClip& clip, const WriteOptions& options,
                 int pace, RecorderProgress& progress) {
    const auto file = MakeMovieFile(path.c_str(), FileOptions(options));
    for (const MovieTrack& track : clip.tracks)
        if (file->AddTrack(track) < 0) return 1;
    if (file->Begin().Failed()) return 1;
    for (std::size_t i = 0; i < clip.samples.size(); i++) {
        if (file->WriteSample(clip.samples[i].track, clip.Described(i)).Failed()) return 1;
        progress->writtenAt[i] = zTime::MicroNow();
        progress->written = static_cast<int>(i) + 1;
        usleep(static_cast<useconds_t>(pace));
    }
    return file->Finish().Failed() ? 1 : 0;
}

void* shared_memory(std::size_t size) {
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("no shared memory");
    return memory;
}

}  // namespace

RecorderProgress::RecorderProgress() : fShared(new (shared_memory(sizeof(Shared))) Shared{}) {}

RecorderProgress::~RecorderProgress() {
    munmap(fShared, sizeof(Shared));
}

pid_t StartDoomedRecorder(const std::string& path, const MediaClip& clip,
                          const WriteOptions& options, int killAt, RecorderProgress& progress) {
    progress->promised = 0;
    const pid_t child = fork();
    if (child != 0) return child;
    WholeMovieFile file(path.c_str(), FileOptions(options), std::make_unique<DeadlyFile>(killAt),
                        WholeMovieFile::Checkpoints::ByHand);
    const auto note = [&] { progress->promised += options.checkpointEvery; };
    _exit(WriteClip(file, clip, options, note).Failed() ? 1 : 0);
}

pid_t StartPacedRecorder(const std::string& path, const MediaClip& clip,
                         const WriteOptions& options, int pace, RecorderProgress& progress) {
    progress->written = 0;
    const pid_t child = fork();
    if (child != 0) return child;
    _exit(record_paced(path, clip, options, pace, progress));
}

bool WaitForRecorder(pid_t recorder) {
    int status = 0;
    waitpid(recorder, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
    return WIFSIGNALED(status);
}
