#include "JsonString.h"

#include <gtest/gtest.h>
#include <string>

namespace {

struct Case {
    const char* what;
    std::string text;
    std::string json;
};

const std::string kBad = "\xef\xbf\xbd";

TEST(JsonString, IsOneForAnyBytes) {
    const Case cases[] = {
        {"nothing", "", "\"\""},
        {"plain", "a b.mov", "\"a b.mov\""},
        {"quotes", "\"\\", R"("\"\\")"},
        {"control", "\n\x01", R"("\u000a\u0001")"},
        {"zero", std::string(1, '\0'), R"("\u0000")"},
        {"two bytes", "l\xc3\xa4tin", "\"l\xc3\xa4tin\""},
        {"three bytes", "\xe2\x82\xac", "\"\xe2\x82\xac\""},
        {"four bytes", "\xf0\x9f\x8e\xac", "\"\xf0\x9f\x8e\xac\""},
        {"the last of all", "\xf4\x8f\xbf\xbf", "\"\xf4\x8f\xbf\xbf\""},
        {"Latin 1", "l\xe4tin", "\"l" + kBad + "tin\""},
        {"bytes behind none", "\x80\xbf", "\"" + kBad + kBad + "\""},
        {"cut off at the end", "a\xe2\x82", "\"a" + kBad + kBad + "\""},
        {"cut off before a quote", "\xc3\"", "\"" + kBad + "\\\"\""},
        {"third byte is none", "\xe2\x82x", "\"" + kBad + kBad + "x\""},
        {"too long", "\xc0\xaf", "\"" + kBad + kBad + "\""},
        {"too long in three", "\xe0\x9f\xbf", "\"" + kBad + kBad + kBad + "\""},
        {"too long in four", "\xf0\x8f\xbf\xbf", "\"" + kBad + kBad + kBad + kBad + "\""},
        {"surrogate", "\xed\xa0\x80", "\"" + kBad + kBad + kBad + "\""},
        {"beyond Unicode", "\xf4\x90\x80\x80", "\"" + kBad + kBad + kBad + kBad + "\""},
        {"no lead at all", "\xff", "\"" + kBad + "\""},
    };
    for (const Case& c : cases) EXPECT_EQ(JsonString(c.text), c.json) << c.what;
}

}  // namespace
