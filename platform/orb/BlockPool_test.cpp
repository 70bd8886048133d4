#include "orb/BlockPool.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "orb/CByteArray.h"
#include "orb/testSupport.h"

namespace Quillon::Orb {
namespace {

TEST(BlockPool, BlocksAreAlignedAndHavePadding) {
    BlockPool pool;
    for (const std::size_t bytes : {0, 1, 63, 256, 257, 4096, 1000000, 4147200, 8294401}) {
        unsigned char* block = pool.Take(bytes);
        ASSERT_NE(nullptr, block);
        EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(block) % BlockPool::kAlignment);
        EXPECT_GE(BlockPool::SizeOf(block), bytes);
        EXPECT_LE(BlockPool::SizeOf(block), bytes < 256 ? 256 : bytes + bytes / 4);
        std::memset(block, 1, BlockPool::SizeOf(block) + BlockPool::kPadding);
        pool.Give(block);
    }
    EXPECT_EQ(nullptr, pool.Take(std::size_t{1} << 60));
    EXPECT_EQ(0, pool.GetCounts().inUse);
}

TEST(BlockPool, EverySizeFallsInAClassThatHoldsIt) {
    BlockPool pool;
    for (std::size_t bytes = 1; bytes < 20000; ++bytes) {
        unsigned char* block = pool.Take(bytes);
        ASSERT_GE(BlockPool::SizeOf(block), bytes);
        pool.Give(block);
    }
    EXPECT_LT(pool.GetCounts().fresh, 40);
}

TEST(BlockPool, ASteadyStreamAsksForNothingFresh) {
    BlockPool pool;
    std::vector<unsigned char*> queue;
    long long fresh = 0;
    for (int frame = 0; frame < 200; ++frame) {
        // A raw frame, and an encoded one of a size that wanders.
        queue.push_back(pool.Take(4147200));
        queue.push_back(pool.Take(static_cast<std::size_t>(180000 + frame * 7919 % 20000)));
        while (queue.size() > 8) {
            pool.Give(queue.front());
            queue.erase(queue.begin());
        }
        if (frame == 20) fresh = pool.GetCounts().fresh;
    }
    EXPECT_EQ(fresh, pool.GetCounts().fresh);
    EXPECT_EQ(400, pool.GetCounts().taken);
    for (unsigned char* block : queue) pool.Give(block);
    EXPECT_EQ(0, pool.GetCounts().inUse);
    pool.Trim();
    EXPECT_EQ(0, pool.GetCounts().idle);
    EXPECT_EQ(0u, pool.GetCounts().idleBytes);
}

TEST(BlockPool, WhatWaitsIsBounded) {
    BlockPool pool;
    std::vector<unsigned char*> blocks;
    for (int i = 0; i < 12; ++i) blocks.push_back(pool.Take(std::size_t{64} << 20));
    for (unsigned char* block : blocks) pool.Give(block);
    EXPECT_EQ(8, pool.GetCounts().idle);
    EXPECT_EQ(0, pool.GetCounts().inUse);
}

TEST(BlockPool, SizesThatNobodyTakesAnyMoreMakeRoomForThoseOfNow) {
    // An 8K recording has ended and fills the pool to the byte; a 1080p one begins.
    BlockPool pool;
    std::vector<unsigned char*> blocks;
    for (int i = 0; i < 4; ++i) blocks.push_back(pool.Take(std::size_t{128} << 20));
    for (unsigned char* block : blocks) pool.Give(block);
    const BlockPool::Counts before = pool.GetCounts();
    for (int frame = 0; frame < 20; ++frame) {
        unsigned char* raw = pool.Take(4147200);
        unsigned char* encoded = pool.Take(200000);
        pool.Give(raw);
        pool.Give(encoded);
        ASSERT_LE(pool.GetCounts().idleBytes, std::size_t{512} << 20);
    }
    EXPECT_EQ(before.fresh + 2, pool.GetCounts().fresh);
    EXPECT_EQ(3 + 2, pool.GetCounts().idle);
}

TEST(BlockPool, WhatWasNotTakenForLongestGoesFirst) {
    BlockPool pool;
    constexpr std::size_t kMegabyte = std::size_t{1} << 20;
    unsigned char* const old = pool.Take(128 * kMegabyte);
    unsigned char* const small = pool.Take(kMegabyte);
    pool.Give(old);
    pool.Give(small);
    // Taken since, though it was given back before: the small one.
    pool.Give(pool.Take(kMegabyte));
    std::vector<unsigned char*> blocks;
    for (int i = 0; i < 8; ++i) blocks.push_back(pool.Take(56 * kMegabyte));
    for (unsigned char* block : blocks) pool.Give(block);
    const BlockPool::Counts counts = pool.GetCounts();
    EXPECT_EQ(1 + 8, counts.idle);
    EXPECT_EQ((1 + 8 * 56) * kMegabyte, counts.idleBytes);
    unsigned char* again = pool.Take(kMegabyte);
    EXPECT_EQ(counts.fresh, pool.GetCounts().fresh);
    pool.Give(again);
}

TEST(BlockPool, ABlockThatNeverFitsTakesNoneOfTheOthersPlaces) {
    BlockPool pool;
    pool.Give(pool.Take(4147200));
    pool.Give(pool.Take((std::size_t{512} << 20) + 1));
    EXPECT_EQ(1, pool.GetCounts().idle);
    EXPECT_EQ(0, pool.GetCounts().inUse);
}

TEST(BlockPool, BlocksPassBetweenThreads) {
    BlockPool pool;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&pool, i] {
            for (int n = 0; n < 2000; ++n) {
                unsigned char* block = pool.Take(static_cast<std::size_t>(1000 * (i + 1)));
                block[0] = static_cast<unsigned char>(n);
                std::thread::id self = std::this_thread::get_id();
                std::memcpy(block + 1, &self, sizeof self);
                pool.Give(block);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(8000, pool.GetCounts().taken);
    EXPECT_EQ(0, pool.GetCounts().inUse);
}

TEST(BlockPool, BlockGoesBackByItself) {
    const long long before = BlockPool::Shared().GetCounts().inUse;
    {
        Block a(1000);
        Block b = std::move(a);
        EXPECT_FALSE(a);
        EXPECT_TRUE(b);
        a = Block(2000);
        b = std::move(a);
        EXPECT_EQ(before + 1, BlockPool::Shared().GetCounts().inUse);
        BlockPool::Shared().Give(b.Detach());
    }
    EXPECT_EQ(before, BlockPool::Shared().GetCounts().inUse);
}

TEST(CByteArray, CopiesWrapsOrAllocates) {
    const long long before = BlockPool::Shared().GetCounts().inUse;
    unsigned char bytes[] = {1, 2, 3, 4};
    RObject<CByteArray> copy(new CByteArray(bytes, 4));
    RObject<CByteArray> wrap(new CByteArray(4, bytes, nullptr));
    bytes[0] = 9;
    EXPECT_EQ(1, copy->GetData()[0]);
    EXPECT_EQ(bytes, wrap->GetData());
    EXPECT_EQ(4, wrap->GetLength());
    RObject<CByteArray> block(new CByteArray(1000, 1));
    EXPECT_EQ(1000, block->GetLength());
    EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(block->GetData()) % BlockPool::kAlignment);
    EXPECT_EQ(before + 2, BlockPool::Shared().GetCounts().inUse);
    copy.Clear();
    block.Clear();
    EXPECT_EQ(before, BlockPool::Shared().GetCounts().inUse);
}

TEST(CByteArray, WrappedBytesKeepTheirOwner) {
    unsigned char bytes[4] = {};
    RObject<Counted> owner(new Counted);
    RObject<CByteArray> wrap(new CByteArray(4, bytes, owner.Get()));
    EXPECT_TRUE(owner->IsShared());
    wrap.Clear();
    EXPECT_FALSE(owner->IsShared());
}

TEST(CByteArray, NothingIsAnEmptyArray) {
    unsigned char byte = 7;
    RObject<CByteArray> none(new CByteArray(static_cast<const unsigned char*>(nullptr), 10));
    RObject<CByteArray> empty(new CByteArray(&byte, 0));
    RObject<CByteArray> negative(new CByteArray(-5, 1));
    RObject<CByteArray> huge(new CByteArray(0x7FFFFFFF, 16));
    for (const RObject<CByteArray>* array : {&none, &empty, &negative, &huge}) {
        EXPECT_EQ(0, (*array)->GetLength());
        EXPECT_EQ(nullptr, (*array)->GetData());
    }
    EXPECT_TRUE(none->Equals(empty.Get()));
    EXPECT_EQ(none->GetHashCode(), empty->GetHashCode());
}

TEST(CByteArray, ComparesBytesAndShortens) {
    RObject<CByteArray> a = bytes_of({1, 2, 3});
    RObject<CByteArray> b = bytes_of({1, 2, 3, 4});
    EXPECT_FALSE(a->Equals(b.Get()));
    b->Shorten(3);
    EXPECT_TRUE(a->Equals(b.Get()));
    EXPECT_EQ(a->GetHashCode(), b->GetHashCode());
    b->Shorten(5);
    EXPECT_EQ(3, b->GetLength());
    EXPECT_FALSE(a->Equals(nullptr));
}

}  // namespace
}  // namespace Quillon::Orb
