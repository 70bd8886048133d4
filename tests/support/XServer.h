#pragma once

#include <cstdlib>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

/// An X server without a screen, and the environment's DISPLAY pointed at it while it lives.
class XServer {
public:
    XServer() {
        int numbers[2];
        if (pipe(numbers) != 0) return;
        fProcess = fork();
        if (fProcess == 0) {
            close(numbers[0]);
            const std::string descriptor = std::to_string(numbers[1]);
            execlp("Xvfb", "Xvfb", "-displayfd", descriptor.c_str(), "-screen", "0", "640x480x24",
                   "-nolisten", "tcp", "-noreset", "-nolock", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(numbers[1]);
        // It writes its number when it answers, and nothing when it could not start.
        std::string number;
        char digit = 0;
        while (read(numbers[0], &digit, 1) == 1 && digit != '\n') number += digit;
        close(numbers[0]);
        if (number.empty()) return;
        fRuns = true;
        if (const char* before = std::getenv("DISPLAY")) fBefore = before;
        setenv("DISPLAY", (":" + number).c_str(), 1);
    }
    ~XServer() {
        Kill();
        if (fBefore.empty()) {
            unsetenv("DISPLAY");
        } else {
            setenv("DISPLAY", fBefore.c_str(), 1);
        }
    }
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    bool Runs() const { return fRuns; }

    void Kill() {
        if (fProcess <= 0) return;
        kill(fProcess, SIGKILL);
        waitpid(fProcess, nullptr, 0);
        fProcess = 0;
    }

private:
    pid_t fProcess = 0;
    bool fRuns = false;
    std::string fBefore;
};
