#include "spar/zStringID.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "spar/zRecord.h"

namespace {

zStringID& ids() {
    return zStringID::Default();
}

TEST(zStringID, TiesIdsToKeys) {
    EXPECT_EQ(ids().Add('siA1', "string_id_a1", false), 0);
    EXPECT_EQ(ids().Find("string_id_a1"), static_cast<unsigned long long>('siA1'));
    EXPECT_STREQ(ids().Key('siA1'), "string_id_a1");
    EXPECT_EQ(ids().Key('siA0'), nullptr);
    EXPECT_EQ(ids().Find("string_id_a0"), 0u);
}

TEST(zStringID, AnEqualPairAgainIsHarmless) {
    EXPECT_EQ(ids().Add('siB1', "string_id_b1", false), 0);
    EXPECT_EQ(ids().Add('siB1', "string_id_b1", false), 0);
    EXPECT_EQ(ids().Add('siB1', "string_id_b2", false), -1) << "the id is another's";
    EXPECT_EQ(ids().Add('siB2', "string_id_b1", false), -1) << "the key is another's";
    EXPECT_EQ(ids().Add('siB2', nullptr, false), -22);
    EXPECT_EQ(ids().Add(0, "string_id_b0", false), -1);
    EXPECT_STREQ(ids().Key('siB1'), "string_id_b1");
    EXPECT_EQ(ids().Find("string_id_b2"), 0u);
    EXPECT_EQ(ids().Key('siB2'), nullptr);
}

TEST(zStringID, MakesAnIdForAKeyThatHasNone) {
    const unsigned long long made = ids().FindOrMake("string_id_c1");
    EXPECT_NE(made, 0u);
    EXPECT_EQ(ids().FindOrMake("string_id_c1"), made);
    EXPECT_EQ(ids().Find("string_id_c1"), made);
    EXPECT_STREQ(ids().Key(made), "string_id_c1");
    EXPECT_EQ(ids().OtherID(made), 0u);

    EXPECT_EQ(ids().Add('siC1', "string_id_c1", false), 0);
    EXPECT_EQ(ids().Find("string_id_c1"), static_cast<unsigned long long>('siC1'));
    EXPECT_EQ(ids().OtherID(made), static_cast<unsigned long long>('siC1'));
    EXPECT_EQ(ids().OtherID('siC1'), made);
    EXPECT_STREQ(ids().Key(made), "string_id_c1");
    EXPECT_STREQ(ids().Key('siC1'), "string_id_c1");
    EXPECT_EQ(ids().Add('siC1', "string_id_c1", false), 0);
    EXPECT_EQ(ids().Add('siC2', "string_id_c1", false), -1);
}

TEST(zStringID, HoldsKeysOfEveryLength) {
    std::string key = "k";
    for (unsigned long long i = 0; i < 64; ++i, key += static_cast<char>('a' + i % 26)) {
        ASSERT_EQ(ids().Add(0x5000000000ull + i, key.c_str(), false), 0) << key;
    }
    for (unsigned long long i = 64; i-- > 0;) {
        key.pop_back();
        EXPECT_EQ(ids().Find(key), 0x5000000000ull + i) << key;
        EXPECT_EQ(ids().Key(0x5000000000ull + i), key);
    }
}

// The table grows several times while readers are in it; nobody waits and nobody misses.
TEST(zStringID, GrowsUnderReaders) {
    constexpr int kKeys = 20000;
    std::atomic<int> entered{0};
    std::atomic<int> wrong{0};
    const auto key = [](int i) { return "string_id_grow_" + std::to_string(i); };
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 3; ++reader) {
        readers.emplace_back([&] {
            for (int seen = 0; seen < kKeys;) {
                const int limit = entered.load(std::memory_order_acquire);
                for (; seen < limit; ++seen) {
                    const unsigned long long id = ids().Find(key(seen));
                    const char* back = ids().Key(id);
                    if (id == 0 || back == nullptr || key(seen) != back) ++wrong;
                }
            }
        });
    }
    for (int i = 0; i < kKeys; ++i) {
        ids().FindOrMake(key(i));
        entered.store(i + 1, std::memory_order_release);
    }
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong, 0);
}

TEST(zStringID, ThreadsThatMakeOneKeyAgreeOnItsId) {
    constexpr int kKeys = 2000;
    std::vector<std::vector<unsigned long long>> made(4);
    std::vector<std::thread> makers;
    for (auto& list : made) {
        makers.emplace_back([&list] {
            for (int i = 0; i < kKeys; ++i) {
                list.push_back(ids().FindOrMake("string_id_race_" + std::to_string(i)));
            }
        });
    }
    for (std::thread& maker : makers) maker.join();
    for (const auto& list : made) EXPECT_EQ(list, made.front());
}

}  // namespace
