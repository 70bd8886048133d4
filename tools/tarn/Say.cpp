#include "Say.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "JsonString.h"

namespace {

std::atomic<int> gFailure{0};  // the errno of the first text that standard output did not take

}  // namespace

void SayText(std::FILE* stream, const std::string& text) {
    const bool said =
        std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0;
    int none = 0;
    if (!said && stream == stdout) gFailure.compare_exchange_strong(none, errno);
}

int Complain(bool json, const std::string& command, const std::string& line) {
    if (json) Say("{{\"event\":\"error\",\"message\":{}}}\n", JsonString(line));
    Say(stderr, "{}: {}\n", command, line);
    return EXIT_FAILURE;
}

bool HasReader() {
    return gFailure != EPIPE;
}

std::string LostOutput() {
    return gFailure == 0 || gFailure == EPIPE ? "" : std::generic_category().message(gFailure);
}
