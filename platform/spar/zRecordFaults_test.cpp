#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <string>

#include "spar/zMemoryStream.h"
#include "spar/zPool.h"
#include "spar/zRecord.h"
#include "spar/zString.h"
#include "spar/zXML.h"

#include "tests/support/randomRecords.h"

// Memory that runs out at the first, second, third ... allocation, until an operation gets through.
// Each time nothing is leaked, the source is as it was and the target can still be used.
//
// Plain arrays grow by realloc, which runs out like the rest: the linker leads its calls here.
//
// The sanitizers bring allocators of their own, which are better left alone.
extern "C" void* __real_realloc(void* block, std::size_t size);

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

extern "C" void* __wrap_realloc(void* block, std::size_t size) {
    return __real_realloc(block, size);
}

#else

namespace {

thread_local long gLeft = -1;  // allocations until one fails; -1: none does
thread_local long gLive = 0;   // blocks of this thread's

void* allocated(std::size_t size) {
    if (gLeft == 0) throw std::bad_alloc();
    if (gLeft > 0) --gLeft;
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) throw std::bad_alloc();
    ++gLive;
    return block;
}

void freed(void* block) {
    if (block == nullptr) return;
    --gLive;
    std::free(block);
}

}  // namespace

extern "C" void* __wrap_realloc(void* block, std::size_t size) {
    if (gLeft == 0) return nullptr;
    if (gLeft > 0) --gLeft;
    return __real_realloc(block, size);
}

