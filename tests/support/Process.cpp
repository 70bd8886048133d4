#include "tests/support/Process.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace tests {

namespace {

std::array<int, 2> make_pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
    return ends;
}

bool read_some(int descriptor, std::string& text) {
    char block[4096];
    const ssize_t count = read(descriptor, block, sizeof block);
    if (count > 0) text.append(block, static_cast<std::size_t>(count));
    return count > 0;
}

int code_of(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

BackgroundProcess::BackgroundProcess(const std::vector<std::string>& words, Input input) {
    const auto out = make_pipe();
    const auto err = make_pipe();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    std::array<int, 2> in{-1, -1};
    if (input == Input::kPipe) {
        signal(SIGPIPE, SIG_IGN);
        in = make_pipe();
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    if (posix_spawnp(&fProcess, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
        fProcess = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    if (in[0] >= 0) close(in[0]);
    fIn = in[1];
    fOut = out[0];
    fErr = err[0];
}

BackgroundProcess::~BackgroundProcess() {
    if (fProcess < 0) return;
    Signal(SIGKILL);
    Wait();
}

void BackgroundProcess::Signal(int signal) const {
    if (fProcess > 0) kill(fProcess, signal);
}

void BackgroundProcess::Write(const std::string& text) const {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = write(fIn, text.data() + written, text.size() - written);
        if (count <= 0) return;
        written += static_cast<std::size_t>(count);
    }
}

bool BackgroundProcess::ReadLine(std::string& line) {
    std::size_t end = fUnread.find('\n');
    while (end == std::string::npos) {
        if (!read_some(fOut, fUnread)) return false;
        end = fUnread.find('\n');
    }
    line = fUnread.substr(0, end);
    fUnread.erase(0, end + 1);
    return true;
}

ProcessResult BackgroundProcess::Wait() {
    ProcessResult result;
    result.out = std::move(fUnread);
    if (fIn >= 0) close(fIn);
    fIn = -1;
    pollfd watched[2] = {{fOut, POLLIN, 0}, {fErr, POLLIN, 0}};
    int open = 2;
    while (open > 0 && poll(watched, 2, -1) > 0) {
        for (pollfd& end : watched) {
            if (!end.revents || end.fd < 0) continue;
            if (read_some(end.fd, end.fd == fOut ? result.out : result.err)) continue;
            close(end.fd);
            end.fd = -1;
            --open;
        }
    }
    int status = 0;
    rusage used{};
    if (fProcess > 0 && wait4(fProcess, &status, 0, &used) == fProcess) {
        result.exitCode = code_of(status);
        result.pageFaults = used.ru_minflt;
    }
    fProcess = -1;
    return result;
}

ProcessResult Run(const std::vector<std::string>& words) {
    return BackgroundProcess(words).Wait();
}

ProcessResult RunUnread(std::vector<std::string> words) {
    words.insert(words.begin(), {"bash", "-c",
                                 "exec 3> >(:); wait $!; "
                                 "exec env --default-signal=PIPE \"$@\" >&3",
                                 "bash"});
    return Run(words);
}

}  // namespace tests
