#include "SleepOption.h"

#include <gtest/gtest.h>

namespace {

TEST(SleepOption, ReadsAPointAndItsMilliseconds) {
    struct Case {
        const char* fText;
        tnSleeper::InjectionPoint fPoint;
        long long fMinimum, fMaximum;
    };
    for (const Case& c : {Case{"renderer:20-80", tnSleeper::kSleepRenderer, 20, 80},
                          Case{"decompressor:40", tnSleeper::kSleepTaskDecompressor, 40, 40},
                          Case{"renderer:0-60000", tnSleeper::kSleepRenderer, 0, 60000},
                          Case{"renderer:80-20", tnSleeper::kSleepRenderer, 80, 20},
                          Case{"renderer:0", tnSleeper::kSleepRenderer, 0, 0}}) {
        tnSleeper::Configuration read{};
        std::string error;
        EXPECT_TRUE(ParseSleep(c.fText, read, error)) << error;
        EXPECT_EQ(read.injectionPoint, c.fPoint) << c.fText;
        EXPECT_EQ(read.minimum, c.fMinimum) << c.fText;
        EXPECT_EQ(read.maximum, c.fMaximum) << c.fText;
    }
}

TEST(SleepOption, TellsWhatIsWrong) {
    struct Case {
        const char* fText;
        const char* fSays;
    };
    for (const Case& c :
         {Case{"", "renderer:"}, Case{"renderer", "renderer:"}, Case{"none:10", "renderer:"},
          Case{":10", "renderer:"}, Case{"Renderer:10", "renderer:"},
          Case{"renderer:", "milliseconds"}, Case{"renderer:-", "milliseconds"},
          Case{"renderer:10-", "milliseconds"}, Case{"renderer:-5", "milliseconds"},
          Case{"renderer:5ms", "milliseconds"}, Case{"renderer:1.5", "milliseconds"},
          Case{"renderer: 5", "milliseconds"}, Case{"renderer:1-2-3", "milliseconds"},
          Case{"renderer:60001", "milliseconds"},
          Case{"renderer:99999999999999999999", "milliseconds"}}) {
        tnSleeper::Configuration read{tnSleeper::kSleepRenderer, 7, 8};
        std::string error;
        EXPECT_FALSE(ParseSleep(c.fText, read, error)) << c.fText;
        EXPECT_NE(error.find(c.fSays), std::string::npos) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos);
        EXPECT_EQ(read.minimum, 7);
    }
}

}  // namespace
