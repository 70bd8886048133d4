#include "spar/zMap.h"

#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "spar/zRedBlack.h"

namespace {

struct IntOrder {
    static int compare(const int& a, const int& b) { return a < b ? -1 : a > b; }
};
using Tree = zRedBlack<int, IntOrder>;

/// The number of black nodes on every way down, or -1 when a rule of the tree is broken.
int black_height(const Tree::Node* node, const Tree::Node* parent, long low, long high) {
    if (node == nullptr) return 0;
    if (node->fParent != parent || node->fItem <= low || node->fItem >= high) return -1;
    if (node->fRed && (parent == nullptr || parent->fRed)) return -1;
    const int left = black_height(node->Left(), node, low, node->fItem);
    const int right = black_height(node->Right(), node, node->fItem, high);
    if (left < 0 || left != right) return -1;
    return left + (node->fRed ? 0 : 1);
}

bool is_sound(const Tree& tree) {
    return black_height(tree.Root(), nullptr, -1000000000L, 1000000000L) >= 0;
}

std::vector<int> in_order(const Tree& tree) {
    std::vector<int> items;
    for (int item : tree) items.push_back(item);
    return items;
}

/// Stretches of time that may touch and not overlap: an item that starts inside another takes its
/// place, as the replay lists want it.
struct Span {
    long start;
    long stop;
    static int compare(Span* const& item, Span* const& inTree) {
        if (item->start < inTree->start) return -1;
        return item->start < inTree->stop ? 0 : 1;
    }
};

}  // namespace

TEST(zRedBlack, RulesHoldUnderRandomOperations) {
    std::mt19937 random(11);
    for (int range : {8, 100, 5000}) {
        Tree tree;
        std::map<int, bool> model;
        for (int round = 0; round < 6000; ++round) {
            const int value = static_cast<int>(random() % static_cast<unsigned>(range));
            // Grows, then shrinks, then keeps its size: all balances are met in all sizes.
            const unsigned growth = round < 2000 ? 3 : (round < 4000 ? 1 : 2);
            if (random() % 4 < growth)
                EXPECT_EQ(tree.Set(value), model.emplace(value, true).second);
            else
                EXPECT_EQ(tree.Remove(value), model.erase(value) > 0);
            const bool checked = round % 7 == 0 || range == 8;
            ASSERT_TRUE(!checked || is_sound(tree)) << range << " " << round;
        }
        std::vector<int> expected;
        for (const auto& [value, set] : model) expected.push_back(value);
        EXPECT_EQ(in_order(tree), expected);
        EXPECT_EQ(tree.Count(), expected.size());
    }
}

TEST(zRedBlack, SortedInputStaysShallow) {
    Tree tree;
    for (int value = 0; value < 4096; ++value) tree.Set(value);
    EXPECT_TRUE(is_sound(tree));
    for (int value = 4095; value >= 0; --value) {
        EXPECT_TRUE(tree.Remove(value));
        EXPECT_TRUE(value % 64 != 0 || is_sound(tree));
    }
    EXPECT_TRUE(tree.IsEmpty());
    EXPECT_EQ(tree.First(), nullptr);
}

TEST(zRedBlack, FindGivesTheItemInPlace) {
    Tree tree;
    for (int value : {5, 1, 9}) tree.Set(value);
    ASSERT_NE(tree.Find(9), nullptr);
    EXPECT_EQ(*tree.Find(9), 9);
    EXPECT_EQ(tree.Find(4), nullptr);
    EXPECT_FALSE(tree.Remove(4));
    tree.RemoveAll();
    EXPECT_EQ(tree.Find(9), nullptr);
    EXPECT_TRUE(tree.Set(9));
}

TEST(zRedBlack, SetReplacesWhatComparesAsEqualAndDropsIt) {
    zRedBlack<Span*, Span> spans;
    Span first{0, 10}, touching{10, 20}, inside{5, 12}, before{-5, 3};
    EXPECT_TRUE(spans.Set(&first));
    EXPECT_TRUE(spans.Set(&touching));  // starts where the first ends: both stand
    EXPECT_FALSE(spans.Set(&inside));   // starts inside the first: takes its place
    EXPECT_TRUE(spans.Set(&before));    // only its start is looked at
    EXPECT_EQ(spans.Count(), 3u);
    std::vector<Span*> order;
    for (Span* span : spans) order.push_back(span);
    EXPECT_EQ(order, (std::vector<Span*>{&before, &inside, &touching}));
}

