#include "parseRate.h"

#include <gtest/gtest.h>

namespace {

TEST(Rate, IsExactForTheRatesOfTelevision) {
    struct Case {
        const char* text;
        long long numerator;
        long long denominator;
    };
    const Case cases[] = {{"25", 25, 1},
                          {"50", 50, 1},
                          {"29.97", 30000, 1001},
                          {"59.94", 60000, 1001},
                          {"23.976", 24000, 1001},
                          {"23.98", 24000, 1001},
                          {"60000/1001", 60000, 1001},
                          {"12.5", 12500, 1000},
                          {"0.5", 500, 1000},
                          {"0.1", 100, 1000},
                          {"1/10", 1, 10},
                          {"1000", 1000, 1}};
    for (const Case& c : cases) {
        Rate rate;
        ASSERT_TRUE(ParseRate(c.text, rate)) << c.text;
        EXPECT_EQ(rate.numerator, c.numerator) << c.text;
        EXPECT_EQ(rate.denominator, c.denominator) << c.text;
    }
    for (const char* text : {"", "fast", "0", "-1", "1/0", "1/1e300", "30/", "30/1.5", "25fps",
                             "1e9", "nan", "inf", "0.0001", "1001", "0.09", "1/11"}) {
        Rate rate;
        EXPECT_FALSE(ParseRate(text, rate)) << text;
    }
    Rate rate;
    EXPECT_TRUE(ParseRate("1500", rate, 2000)) << "clocks tick faster than pictures come";
    EXPECT_FALSE(ParseRate("2001", rate, 2000));
}

}  // namespace
