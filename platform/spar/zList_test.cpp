#include "spar/zList.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <list>
#include <random>
#include <string>
#include <vector>

#include "spar/zRefCount.h"

namespace {

template <class T>
std::vector<T> forward(const zList<T>& list) {
    std::vector<T> values;
    for (auto* node = list.Head(); node != nullptr; node = node->fNext)
        values.push_back(node->fValue);
    return values;
}

template <class T>
std::vector<T> backward(const zList<T>& list) {
    std::vector<T> values;
    for (auto* node = list.Tail(); node != nullptr; node = node->fPrevious)
        values.insert(values.begin(), node->fValue);
    return values;
}

}  // namespace

TEST(zList, LinksBothWaysInOrderOfAppending) {
    zList<int> list;
    EXPECT_TRUE(list.IsEmpty());
    for (int value : {3, 1, 2}) list.Append(value);
    EXPECT_EQ(forward(list), (std::vector<int>{3, 1, 2}));
    EXPECT_EQ(backward(list), (std::vector<int>{3, 1, 2}));
    EXPECT_EQ(list.Count(), 3u);
}

TEST(zList, RemoveTakesTheFirstEqualEntryAlone) {
    zList<int> list;
    for (int value : {1, 2, 1, 3}) list.Append(value);
    EXPECT_TRUE(list.Remove(1));
    EXPECT_EQ(forward(list), (std::vector<int>{2, 1, 3}));
    EXPECT_FALSE(list.Remove(9));
    EXPECT_TRUE(list.Remove(3));
    EXPECT_EQ(backward(list), (std::vector<int>{2, 1}));
}

TEST(zList, RemoveIndexPastTheEndIsRefused) {
    zList<int> list;
    EXPECT_FALSE(list.RemoveIndex(0));
    list.Append(1);
    EXPECT_FALSE(list.RemoveIndex(1));
    EXPECT_TRUE(list.RemoveIndex(0));
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(list.Tail(), nullptr);
}

TEST(zList, RemoveFirstGivesValuesInOrderAndThenNothing) {
    zList<std::string> list;
    list.Append("a");
    list.Append("b");
    EXPECT_EQ(list.RemoveFirst(), "a");
    EXPECT_EQ(list.RemoveFirst(), "b");
    EXPECT_EQ(list.RemoveFirst(), "");
    EXPECT_EQ(zList<int*>().RemoveFirst(), nullptr);
}

TEST(zList, RemoveAndReleaseAllReleasesEachOnceInOrder) {
    struct Noted : zRefCount {
        Noted(std::vector<int>& log, int number) : fLog(log), fNumber(number) {}
        ~Noted() override { fLog.push_back(fNumber); }
        std::vector<int>& fLog;
        int fNumber;
    };
    std::vector<int> log;
    zList<Noted*> list;
    for (int number = 0; number < 3; ++number) list.Append(new Noted(log, number));
    Noted* held = list.Head()->fNext->fValue;
    held->AddRef();
    list.RemoveAndReleaseAll();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(log, (std::vector<int>{0, 2}));
    EXPECT_EQ(held->Release(), 0);
}

TEST(zList, IteratorLetsTheCurrentEntryGo) {
    zList<int> list;
    for (int value = 0; value < 6; ++value) list.Append(value);
    std::vector<int> seen;
    for (zListIterator<int> i(list); !i.Done(); i.Next()) {
        seen.push_back(i.Current());
        if (i.Current() % 2 == 0) list.Remove(i.Current());
    }
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(forward(list), (std::vector<int>{1, 3, 5}));
}

TEST(zList, IteratorWritesThroughAndStartsAgain) {
    zList<int> list;
    list.Append(1);
    list.Append(2);
    zListIterator<int> i(list);
    for (; !i.Done(); i.Next()) i.Current() *= 10;
    i.Init();
    EXPECT_EQ(i.Current(), 10);
    int sum = 0;
    for (int value : list) sum += value;
    EXPECT_EQ(sum, 30);
}

TEST(zList, BehavesAsAPlainListUnderRandomOperations) {
    std::mt19937 random(7);
    zList<int> list;
    std::list<int> model;
    for (int round = 0; round < 20000; ++round) {
        const int value = static_cast<int>(random() % 20);
        switch (random() % 4) {
            case 0:
            case 1:
                list.Append(value);
                model.push_back(value);
                break;
            case 2: {
                const auto found = std::find(model.begin(), model.end(), value);
                EXPECT_EQ(list.Remove(value), found != model.end());
                if (found != model.end()) model.erase(found);
                break;
            }
            default: {
                const bool inside = static_cast<std::size_t>(value) < model.size();
                EXPECT_EQ(list.RemoveIndex(static_cast<unsigned>(value)), inside);
                if (inside) model.erase(std::next(model.begin(), value));
            }
        }
        if (round % 100 != 0) continue;
        const std::vector<int> expected(model.begin(), model.end());
        ASSERT_EQ(forward(list), expected);
        ASSERT_EQ(backward(list), expected);
        ASSERT_EQ(list.Count(), expected.size());
    }
}