TEST(zRedBlack, FindWithDescendsByAnyRule) {
    zRedBlack<Span*, Span> spans;
    std::vector<Span> all;
    for (long start = 0; start < 100; ++start) all.push_back({start * 10, start * 10 + 8});
    for (Span& span : all) spans.Set(&span);
    const auto at = [&](long time) {
        Span** found = spans.FindWith([time](Span* const& span) {
            return span->start > time ? -1 : (span->stop <= time ? 1 : 0);
        });
        return found != nullptr ? *found : nullptr;
    };
    EXPECT_EQ(at(0), &all[0]);
    EXPECT_EQ(at(557), &all[55]);
    EXPECT_EQ(at(558), nullptr);  // between two of them
    EXPECT_EQ(at(-1), nullptr);
    EXPECT_EQ(at(10000), nullptr);
}

TEST(zRedBlack, DestructionThroughABaseIsComplete) {
    struct Noted : zRedBlack<int, IntOrder> {
        explicit Noted(bool& gone) : fGone(gone) {}
        ~Noted() override { fGone = true; }
        bool& fGone;
    };
    bool gone = false;
    zRedBlack<int, IntOrder>* tree = new Noted(gone);
    tree->Set(1);
    delete tree;
    EXPECT_TRUE(gone);
}

TEST(zMap, ANewKeyStartsWithAnEmptyValue) {
    zMap<long long, int*> map;
    EXPECT_EQ(map[5], nullptr);
    EXPECT_EQ(map.Count(), 1u);
    int value = 3;
    map[5] = &value;
    EXPECT_EQ(*map[5], 3);
    EXPECT_EQ(map.Count(), 1u);
}

TEST(zMap, FindAndRemoveTellWhatIsThere) {
    zMap<std::string, int> map;
    map["a"] = 1;
    map["b"] = 2;
    ASSERT_NE(map.Find("b"), nullptr);
    *map.Find("b") = 7;
    EXPECT_EQ(map["b"], 7);
    EXPECT_EQ(map.Find("c"), nullptr);
    EXPECT_TRUE(map.Remove("a"));
    EXPECT_FALSE(map.Remove("a"));
    int out = -1;
    EXPECT_FALSE(map.RemoveFetch("a", &out));
    EXPECT_EQ(out, -1);
    EXPECT_TRUE(map.RemoveFetch("b", &out));
    EXPECT_EQ(out, 7);
    EXPECT_TRUE(map.IsEmpty());
    map["c"] = 1;
    EXPECT_TRUE(map.RemoveFetch("c", nullptr));
}

TEST(zMap, OrdersByTheComparisonThatItIsGiven) {
    struct Backward {
        static int compare(const int& a, const int& b) { return b - a; }
    };
    zMap<int, int, Backward> map;
    for (int key : {2, 9, 4}) map[key] = key * 10;
    std::vector<int> keys;
    for (auto& entry : map) {
        keys.push_back(entry.fKey);
        EXPECT_EQ(entry.fValue, entry.fKey * 10);
    }
    EXPECT_EQ(keys, (std::vector<int>{9, 4, 2}));
}

TEST(zMap, BehavesAsAPlainMapUnderRandomOperations) {
    std::mt19937 random(5);
    zMap<long long, int> map;
    std::map<long long, int> model;
    for (int round = 0; round < 30000; ++round) {
        const long long key = random() % 400;
        if (random() % 2 == 0) {
            map[key] = round;
            model[key] = round;
            continue;
        }
        int out = -1;
        const auto found = model.find(key);
        ASSERT_EQ(map.RemoveFetch(key, &out), found != model.end());
        if (found == model.end()) continue;
        EXPECT_EQ(out, found->second);
        model.erase(found);
    }
    auto expected = model.begin();
    for (auto& entry : map) {
        ASSERT_NE(expected, model.end());
        EXPECT_EQ(entry.fKey, expected->first);
        EXPECT_EQ(entry.fValue, expected->second);
        ++expected;
    }
    EXPECT_EQ(expected, model.end());
}
