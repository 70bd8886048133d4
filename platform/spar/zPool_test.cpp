#include "spar/zPool.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "spar/zHeap.h"
#include "spar/zLowestBit.h"

namespace {

struct Item {
    static inline std::atomic<int> gAlive{0};
    Item() { ++gAlive; }
    ~Item() { --gAlive; }
    std::atomic<bool> fTaken{false};
};
using Pool = zPool<Item, zPoolAllocator<Item>>;

void fill(Pool& pool, int count) {
    for (int i = 0; i < count; ++i) ASSERT_EQ(pool.Add(new Item), i);
}

}  // namespace

TEST(zPool, TheLowestFreeEntryGoesOutFirst) {
    Pool pool;
    fill(pool, 3);
    Item* items[3];
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(pool.Get(&items[i]), i);
        EXPECT_EQ(items[i], pool.ItemAt(i));
        EXPECT_EQ(pool.StateAt(i), Pool::kTaken);
    }
    EXPECT_EQ(pool.Return(items[2]), 0);
    EXPECT_EQ(pool.Return(items[1]), 0);
    EXPECT_EQ(pool.StateAt(1), Pool::kFree);
    Item* again = nullptr;
    EXPECT_EQ(pool.Get(&again), 1);
    EXPECT_EQ(again, items[1]);
}

TEST(zPool, AnEmptyPoolGivesNothingAndLeavesThePointer) {
    Pool pool;
    Item mark;
    Item* out = &mark;
    EXPECT_EQ(pool.Get(&out), -1);
    EXPECT_EQ(out, &mark);
    fill(pool, 1);
    EXPECT_EQ(pool.Get(&out), 0);
    EXPECT_EQ(pool.Get(&out), -1);
}

TEST(zPool, ReturnRefusesWhatIsNotTaken) {
    Pool pool;
    fill(pool, 2);
    Item stranger;
    EXPECT_EQ(pool.Return(&stranger), -1);
    EXPECT_EQ(pool.Return(nullptr), -1);
    EXPECT_EQ(pool.Return(pool.ItemAt(0)), -1);
    Item* taken = nullptr;
    pool.Get(&taken);
    EXPECT_EQ(pool.Return(taken), 0);
    EXPECT_EQ(pool.Return(taken), -1);
}

TEST(zPool, RemoveAndDeleteAllTakesFreeAndTakenAlike) {
    const int before = Item::gAlive;
    Pool pool;
    fill(pool, 5);
    Item* taken = nullptr;
    pool.Get(&taken);
    pool.RemoveAndDeleteAll();
    EXPECT_EQ(Item::gAlive, before);
    EXPECT_EQ(pool.Count(), 0);
    EXPECT_EQ(pool.ItemAt(0), nullptr);
    EXPECT_EQ(pool.StateAt(0), 0);
    EXPECT_EQ(pool.Get(&taken), -1);
    fill(pool, 2);  // usable again, from position 0
    EXPECT_EQ(pool.Get(&taken), 0);
}

TEST(zPool, DestructionDeletesWhatIsLeft) {
    const int before = Item::gAlive;
    {
        Pool pool;
        fill(pool, 70);
    }
    EXPECT_EQ(Item::gAlive, before);
}

TEST(zPool, DeletesThroughItsAllocator) {
    struct Counting {
        static int& deleted() {
            static int count = 0;
            return count;
        }
        static void Delete(int* item) {
            delete item;
            ++deleted();
        }
    };
    zPool<int, Counting> pool;
    pool.Add(new int(1));
    pool.RemoveAndDeleteAll();
    EXPECT_EQ(Counting::deleted(), 1);
}

