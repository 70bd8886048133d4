#include "tests/movies/MovieFolder.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class Folder {
public:
    Folder() {
        const char* parent = std::getenv("TMPDIR");
        std::string name = std::string(parent ? parent : "/tmp") + "/movie_files_XXXXXX";
        if (mkdtemp(name.data())) fName = name;
    }
    ~Folder() {
        // A child of a test that was forked off must not clear its parent's folder.
        std::error_code ignored;
        if (getpid() == fOwner) std::filesystem::remove_all(fName, ignored);
    }
    const std::string& Name() const { return fName; }

private:
    std::string fName;
    const pid_t fOwner = getpid();
};

}  // namespace

const std::string& MovieFolder() {
    static const Folder folder;
    return folder.Name();
}

ProgramRun RunProgram(const std::string& commandLine) {
    ProgramRun run;
    FILE* pipe = popen((commandLine + " 2>&1 </dev/null").c_str(), "r");
    if (!pipe) return run;
    std::array<char, 4096> buffer;
    while (const std::size_t got = fread(buffer.data(), 1, buffer.size(), pipe))
        run.output.append(buffer.data(), got);
    const int status = pclose(pipe);
    if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
    return run;
}
