#include "movieText.h"

#include <fmt/format.h>

namespace {

struct CodeText {
    int code;
    const char* text;
};

// Codes of the operations of movies and of the writers behind them, which mostly come with a line
// of the trace that says more.
constexpr CodeText kTexts[] = {
    {-1, "it could not be started; check that its folder can be written to"},
    {-14, "it could not keep up with the show; its disk or its receiver is too slow"},
    {-22, "one of its settings is empty"},
    {-28, "this kind of movie cannot do that"},
    {-1006, "it cannot be written; check that its folder or its address is there"},
    {-1009, "this kind of movie takes one <video> and one <audio> at most, and needs one"},
    {-1011, "it runs already"},
    {-1023, "there is no such output"},
    {-1024, "no memory"},
    {-1041, "it does not take one of its codecnames, or one of the codec's settings"},
    {-1042, "this kind of file does not take pictures of that codec"},
    {-1043, "an encoder does not start with these settings"},
    {-1052, "it took no more pictures"},
    {-1056, "the sound encoder does not start with this rate and these channels"},
    {-1057, "this kind of file does not take that sound"},
    {-1059, "it took no more sound"},
};

}  // namespace

std::string MovieErrorText(int code, const std::string& location) {
    for (const CodeText& row : kTexts) {
        if (row.code == code) return fmt::format("'{}': {} (code {})", location, row.text, code);
    }
    return fmt::format("'{}': failed with code {}", location, code);
}
