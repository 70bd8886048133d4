#include "codeText.h"

#include <gtest/gtest.h>
#include <string>

namespace {

bool has(const std::string& text, const char* words) {
    return text.find(words) != std::string::npos;
}

TEST(CodeText, EveryCodeOfMoviesTheirFilesAndTheirEncodersHasWords) {
    for (const int code : {-1,    -14,   -22,   -28,   -1006, -1009, -1011, -1023, -1024, -1032,
                           -1033, -1035, -1037, -1038, -1039, -1040, -1041, -1042, -1043, -1044,
                           -1050, -1051, -1052, -1054, -1055, -1056, -1057, -1058, -1059}) {
        const std::string number = "(code " + std::to_string(code) + ")";
        for (const std::string& text : {WriterText(code, "x264"), MovieErrorText(code, "a.mov")}) {
            EXPECT_TRUE(has(text, number.c_str())) << text;
            EXPECT_FALSE(has(text, "failed with")) << text;
            EXPECT_FALSE(has(text, "{}")) << text;
        }
        EXPECT_TRUE(has(MovieErrorText(code, "a.mov"), "'a.mov': ")) << code;
        EXPECT_FALSE(has(MovieErrorText(code, "a.mov"), "line above")) << code;
    }
}

TEST(CodeText, CommandsSayTheSameOfACode) {
    for (const int code : {-1006, -1032, -1052, -1057}) {
        const std::string movie = MovieErrorText(code, "a");
        const std::string words = movie.substr(5, movie.find(" (code") - 5);
        EXPECT_EQ(WriterText(code, "x264").rfind(words, 0), 0u) << movie;
    }
    EXPECT_TRUE(has(WriterText(-1035, "Video Toolbox H.264"), "'Video Toolbox H.264' needs"));
}

TEST(CodeText, AnUnknownCodeIsToldAsSuch) {
    EXPECT_TRUE(has(WriterText(-7, "x264"), "failed with code -7"));
    EXPECT_TRUE(has(MovieErrorText(-7, "a.mov"), "'a.mov': failed with code -7"));
}

}  // namespace
