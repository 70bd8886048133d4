#include "spar/zErrCodeManager.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "spar/zXML.h"

namespace {

TEST(zErrCodeManager, NamesTheRangeOfACode) {
    zErrCodeManager::RegisterCodeRange(-900100, -900100, "single");
    zErrCodeManager::RegisterCodeRange(-900299, -900200, "hundred");
    zErrCodeManager::RegisterCodeRange(-900300, -900399, "turned round");
    EXPECT_STREQ(zErrCodeManager::RangeName(-900100), "single");
    EXPECT_EQ(zErrCodeManager::RangeName(-900101), nullptr);
    EXPECT_EQ(zErrCodeManager::RangeName(-900099), nullptr);
    EXPECT_STREQ(zErrCodeManager::RangeName(-900200), "hundred");
    EXPECT_STREQ(zErrCodeManager::RangeName(-900299), "hundred");
    EXPECT_STREQ(zErrCodeManager::RangeName(-900350), "turned round");
}

TEST(zErrCodeManager, KnowsTheBaseLibrarysCodes) {
    EXPECT_STREQ(zErrCodeManager::RangeName(-5028), "file errors");
    EXPECT_STREQ(zErrCodeManager::RangeName(zXML::kNoElement), "XML errors");
}

TEST(zErrCodeManager, TheNarrowestRangeNamesACode) {
    zErrCodeManager::RegisterCodeRange(-901999, -901000, "wide");
    zErrCodeManager::RegisterCodeRange(-901199, -901100, "narrow");
    zErrCodeManager::RegisterCodeRange(-901199, -901100, "late");
    EXPECT_STREQ(zErrCodeManager::RangeName(-901150), "narrow");
    EXPECT_STREQ(zErrCodeManager::RangeName(-901500), "wide");
}

TEST(zErrCodeManager, CopiesTheNameAndTakesARangeOnce) {
    std::string name = "a name that is long enough to live on the heap";
    zErrCodeManager::RegisterCodeRange(-902000, -902000, name.c_str());
    const char* held = zErrCodeManager::RangeName(-902000);
    name[0] = 'X';
    EXPECT_STREQ(held, "a name that is long enough to live on the heap");
    zErrCodeManager::RegisterCodeRange(-902000, -902000, held);
    zErrCodeManager::RegisterCodeRange(-902001, -902001, nullptr);
    EXPECT_EQ(zErrCodeManager::RangeName(-902000), held);
    EXPECT_EQ(zErrCodeManager::RangeName(-902001), nullptr);
}

TEST(zErrCodeManager, ThreadsMayRegisterAndAskAtOnce) {
    const auto code = [](int thread, int round) { return -910000 - thread * 1000 - round; };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int round = 0; round < 100; ++round) {
                const std::string name = "thread " + std::to_string(thread);
                const int mine = code(thread, round);
                zErrCodeManager::RegisterCodeRange(mine, mine, name.c_str());
                EXPECT_STREQ(zErrCodeManager::RangeName(mine), name.c_str());
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (int round = 0; round < 100; ++round) {
        EXPECT_STREQ(zErrCodeManager::RangeName(code(3, round)), "thread 3");
    }
}

}  // namespace
