#include "spar/zIDGenerator.h"

#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

namespace {

TEST(zIDGenerator, ThreadsNeverGetTheSameId) {
    constexpr int kEach = 20000;
    std::vector<std::vector<unsigned long long>> made(4);
    std::vector<std::thread> threads;
    for (auto& ids : made) {
        threads.emplace_back([&ids] {
            for (int i = 0; i < kEach; ++i) ids.push_back(zIDGenerator::Generate('x'));
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::set<unsigned long long> whole;
    std::set<unsigned int> low;  // what a clock keeps
    for (const auto& ids : made) {
        for (const unsigned long long id : ids) {
            whole.insert(id);
            low.insert(static_cast<unsigned int>(id));
            EXPECT_EQ(id >> 56, static_cast<unsigned long long>('x'));
        }
    }
    EXPECT_EQ(whole.size(), 4u * kEach);
    EXPECT_EQ(low.size(), 4u * kEach);
    EXPECT_EQ(low.count(0), 0u);
}

TEST(zIDGenerator, KindsShareOneCount) {
    EXPECT_NE(static_cast<unsigned int>(zIDGenerator::Generate('a')),
              static_cast<unsigned int>(zIDGenerator::Generate('b')));
    EXPECT_EQ(zIDGenerator::Generate(static_cast<char>(0xFF)) >> 56, 0xFFu);
}

}  // namespace
