#include "tests/support/Process.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

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

BackgroundProcess::BackgroundProcess(const std::vector<std::string>& words) {
    const auto out = make_pipe();
    const auto err = make_pipe();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
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

ProcessResult BackgroundProcess::Wait() {
    ProcessResult result;
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
    if (fProcess > 0 && waitpid(fProcess, &status, 0) == fProcess)
        result.exitCode = code_of(status);
    fProcess = -1;
    return result;
}

ProcessResult Run(const std::vector<std::string>& words) {
    return BackgroundProcess(words).Wait();
}

}  // namespace tests
