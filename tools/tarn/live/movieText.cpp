#include "movieText.h"

#include <fmt/format.h>

namespace {

struct CodeText {
    int code;
    const char* text;
};

// Codes of the operations of movies; those of a writer come with a line of the trace.
constexpr CodeText kTexts[] = {
    {-1, "it could not be started"},
    {-22, "one of its settings is empty"},
    {-28, "this kind of file cannot do that"},
    {-1023, "there is no such output"},
    {-1024, "no memory"},
};

}  // namespace

std::string MovieErrorText(int code, const std::string& location) {
    for (const CodeText& row : kTexts) {
        if (row.code == code) return fmt::format("'{}': {} (code {})", location, row.text, code);
    }
    return fmt::format("'{}': failed with code {}", location, code);
}
