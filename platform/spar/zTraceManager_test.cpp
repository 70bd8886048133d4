#include "spar/zTraceManager.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "spar/trace.h"

namespace {

class Sink : public zTraceManager {
public:
    Sink() : fBefore(SetDefault(this)) {}
    ~Sink() override { SetDefault(fBefore); }
    void TraceMessage(int level, const std::string& text) override {
        fLevel = level;
        if (fThrow) fThrow();
        fText += text;
    }
    std::function<void()> fThrow;
    int fLevel = 0;
    std::string fText;

private:
    zTraceManager* fBefore;
};

/// Standard error goes to a file for the life of this object.
class StandardErrorToFile {
public:
    StandardErrorToFile() {
        const int file = mkstemp(fPath);
        close(file);
        // Two writers of one log, as of a host and its helper process, share the end of the file.
        const int log = open(fPath, O_WRONLY | O_APPEND);
        fBefore = dup(STDERR_FILENO);
        dup2(log, STDERR_FILENO);
        close(log);
    }
    ~StandardErrorToFile() {
        dup2(fBefore, STDERR_FILENO);
        close(fBefore);
        unlink(fPath);
    }
    std::string Text() const {
        std::ifstream file(fPath);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }

private:
    char fPath[32] = "/tmp/spar_trace_XXXXXX";
    int fBefore = -1;
};

struct Unprintable {};

}  // namespace

template <>
struct fmt::formatter<Unprintable> {
    constexpr auto parse(format_parse_context& context) { return context.begin(); }
    template <class Context>
    auto format(const Unprintable&, Context& context) const {
        throw 42;
        return context.out();
    }
};

TEST(zTraceManager, TheHostsSinkTakesMessagesAtNoteLevel) {
    Sink sink;
    EXPECT_EQ(zTraceManager::Default(), &sink);
    zTraceManager::Default()->TraceMessage('note', "one\n");
    zTraceManager::Default()->TraceNote("%d %s\n", 2, "two");
    EXPECT_EQ(sink.fLevel, 'note');
    EXPECT_EQ(sink.fText, "one\n2 two\n");
}

TEST(zTraceManager, ANoteMayBeLong) {
    Sink sink;
    const std::string text(100000, 'x');
    zTraceManager::Default()->TraceNote("%s\n", text.c_str());
    EXPECT_EQ(sink.fText, text + "\n");
    sink.fText.clear();
    zTraceManager::Default()->TraceNote("%s", "");
    EXPECT_EQ(sink.fText, "");
}

TEST(zTraceManager, CanBeSwitchedOffAndOnAgain) {
    zTraceManager* before = zTraceManager::SetDefault(nullptr);
    EXPECT_EQ(zTraceManager::Default(), nullptr);
    zTrace("{}\n", Unprintable());  // nothing is formatted, so nothing is thrown
    EXPECT_EQ(zTraceManager::SetDefault(before), nullptr);
    EXPECT_EQ(zTraceManager::Default(), before);
}

TEST(zTraceManager, StandardErrorIsTheDefault) {
    EXPECT_EQ(zTraceManager::Default(), zTraceManager::StandardError());
    StandardErrorToFile file;
    zTrace("said {}\n", "so");
    EXPECT_EQ(file.Text(), "said so\n");
}

TEST(zTraceManager, LinesOfThreadsDoNotMix) {
    StandardErrorToFile file;
    constexpr int kThreads = 4;
    constexpr int kLines = 300;
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number)
        threads.emplace_back([number] {
            for (int line = 0; line < kLines; ++line)
                zTrace("{}\n", std::string(200, static_cast<char>('a' + number)));
        });
    for (auto& thread : threads) thread.join();
    std::istringstream lines(file.Text());
    std::string line;
    int count = 0;
    for (; std::getline(lines, line); ++count) ASSERT_EQ(line, std::string(200, line[0]));
    EXPECT_EQ(count, kThreads * kLines);
}

namespace {

bool waits(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

/// In a process of its own, whose standard error is a pipe that nobody reads: traces, and exits
/// with 0 if that did nothing else.
[[noreturn]] void trace_into_a_closed_pipe() {
    int ends[2];
    if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0) _exit(2);
    close(ends[0]);
    close(ends[1]);
    signal(SIGPIPE, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    zTrace("to nobody\n");
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, &set, &mask);
    if (sigismember(&mask, SIGPIPE) != 0) _exit(3);
    zTrace("with the signal blocked\n");
    if (waits(SIGPIPE)) _exit(4);
    // The host's own, which it means to look at later.
    raise(SIGPIPE);
    zTrace("with a signal that waits\n");
    _exit(waits(SIGPIPE) ? 0 : 5);
}

}  // namespace

TEST(zTraceManagerDeathTest, APipeThatNobodyReadsEndsNobody) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(trace_into_a_closed_pipe(), testing::ExitedWithCode(0), "");
}

// The two texts stand in hosts' log filters.
TEST(zTrace, ExceptionsOfTracingAreCaughtAndSaidInItsPlace) {
    Sink sink;
    int calls = 0;
    sink.fThrow = [&] {
        if (++calls == 1) throw std::runtime_error("disk");
    };
    zTrace("lost\n");
    EXPECT_EQ(sink.fText, "zTrace 'disk'\n");

    sink.fText.clear();
    sink.fThrow = nullptr;
    zTrace("{}\n", Unprintable());
    EXPECT_EQ(sink.fText, "zTrace Unknown Assertion\n");

    sink.fText.clear();
    zTrace("{:{}}\n", 1, -5);  // a width that only shows when it runs
    EXPECT_EQ(sink.fText, "zTrace 'negative width'\n");
}

TEST(zTrace, ASinkThatAlwaysThrowsStopsNobody) {
    Sink sink;
    sink.fThrow = [] { throw std::runtime_error("disk"); };
    zTrace("lost\n");
    sink.fThrow = [] { throw std::bad_alloc(); };
    zTrace("lost\n");
    sink.fThrow = nullptr;
    zTrace("kept {:.1f} {:1.2f}\n", 1.25, 2.5);
    EXPECT_EQ(sink.fText, "kept 1.2 2.50\n");
}

TEST(zTrace, TheSinkMayBeReplacedWhileThreadsTrace) {
    std::atomic<bool> stop{false};
    class Counting : public zTraceManager {
    public:
        void TraceMessage(int, const std::string&) override { ++fCount; }
        std::atomic<int> fCount{0};
    } one, two;
    zTraceManager* before = zTraceManager::SetDefault(&one);
    std::thread tracer([&] {
        while (!stop) zTrace("x\n");
    });
    for (int round = 0; round < 1000; ++round) {
        zTraceManager::SetDefault(round % 2 ? &one : &two);
        if (round % 10 == 0) zTraceManager::SetDefault(nullptr);
    }
    stop = true;
    tracer.join();
    zTraceManager::SetDefault(before);
}
