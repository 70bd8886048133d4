#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/movies/MovieCheck.h"
#include "tests/movies/MovieFolder.h"
#include "tests/movies/Readers.h"
#include "tests/movies/Recorder.h"

using namespace Quillon::Orb;

namespace {

Kept look_at(const std::string& path, const MediaClip& clip) {
    return CompareWithClip(ParseBoxFile(path), BytesOf(path), clip);
}

class Kills : public testing::TestWithParam<const char*> {};

/// A recorder that ends itself at its first call to the file, at its second, and so on to the last.
/// Before the file shows under its name there is none; from then on it opens.
TEST_P(Kills, EveryCallLeavesAMovieThatOpens) {
    const std::string container = GetParam();
    const MediaClip& clip = H264AacClip();
    const std::string movie = MovieFolder() + "/killed." + container;
    WriteOptions options;
    options.container = container == "mp4" ? 'mp4 ' : 'mov ';
    options.expectedSeconds = 2;
    options.checkpointEvery = 10;
    bool killed = true;
    int opened = 0;
    long long most = 0;
    for (int call = 1; killed; call++) {
        std::filesystem::remove(movie);
        killed = WaitForRecorder(StartDoomedRecorder(movie, clip, options, call));
        if (!std::filesystem::exists(movie)) continue;
        SCOPED_TRACE("killed at call " + std::to_string(call));
        const Kept kept = look_at(movie, clip);
        ASSERT_EQ(kept.complaints, "");
        ASSERT_GE(kept.samples[0], most);  // later is never less
        most = kept.samples[0];
        opened++;
        // The readers that we did not write take longer: every so often.
        if (call % 29 == 0 || !killed) {
            ASSERT_EQ(Ffprobe(movie, most == 0).complaints, "");
        }
    }
    EXPECT_GT(opened, 100);
    EXPECT_EQ(most, 50);
}

INSTANTIATE_TEST_SUITE_P(Containers, Kills, testing::Values("mov", "mp4"),
                         [](const auto& each) { return std::string(each.param); });

/// Killed from outside at a random moment, with the file's own thread at work. Measures nothing:
/// the moment is random, and whatever it is, there is a movie.
TEST(Kill, AtRandomMomentsLeavesAMovieThatOpens) {
    const MediaClip& clip = H264AacClip();
    std::mt19937 random(3);
    const std::string movie = MovieFolder() + "/random.mov";
    for (int i = 0; i < 12; i++) {
        std::filesystem::remove(movie);
        const pid_t child = StartPacedRecorder(movie, clip, {}, 2000);
        // Not before the file is there.
        while (!std::filesystem::exists(movie)) usleep(1000);
        usleep(random() % 350000);
        kill(child, SIGKILL);
        WaitForRecorder(child);
        const Kept kept = look_at(movie, clip);
        ASSERT_EQ(kept.complaints, "");
        ASSERT_EQ(Ffprobe(movie, kept.samples[0] == 0).complaints, "");
        ASSERT_NEAR(kept.seconds[0], kept.seconds[1], 1.1);
    }
}

/// A limit on the file's size stands for a disk that is full; the recorder lives on.
TEST(FullDisk, LimitOnTheFileLeavesAMovieThatOpens) {
    const MediaClip& clip = ProResPcmClip();
    const std::string movie = MovieFolder() + "/limited.mov";
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {700000, 700000};
        setrlimit(RLIMIT_FSIZE, &limit);
        const Result result = WriteClipTo(movie, clip, {.expectedSeconds = 1});
        const std::string text = result.GetMessage();
        _exit(result.Failed() && text.find("File too large") != std::string::npos ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    const Kept kept = look_at(movie, clip);
    EXPECT_EQ(kept.complaints, "");
    EXPECT_GT(kept.samples[0], 2);
    EXPECT_EQ(Ffprobe(movie).complaints, "");
    EXPECT_LE(std::filesystem::file_size(movie), 700000U);
}

}  // namespace
