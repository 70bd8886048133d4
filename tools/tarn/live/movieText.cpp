#include "movieText.h"

#include <fmt/format.h>

namespace {

struct CodeText {
    int code;
    const char* text;
};

// Codes of the operations of movies; those of a writer come with a line of the trace.
// Codes of the operations of movies; those of a file writer mostly come with a line of the trace.
constexpr CodeText kTexts[] = {
    {-1, "it could not be started; check that its folder can be written to"},
    {-14, "could not keep up with the show; its disk or its receiver is too slow"},
    {-22, "one of its settings is empty"},
    {-28, "this kind of movie cannot do that"},
    {-1006, "it says no place to write to; give it an output_url"},
    {-1009, "this kind of movie takes one <video> and one <audio> at most, and needs one"},
    {-1011, "it runs already"},
    {-1023, "there is no such output"},
    {-1024, "no memory"},
    {-1041, "this kind of movie has no encoder of one of its codecnames"},
};

}  // namespace

std::string MovieErrorText(int code, const std::string& location) {
    for (const CodeText& row : kTexts) {
        if (row.code == code) return fmt::format("'{}': {} (code {})", location, row.text, code);
    }
    return fmt::format("'{}': failed with code {}", location, code);
}
