#include "clipNames.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr int kDeepestList = 4;  // lists in lists; a list may name itself

bool begins_with_one_of(const std::string& text, std::initializer_list<const char*> words) {
    return std::any_of(words.begin(), words.end(),
                       [&text](const char* word) { return text.rfind(word, 0) == 0; });
}

/// Datagrams to a group come to everybody who asks for them.
bool is_for_a_group(const std::string& address) {
    const std::size_t last = address.find_last_of("@/", address.find('?'));
    if (last == std::string::npos) return false;
    const std::string host = address.substr(last + 1);
    const int first = std::atoi(host.c_str());
    return (first >= 224 && first <= 239) || begins_with_one_of(host, {"[ff", "[FF"});
}

bool waits_for_a_sender(const std::string& address) {
    const std::size_t options = address.find('?');
    if (options == std::string::npos) return false;
    return address.find("listen", options) != std::string::npos &&
           address.find("listen=0", options) == std::string::npos;
}

std::string unquoted(const char* text) {
    char* const token = av_get_token(&text, " \t\r\n");
    const std::string word = token ? token : "";
    av_free(token);
    return word;
}

/// The name that a line of a list has; empty when it has none.
std::string name_in_line(const std::string& line, bool isConcat) {
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#') return "";
    if (!isConcat) return line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
    const std::size_t end = line.find_first_of(" \t", begin);
    if (end == std::string::npos || line.substr(begin, end - begin) != "file") return "";
    return unquoted(line.c_str() + line.find_first_not_of(" \t", end));
}

std::vector<std::string> names_in_list(const std::string& path) {
    constexpr std::size_t kLongestMark = 16;
    std::ifstream file(path);
    std::string mark(kLongestMark, '\0');
    file.read(mark.data(), static_cast<std::streamsize>(mark.size()));
    const bool isConcat = begins_with_one_of(mark, {"ffconcat version"});
    if (!isConcat && !begins_with_one_of(mark, {"#EXTM3U"})) return {};
    file.clear();
    file.seekg(0);
    std::vector<std::string> names;
    for (std::string line; std::getline(file, line);) {
        std::string name = name_in_line(line, isConcat);
        if (!name.empty()) names.push_back(std::move(name));
    }
    return names;
}

/// What stands behind a colon, or between bars, of "file:a.mov", "concat:a.ts|b.ts".
std::vector<std::string> names_in_address(const std::string& address) {
    std::vector<std::string> names;
    for (std::size_t at = address.find_first_of(":|"); at != std::string::npos;
         at = address.find_first_of(":|", at + 1)) {
        names.push_back(address.substr(at + 1, address.find('|', at + 1) - at - 1));
    }
    return names;
}

void add_files(const std::string& name, int depth, std::vector<std::string>& files) {
    std::error_code unknown;
    if (!fs::exists(name, unknown)) {
        for (const std::string& inner : names_in_address(name)) {
            if (fs::exists(inner, unknown)) add_files(inner, depth, files);
        }
        return;
    }
    files.push_back(name);
    if (depth == kDeepestList || !fs::is_regular_file(name, unknown)) return;
    const fs::path folder = fs::path(name).parent_path();
    for (const std::string& listed : names_in_list(name)) {
        const std::string beside = folder / listed;
        add_files(fs::exists(beside, unknown) ? beside : listed, depth + 1, files);
    }
}

}  // namespace

bool IsReadOnce(const std::string& clip) {
    std::error_code unknown;
    const fs::file_status status = fs::status(clip, unknown);
    if (fs::exists(status)) {
        return fs::is_fifo(status) || fs::is_character_file(status) || fs::is_socket(status);
    }
    if (begins_with_one_of(clip, {"pipe:", "fd:", "unix:"})) return true;
    if (begins_with_one_of(clip, {"udp:", "udplite:", "rtp:", "srtp:"})) {
        return !is_for_a_group(clip);
    }
    return waits_for_a_sender(clip);
}

std::vector<std::string> FilesOfClip(const std::string& clip) {
    std::vector<std::string> files;
    add_files(clip, 0, files);
    return files;
}