// Against the plainest pool there is: a flag an entry, scanned from the front. The sizes lie around
// the 64 and the 4096 where the set of free positions gets another level.
TEST(zPool, BehavesAsALinearScanUnderRandomOperations) {
    std::mt19937 random(3);
    for (int most : {1, 63, 64, 65, 300, 4097}) {
        Pool pool;
        std::vector<bool> taken;
        for (int round = 0; round < 20000; ++round) {
            const unsigned dice = random() % 16;
            if (static_cast<int>(taken.size()) < most && (dice == 0 || most > 1000)) {
                ASSERT_EQ(pool.Add(new Item), static_cast<int>(taken.size()));
                taken.push_back(false);
            }
            if (dice < 9) {
                const auto free = std::find(taken.begin(), taken.end(), false);
                Item* item = nullptr;
                const int position = pool.Get(&item);
                if (free == taken.end()) {
                    ASSERT_EQ(position, -1);
                    continue;
                }
                ASSERT_EQ(position, free - taken.begin());
                *free = true;
            } else if (!taken.empty()) {
                const auto position = random() % taken.size();
                const int expected = taken[position] ? 0 : -1;
                ASSERT_EQ(pool.Return(pool.ItemAt(static_cast<int>(position))), expected);
                taken[position] = false;
            }
        }
    }
}

TEST(zPool, NoEntryIsLentToTwoThreads) {
    Pool pool;
    fill(pool, 5);
    std::atomic<int> doubled{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back([&] {
            for (int round = 0; round < 10000; ++round) {
                Item* item = nullptr;
                if (pool.Get(&item) < 0) continue;
                if (item->fTaken.exchange(true)) ++doubled;
                item->fTaken.store(false);
                if (pool.Return(item) != 0) ++doubled;
                if (round == 5000) pool.Add(new Item);
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(doubled, 0);
    EXPECT_EQ(pool.Count(), 9);
}

TEST(zLowestBit, GivesTheLowestAcrossAllLevels) {
    zLowestBit bits;
    EXPECT_EQ(bits.Lowest(), -1);
    constexpr int kCount = 64 * 64 * 3 + 5;
    std::set<int> model;
    std::mt19937 random(17);
    for (int position = 0; position < kCount; ++position) {
        bits.Grow(position);
        if (random() % 3 != 0) continue;
        bits.Set(position);
        model.insert(position);
    }
    while (!model.empty()) {
        ASSERT_EQ(bits.Lowest(), *model.begin());
        bits.Clear(*model.begin());
        model.erase(model.begin());
        if (random() % 4 != 0) continue;
        const int position = static_cast<int>(random() % kCount);
        bits.Set(position);
        model.insert(position);
    }
    EXPECT_EQ(bits.Lowest(), -1);
}

TEST(zHeap, AnIndexOutOfRangeReachesTheDummy) {
    zHeap<int> heap;
    heap[0] = 77;
    heap[-1] = 78;
    EXPECT_EQ(heap.Count(), 0);
    ASSERT_EQ(heap.Append(5), 0);
    EXPECT_EQ(heap[0], 5);
    heap[1] = 9;
    EXPECT_EQ(heap[0], 5);
    EXPECT_EQ(&heap[1], &heap[-1]);
    const zHeap<int>& readOnly = heap;
    EXPECT_EQ(&readOnly[1], &heap[7]);
}

TEST(zHeap, AllocateMakesRoomAndZeroesIfAsked) {
    zHeap<int> heap;
    ASSERT_EQ(heap.Append(1), 0);
    const int capacity = heap.Capacity();
    ASSERT_EQ(heap.Allocate(100, true), 0);
    EXPECT_EQ(heap.Capacity(), capacity + 100);
    EXPECT_EQ(heap.Count(), 1);
    EXPECT_EQ(heap[0], 1);
    EXPECT_EQ(heap.Allocate(-1, false), -1024);
    EXPECT_EQ(heap.Allocate(0x7FFFFFFF, false), -1024);
    EXPECT_EQ(heap.Capacity(), capacity + 100);
}

TEST(zHeap, AppendTakesAnItemOfItsOwn) {
    zHeap<long> heap;
    heap.Append(42);
    for (int i = 0; i < 1000; ++i) heap.Append(heap[0]);
    EXPECT_EQ(heap.Count(), 1001);
    for (int i = 0; i < 1001; ++i) ASSERT_EQ(heap[i], 42);
    heap.RemoveAll();
    EXPECT_EQ(heap.Count(), 0);
    EXPECT_EQ(heap.Capacity(), 0);
}
