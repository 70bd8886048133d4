#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "spar/zTime.h"

#include "tests/movies/LibavReader.h"
#include "tests/movies/MovieCheck.h"
#include "tests/movies/MovieFolder.h"
#include "tests/movies/Readers.h"
#include "tests/movies/Recorder.h"
#include "tests/support/SweepStride.h"
#include "tests/support/WaitUntil.h"

using namespace Quillon::Orb;
using namespace std::chrono_literals;

namespace {

Kept look_at(const std::string& path, const MediaClip& clip) {
    return CompareWithClip(ParseBoxFile(path), BytesOf(path), clip);
}

/// Every picture that the file holds decodes, and to a picture of the whole.
void expect_first_pictures(const std::string& path, const MediaClip& clip, const Kept& kept) {
    if (kept.samples[0] == 0) return;
    const std::vector<std::string> whole = DecodedFrames(clip.path, "v:0");
    const std::vector<std::string> frames = DecodedFrames(path, "v:0");
    ASSERT_EQ(static_cast<long long>(frames.size()), kept.samples[0]);
    // Of the pictures that were decoded ahead some stand behind a gap in time.
    for (const std::string& frame : frames)
        ASSERT_NE(std::find(whole.begin(), whole.end(), frame), whole.end()) << frame;
}

class Kills : public testing::TestWithParam<const char*> {};

/// A recorder that ends itself at its first call to the file, at its second, and so on to the last.
/// Before the file shows under its name there is none; from then on it opens, and what a checkpoint
/// has shown is there.
TEST_P(Kills, EveryCallLeavesAMovieThatOpens) {
    const std::string container = GetParam();
    const MediaClip& clip = H264AacClip();
    const std::string movie = MovieFolder() + "/killed." + container;
    WriteOptions options;
    options.container = container == "mp4" ? 'mp4 ' : 'mov ';
    options.expectedSeconds = 2;
    options.checkpointEvery = 10;
    RecorderProgress progress;
    bool killed = true;
    int opened = 0;
    long long most = 0;
    for (int call = 1; killed; call += tests::SweepStride()) {
        std::filesystem::remove(movie);
        killed = WaitForRecorder(StartDoomedRecorder(movie, clip, options, call, progress));
        if (!std::filesystem::exists(movie)) continue;
        SCOPED_TRACE("killed at call " + std::to_string(call));
        const Kept kept = look_at(movie, clip);
        ASSERT_EQ(kept.complaints, "");
        ASSERT_GE(kept.samples[0] + kept.samples[1], progress->promised);
        ASSERT_GE(kept.samples[0], most);  // later is never less
        most = kept.samples[0];
        // A checkpoint is ten samples here, of a fiftieth of a second.
        ASSERT_NEAR(kept.seconds[0], kept.seconds[1], 0.25);
        ASSERT_EQ(LibavRead(movie, true, most == 0).complaints, "");
        opened++;
        // The programs take longer: every so often.
        if (call % 29 != 0 && killed) continue;
        ASSERT_EQ(Ffprobe(movie, most == 0).complaints, "");
        ASSERT_EQ(Mediainfo(movie).complaints, "");
        if (most == 0) continue;  // it says of pictures that are not there that they are missing
        ASSERT_EQ(GstDiscoverer(movie).complaints, "");
        ASSERT_NO_FATAL_FAILURE(expect_first_pictures(movie, clip, kept));
    }
    EXPECT_GT(opened, 100 / tests::SweepStride());
    EXPECT_EQ(most, 50);
}

INSTANTIATE_TEST_SUITE_P(Containers, Kills, testing::Values("mov", "mp4"),
                         [](const auto& each) { return std::string(each.param); });

/// How long before its end a recorder wrote the first sample that the file does not hold; 0 when
/// all is there.
double seconds_lost(const MediaClip& clip, const Kept& kept, const RecorderProgress& progress,
                    long long end) {
    std::vector<long long> counts(clip.tracks.size());
    for (int i = 0; i < progress->written; i++) {
        const MediaClip::Sample& sample = clip.samples[static_cast<std::size_t>(i)];
        const auto track = static_cast<std::size_t>(sample.track);
        counts[track] += sample.described.packets;
        if (counts[track] > kept.samples[track])
            return static_cast<double>(end - progress->writtenAt[i]) / 1e6;
    }
    return 0;
}

/// Leaves its status to be waited for.
bool has_ended(pid_t process) {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid == process;
}

/// Killed from outside at a random moment, with the file's own thread at work. Waits on real time:
/// what is lost is what was written in the second before, at most; two more are for a machine that
/// does not come to it.
TEST(Kill, AtRandomMomentsLeavesAMovieThatOpens) {
    const char* soak = std::getenv("TARN_SOAK_ROUNDS");
    const int rounds = soak ? std::atoi(soak) : 12;
    std::mt19937 random(std::random_device{}());
    RecorderProgress progress;
    double most = 0;
    int cut = 0;
    for (int i = 0; i < rounds; i++) {
        const MediaClip& clip = i % 3 == 2 ? ProResPcmClip() : H264AacClip();
        const std::string movie = MovieFolder() + (i % 2 == 0 ? "/random.mov" : "/random.mp4");
        WriteOptions options;
        options.container = i % 2 == 0 ? 'mov ' : 'mp4 ';
        std::filesystem::remove(movie);
        // The long form records at about the pace of the clip.
        const int pace = soak ? 2000 + static_cast<int>(random() % 20000) : 2000;
        const int moment = static_cast<int>(random() % (static_cast<unsigned>(pace) * 160));
        const pid_t child = StartPacedRecorder(movie, clip, options, pace, progress);
        // Not before the file is there.
        const bool isOver = tests::WaitUntil(
            [&] { return std::filesystem::exists(movie) || has_ended(child); }, 1ms);
        if (!std::filesystem::exists(movie)) {
            kill(child, SIGKILL);
            FAIL() << (isOver ? "the recorder ended without it" : "the recorder hangs");
        }
        usleep(static_cast<useconds_t>(moment));
        const long long end = zTime::MicroNow();
        kill(child, SIGKILL);
        cut += WaitForRecorder(child);
        SCOPED_TRACE("round " + std::to_string(i) + ", pace " + std::to_string(pace) + ", after " +
                     std::to_string(moment));
        const Kept kept = look_at(movie, clip);
        ASSERT_EQ(kept.complaints, "");
        ASSERT_EQ(Ffprobe(movie, kept.samples[0] == 0 || kept.samples[1] == 0).complaints, "");
        ASSERT_NO_FATAL_FAILURE(expect_first_pictures(movie, clip, kept));
        const double lost = seconds_lost(clip, kept, progress, end);
        ASSERT_LE(lost, 1 + 2.0);
        most = std::max(most, lost);
        ASSERT_NEAR(kept.seconds[0], kept.seconds[1], 1.1);
        if (i % 10 != 9 || kept.samples[0] == 0) continue;
        ASSERT_EQ(Mediainfo(movie).complaints, "");
        ASSERT_EQ(GstDiscoverer(movie).complaints, "");
    }
    EXPECT_GT(cut, rounds / 3);
    RecordProperty("rounds", rounds);
    std::cout << rounds << " recorders, " << cut << " killed before their end; at most "
              << std::lround(most * 1000) << " ms lost\n";
}

/// A limit on the file's size stands for a disk that is full; the recorder lives on, tells what is
/// kept, and a file beside goes on.
TEST(FullDisk, LimitOnTheFileLeavesAMovieThatOpens) {
    const MediaClip& clip = ProResPcmClip();
    const std::string movie = MovieFolder() + "/limited.mov";
    const std::string beside = MovieFolder() + "/beside.mov";
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {700000, 700000};
        setrlimit(RLIMIT_FSIZE, &limit);
        const Result other = WriteClipTo(beside, H264AacClip(), {.expectedSeconds = 1});
        const Result result = WriteClipTo(movie, clip, {.expectedSeconds = 1});
        const std::string text = result.GetMessage();
        (void)!write(ends[1], text.c_str(), text.size());
        _exit(other.Succeeded() && result.Failed() ? 0 : 1);
    }
    close(ends[1]);
    char text[512] = {};
    (void)!read(ends[0], text, sizeof text - 1);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    const Kept kept = look_at(movie, clip);
    EXPECT_EQ(kept.complaints, "");
    EXPECT_GT(kept.samples[0], 2);
    EXPECT_EQ(Ffprobe(movie).complaints, "");
    EXPECT_EQ(Mediainfo(movie).complaints, "");
    EXPECT_EQ(GstDiscoverer(movie).complaints, "");
    EXPECT_NO_FATAL_FAILURE(expect_first_pictures(movie, clip, kept));
    EXPECT_LE(std::filesystem::file_size(movie), 700000U);
    char seconds[32];
    snprintf(seconds, sizeof seconds, "%.1f", std::max(kept.seconds[0], kept.seconds[1]));
    EXPECT_EQ(std::string(text),
              "'" + movie + "': File too large; recording stopped, " + seconds + " seconds kept");
    EXPECT_EQ(look_at(beside, H264AacClip()).samples[0], 50);
}

}  // namespace
