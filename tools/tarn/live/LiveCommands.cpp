#include "LiveCommands.h"

#include <fmt/format.h>

#include "../XmlInput.h"
#include "LiveShow.h"

namespace {

constexpr const char* kHelp =
    "add <output .../>, add FILE.xml, remove NAME, enable NAME [on|off], stats, quit";

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

LiveAnswer failure(const std::string& message) {
    LiveAnswer answer;
    answer.ok = false;
    answer.message = message;
    return answer;
}

LiveAnswer done(const std::string& message) {
    LiveAnswer answer;
    answer.message = message;
    return answer;
}

LiveAnswer add(const std::string& rest, LiveShow& show) {
    if (rest.empty()) return failure("add: add what? " + std::string(kHelp));
    std::string text = rest;
    std::string error;
    if (rest[0] != '<' && !ReadXmlFile(rest, text, error)) {
        return failure("add: neither an <output> element nor a file that holds one: " + error);
    }
    return show.Add(text, error) ? done("added") : failure(error);
}

LiveAnswer remove(const std::string& name, LiveShow& show) {
    std::string error;
    if (name.empty()) return failure("remove: remove which output?");
    return show.Remove(name, error) ? done(fmt::format("removed '{}'", name))
                                    : failure("remove: " + error);
}

/// Names may hold spaces: the last word is the switch only if it is "on" or "off".
LiveAnswer enable(const std::string& rest, LiveShow& show) {
    std::string name = rest;
    bool on = true;
    const std::size_t space = rest.find_last_of(" \t");
    if (space != std::string::npos) {
        const std::string last = rest.substr(space + 1);
        if (last == "on" || last == "off") {
            on = last == "on";
            name = trimmed(rest.substr(0, space));
        }
    }
    std::string error;
    if (name.empty()) return failure("enable: enable which output?");
    if (!show.Enable(name, on, error)) return failure("enable: " + error);
    return done(fmt::format("'{}' is {}", name, on ? "on" : "off"));
}

}  // namespace

LiveAnswer ObeyLiveCommand(const std::string& line, LiveShow& show) {
    const std::string text = trimmed(line);
    const std::size_t space = text.find_first_of(" \t");
    const std::string word = text.substr(0, space);
    const std::string rest = space == std::string::npos ? "" : trimmed(text.substr(space));
    LiveAnswer answer;
    if (word.empty()) return answer;
    if (word == "add") return add(rest, show);
    if (word == "remove") return remove(rest, show);
    if (word == "enable") return enable(rest, show);
    if (word == "help") return done(kHelp);
    if (word == "stats") {
        answer.stats = true;
        return answer;
    }
    if (word == "quit") {
        answer.quit = true;
        return answer;
    }
    return failure(fmt::format("'{}' is no command; there are: {}", word, kHelp));
}