void* operator new(std::size_t size) {
    return allocated(size);
}
void* operator new[](std::size_t size) {
    return allocated(size);
}
void operator delete(void* block) noexcept {
    freed(block);
}
void operator delete[](void* block) noexcept {
    freed(block);
}
void operator delete(void* block, std::size_t) noexcept {
    freed(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    freed(block);
}

namespace {

zRecord tree() {
    zRecord record;
    record.SetCString('xTag', "movie with a name that no string keeps in itself");
    for (int i = 0; i < 20; ++i) record.SetInt32(i, i);
    for (int i = 20; i < 24; ++i) record.SetCString(i, std::string(30, 'x').c_str());
    for (int i = 0; i < 3; ++i) {
        auto* child = new zRecord;
        child->SetCString('name', "child");
        child->AddChild(new zRecord, 0x7FFFFFFF);
        record.AddChild(child, 0x7FFFFFFF);
    }
    return record;
}

/// Runs `operation` on a record made by `prepare`, failing the Nth allocation, for growing N.
/// Gives the number of failures it took.
long sweep(const std::function<void(zRecord&)>& prepare,
           const std::function<void(zRecord&, const zRecord&)>& operation) {
    const zRecord source = tree();
    const zRecord before(source);
    {
        zRecord first;  // makes the ids of the keys in use, which stay
        prepare(first);
        operation(first, source);
        first.SetInt32("after", 0);
    }
    for (long failing = 0;; ++failing) {
        const long live = gLive;
        bool failed = false;
        {
            zRecord target;
            prepare(target);
            gLeft = failing;
            try {
                operation(target, source);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            gLeft = -1;
            EXPECT_TRUE(records::Same(source, before));
            target.SetCString("after", "still of use");
            EXPECT_EQ(target.AsString("after", ""), "still of use");
            target.ForEachVariable([](const zVariable& variable) {
                EXPECT_TRUE(variable.IsSet());
                return true;
            });
            const zRecord copy(target);
            EXPECT_TRUE(records::Same(copy, target));
            target = source;
            EXPECT_TRUE(records::Same(target, source));
        }
        EXPECT_EQ(gLive, live) << "leaked when allocation " << failing << " failed";
        if (!failed || ::testing::Test::HasFailure()) return failing;
    }
}

void nothing(zRecord&) {}

void filled(zRecord& record) {
    records::Random random(9);
    records::FillRandom(record, random, 2);
    record.SetCString('text', "held");
}

TEST(zRecordFaults, CopyingIntoANewRecord) {
    EXPECT_GT(sweep(nothing, [](zRecord&, const zRecord& source) { const zRecord copy(source); }),
              5);
}

TEST(zRecordFaults, CopyingOverAnother) {
    EXPECT_GT(sweep(filled, [](zRecord& target, const zRecord& source) { target = source; }), 5);
}

TEST(zRecordFaults, Setting) {
    EXPECT_GT(sweep(nothing,
                    [](zRecord& target, const zRecord&) {
                        for (int i = 0; i < 20; ++i) target.SetInt32(i, i);
                        target.SetCString('text', "a text");
                        target.SetCString('text', "another");
                        target.SetString("record_faults_key", "by key");
                    }),
              5);
}

TEST(zRecordFaults, MakingAnId) {
    // Thousands, so that the tables grow on the way.
    for (int number = 0; number < 5000; ++number) {
        const std::string key = "record_faults_made_with_a_long_name_" + std::to_string(number);
        zRecord record;
        gLeft = number % 3;
        try {
            record.SetInt32(key.c_str(), number);
        } catch (const std::bad_alloc&) {
            gLeft = -1;
            EXPECT_TRUE(record.IsEmpty());
        }
        gLeft = -1;
        record.SetInt32(key.c_str(), number);
        ASSERT_EQ(record.AsInt32(key.c_str(), -1), number);
    }
}

TEST(zRecordFaults, AddingAChildThatBelongsToTheRecordInAnyCase) {
    EXPECT_GT(sweep(filled,
                    [](zRecord& target, const zRecord&) {
                        for (int i = 0; i < 9; ++i) target.AddChild(new zRecord, 0);
                    }),
              5);
}

TEST(zRecordFaults, TakingFromAnother) {
    EXPECT_GT(sweep(filled,
                    [](zRecord& target, const zRecord& source) {
                        zRecord taken(source);
                        target.TakeFrom(taken);
                    }),
              5);
}

TEST(zRecordFaults, ReadingAndWritingXML) {
    zMemoryStream text;
    const zRecord written = tree();
    ASSERT_EQ(zXML::WriteStream(5, &written, &text, "\n", 0), 0);
    EXPECT_GT(sweep(filled,
                    [&](zRecord& target, const zRecord& source) {
                        zMemoryStream stream;
                        zXML::WriteStream(5, &source, &stream, "\n", 0);
                        zXML::ParseMemory(1, &target, text.Content().data(), text.Content().size());
                    }),
              20);
}

TEST(zStringFaults, RoomThatCannotBeHadIsNull) {
    zString text("a text that is long enough to live on the heap");
    gLeft = 0;
    char* room = text.Preallocate(100000);
    gLeft = -1;
    EXPECT_EQ(room, nullptr);
    EXPECT_EQ(text, "a text that is long enough to live on the heap");
}

/// What a pool holds, as text: a letter an entry, free or taken.
template <class Pool>
std::string states(const Pool& pool) {
    std::string text;
    for (int i = 0; i < pool.Count(); ++i) text += pool.StateAt(i) == Pool::kTaken ? 't' : 'f';
    return text;
}

// To just past the 64 positions where the set of free ones gets a level more.
TEST(zPoolFaults, AnItemThatFindsNoRoomStaysTheCallersAndThePoolAsItWas) {
    const long live = gLive;
    int failures = 0;
    {
        zPool<int, zPoolAllocator<int>> pool;
        for (int position = 0; position < 140; ++position) {
            auto* item = new int(position);
            const std::string before = states(pool);
            int added = -1024;
            for (long failing = 0; added == -1024 && failing < 100; ++failing) {
                gLeft = failing;
                added = pool.Add(item);
                gLeft = -1;
                if (added != -1024) continue;
                ++failures;
                ASSERT_EQ(states(pool), before);
                ASSERT_EQ(pool.Return(item), -1) << "it is none of the pool's";
                // All but one are taken; that one still goes round, and nothing else does.
                int* lent = nullptr;
                ASSERT_EQ(pool.Get(&lent), position > 0 ? position - 1 : -1);
                if (position == 0) continue;
                ASSERT_EQ(*lent, position - 1);
                ASSERT_EQ(pool.Return(lent), 0);
            }
            ASSERT_EQ(added, position);
            int* taken = nullptr;  // leaves the new one as the only one that is free
            if (position > 0) {
                ASSERT_EQ(pool.Get(&taken), position - 1);
            }
            gLeft = 0;  // neither needs memory
            if (position > 0) {
                ASSERT_EQ(pool.Return(taken), 0);
                ASSERT_EQ(pool.Get(&taken), position - 1);
            }
            gLeft = -1;
        }
    }
    EXPECT_GT(failures, 10);
    EXPECT_EQ(gLive, live);
}

}  // namespace

#endif
