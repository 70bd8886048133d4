#include "tarn/movies/tnStreamBuffer.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/movies/tnStreamBufferGroup.h"

namespace {

TEST(StreamBuffer, IsAlignedAndKnowsItsSize) {
    for (const int size : {1, 31, 4096, 100000}) {
        tnStreamBuffer buffer;
        ASSERT_EQ(buffer.Create(size, nullptr), 0);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer.GetPointer()) % 32, 0u);
        EXPECT_EQ(buffer.GetDataSize(), size);
        EXPECT_EQ(buffer.GetNumberOfSamples(), 1);
        EXPECT_EQ(buffer.GetDurationForData(), 0);
        EXPECT_EQ(buffer.GetOutputDeviceData(), nullptr);
    }
}

TEST(StreamBuffer, OfSizeZeroHasNoMemory) {
    tnStreamBufferGroup group;
    tnStreamBuffer buffer;
    EXPECT_EQ(buffer.Create(0, &group), 0);
    EXPECT_EQ(buffer.GetPointer(), nullptr);
    EXPECT_EQ(buffer.GetDataSize(), 0);
}

TEST(StreamBuffer, OfAnAbsurdSizeIsRefused) {
    tnStreamBuffer buffer;
    EXPECT_EQ(buffer.Create(-5, nullptr), -1024);
    EXPECT_EQ(buffer.GetPointer(), nullptr);
}

TEST(StreamBuffer, WithoutAGroupCountsAllTheSame) {
    tnStreamBuffer buffer;
    EXPECT_EQ(buffer.AddWritingRef(), 1);
    EXPECT_EQ(buffer.AddWritingRef(), 2);
    EXPECT_EQ(buffer.ReleaseWriting(), 1);
    EXPECT_EQ(buffer.ReleaseWriting(), 0);
}

struct Returns {
    int count = 0;
    tnStreamBuffer* last = nullptr;

    static void note(tnStreamBuffer* buffer, void* user) {
        auto* self = static_cast<Returns*>(user);
        ++self->count;
        self->last = buffer;
    }
};

TEST(StreamBufferGroup, GetsABufferBackWithTheLastReferenceAndTellsOnce) {
    tnStreamBufferGroup group;
    ASSERT_EQ(group.CreateBuffers(1, 16, false), 0);
    Returns returns;
    group.SetBufferReturnFunction(Returns::note, &returns);
    tnStreamBuffer* buffer = nullptr;
    ASSERT_EQ(group.GetBuffer(&buffer, false), 0);
    buffer->AddWritingRef();
    buffer->AddWritingRef();
    EXPECT_EQ(buffer->ReleaseWriting(), 1);
    EXPECT_EQ(returns.count, 0);
    EXPECT_EQ(buffer->ReleaseWriting(), 0);
    EXPECT_EQ(returns.count, 1);
    EXPECT_EQ(returns.last, buffer);
}

TEST(StreamBufferGroup, AReleaseTooManyIsNotSeenAndTheBufferStaysTaken) {
    tnStreamBufferGroup group;
    ASSERT_EQ(group.CreateBuffers(1, 16, false), 0);
    Returns returns;
    group.SetBufferReturnFunction(Returns::note, &returns);
    tnStreamBuffer* buffer = nullptr;
    ASSERT_EQ(group.GetBuffer(&buffer, false), 0);
    EXPECT_EQ(buffer->ReleaseWriting(), -1);
    EXPECT_EQ(returns.count, 0);
    tnStreamBuffer* other = buffer;
    EXPECT_EQ(group.GetBuffer(&other, false), -1025);
    EXPECT_EQ(other, nullptr);
    group.buffer_returned(nullptr);
    EXPECT_EQ(returns.count, 0) << "nothing is ignored";
}

TEST(StreamBufferGroup, TheReturnFunctionMayTakeTheBufferAgainAtOnce) {
    tnStreamBufferGroup group;
    ASSERT_EQ(group.CreateBuffers(1, 16, false), 0);
    struct Taker {
        tnStreamBufferGroup* group;
        tnStreamBuffer* taken;
    } taker{&group, nullptr};
    group.SetBufferReturnFunction(
        [](tnStreamBuffer*, void* user) {
            auto* self = static_cast<Taker*>(user);
            self->group->GetBuffer(&self->taken, false);
        },
        &taker);
    tnStreamBuffer* buffer = nullptr;
    ASSERT_EQ(group.GetBuffer(&buffer, false), 0);
    buffer->ReturnToGroupIfWritingRefCountIsZero();
    EXPECT_EQ(taker.taken, buffer);
    group.SetBufferReturnFunction(nullptr, nullptr);
}

TEST(StreamBufferGroup, LeavesAReferencedBufferAlone) {
    tnStreamBufferGroup group;
    ASSERT_EQ(group.CreateBuffers(1, 16, false), 0);
    tnStreamBuffer* buffer = nullptr;
    ASSERT_EQ(group.GetBuffer(&buffer, false), 0);
    buffer->AddWritingRef();
    EXPECT_EQ(buffer->ReturnToGroupIfWritingRefCountIsZero(), 1);
    tnStreamBuffer* other = buffer;
    EXPECT_EQ(group.GetBuffer(&other, false), -1025);
    EXPECT_EQ(other, nullptr);
}

TEST(StreamBufferGroup, HandsOutTheLowestFreeBuffer) {
    tnStreamBufferGroup group;
    ASSERT_EQ(group.CreateBuffers(3, 16, false), 0);
    tnStreamBuffer* taken[3] = {};
    for (tnStreamBuffer*& buffer : taken) ASSERT_EQ(group.GetBuffer(&buffer, false), 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(taken[i], group.PeekBufferAt(i));
    taken[2]->ReturnToGroupIfWritingRefCountIsZero();
    taken[0]->ReturnToGroupIfWritingRefCountIsZero();
    tnStreamBuffer* again = nullptr;
    ASSERT_EQ(group.GetBuffer(&again, false), 0);
    EXPECT_EQ(again, taken[0]);
}

TEST(StreamBufferGroup, GrowsOnlyWhenAsked) {
    tnMediaRecord format(TN_MEDIA_VIDEO);
    format.fWidth.SetInt32(64);
    format.fHeight.SetInt32(32);
    format.fColourspace.SetInt32('2vuy');
    const std::unique_ptr<tnStreamBufferGroup> group(
        tnStreamBufferGroup::CreateForFormat(format, 0));
    ASSERT_NE(group, nullptr);
    tnStreamBuffer before;
    tnStreamBuffer* buffer = &before;
    EXPECT_EQ(group->GetBuffer(nullptr, true), -22);
    EXPECT_EQ(group->GetBuffer(&buffer, false), -1025);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(group->GetBuffer(&buffer, true), 0);
    EXPECT_EQ(buffer->GetDataSize(), 128 * 32);
    EXPECT_EQ(group->PeekBufferAt(0), buffer);
    EXPECT_EQ(group->PeekBufferAt(1), nullptr);
}

TEST(StreamBufferGroup, SizesItsBuffersForTheFormat) {
    struct Case {
        int raster, width, height, bytesPerRow, size;
    };
    const Case cases[] = {
        {'I420', 1920, 1080, 0, 1920 * 1620},
        {'2vuy', 1920, 1080, 0, 3840 * 1080},
        {'2vuy', 1920, 1080, 5000, 5000 * 1080},
        {'NV12', 100, 11, 0, 128 * 16},
        {'BGRA', 640, 480, 0, 0},
    };
    for (const Case& c : cases) {
        tnMediaRecord format(TN_MEDIA_VIDEO);
        format.fColourspace.SetInt32(c.raster);
        format.fWidth.SetInt32(c.width);
        format.fHeight.SetInt32(c.height);
        if (c.bytesPerRow) format.fBytesPerRow.SetInt32(c.bytesPerRow);
        const std::unique_ptr<tnStreamBufferGroup> group(
            tnStreamBufferGroup::CreateForFormat(format, 1));
        EXPECT_EQ(group->PeekBufferAt(0)->GetDataSize(), c.size);
    }
    tnMediaRecord sound;
    sound.MakeDefaultAudioFormat();
    sound.fBusses.SetInt32(4);
    const std::unique_ptr<tnStreamBufferGroup> group(
        tnStreamBufferGroup::CreateForFormat(sound, 1));
    EXPECT_EQ(group->PeekBufferAt(0)->GetDataSize(), 2 * 2 * 48000)
        << "a second, without the busses";
    const std::unique_ptr<tnStreamBufferGroup> untyped(
        tnStreamBufferGroup::CreateForFormat(tnMediaRecord(), 1));
    EXPECT_EQ(untyped->PeekBufferAt(0)->GetDataSize(), 0);
}

TEST(StreamBufferGroup, TellsOfExhaustedMemory) {
    tnStreamBufferGroup group;
    EXPECT_EQ(group.CreateBuffers(2, -1, true), -1024);
    tnMediaRecord format(TN_MEDIA_VIDEO);
    format.fBytesPerRow.SetInt32(-1);
    format.fHeight.SetInt32(1);
    EXPECT_EQ(tnStreamBufferGroup::CreateForFormat(format, 1), nullptr);
    const std::unique_ptr<tnStreamBufferGroup> empty(
        tnStreamBufferGroup::CreateForFormat(format, 0));
    tnStreamBuffer before;
    tnStreamBuffer* buffer = &before;
    EXPECT_EQ(empty->GetBuffer(&buffer, true), -1025) << "it cannot grow";
    EXPECT_EQ(buffer, nullptr);
}

/// Makes as many buffers as it is told to, and then none.
class ShortGroup final : public tnStreamBufferGroup {
public:
    explicit ShortGroup(int buffers) : fLeft(buffers) {}
    tnStreamBuffer* create_and_add_buffer() override {
        return fLeft-- > 0 ? tnStreamBufferGroup::create_and_add_buffer() : nullptr;
    }

private:
    int fLeft;
};

TEST(StreamBufferGroup, KeepsTheBuffersThatItGotBeforeMemoryRanOut) {
    ShortGroup group(2);
    EXPECT_EQ(group.CreateBuffers(5, 64, false), -1024);
    tnStreamBuffer* first = nullptr;
    tnStreamBuffer* second = nullptr;
    ASSERT_EQ(group.GetBuffer(&first, false), 0);
    ASSERT_EQ(group.GetBuffer(&second, false), 0);
    EXPECT_NE(first, second);
    tnStreamBuffer* third = first;
    EXPECT_EQ(group.GetBuffer(&third, false), -1025);
    EXPECT_EQ(third, nullptr);
}

TEST(StreamBufferGroup, OfNoBuffersKnowsTheSizeThatItGrowsBy) {
    for (const int count : {0, -1}) {
        tnStreamBufferGroup group;
        EXPECT_EQ(group.CreateBuffers(count, 64, false), 0);
        tnStreamBuffer* buffer = nullptr;
        EXPECT_EQ(group.GetBuffer(&buffer, false), -1025);
        ASSERT_EQ(group.GetBuffer(&buffer, true), 0);
        EXPECT_EQ(buffer->GetDataSize(), 64);
    }
}

/// Its buffers come full of 0xAA, so that whatever is written into them shows.
class FilledGroup final : public tnStreamBufferGroup {
public:
    static constexpr unsigned char kFill = 0xAA;

    tnStreamBuffer* create_and_add_buffer() override {
        tnStreamBuffer* const buffer = tnStreamBufferGroup::create_and_add_buffer();
        const auto size = static_cast<std::size_t>(buffer->GetDataSize());
        std::memset(buffer->GetPointer(), kFill, size);
        return buffer;
    }
    const unsigned char* Bytes(int buffer) {
        return static_cast<const unsigned char*>(PeekBufferAt(buffer)->GetPointer());
    }
};

//  page      0         1         2         3
//  bytes     0aaa ...  0aaa ...  0aaa ...  aaaaa         five bytes are no page
TEST(StreamBufferGroup, TouchesWholePagesOnly) {
    constexpr int kSize = 3 * 4096 + 5;
    FilledGroup group;
    EXPECT_EQ(group.CreateBuffers(1, kSize, true), 0);
    for (int at = 0; at < kSize; ++at) {
        const bool isTouched = at == 0 || at == 4096 || at == 8192;
        ASSERT_EQ(group.Bytes(0)[at], isTouched ? 0 : FilledGroup::kFill) << at;
    }
    EXPECT_EQ(group.CreateBuffers(2, 1000, true), 0);
    EXPECT_EQ(group.Bytes(1)[0], FilledGroup::kFill);
    EXPECT_EQ(group.Bytes(2)[0], FilledGroup::kFill);
    EXPECT_EQ(group.CreateBuffers(1, 4096, true), 0);
    EXPECT_EQ(group.Bytes(3)[0], 0);
    EXPECT_EQ(group.CreateBuffers(1, kSize, false), 0);
    EXPECT_EQ(group.Bytes(4)[0], FilledGroup::kFill) << "only when asked";
}

TEST(StreamBufferGroup, IsSharedByThreads) {
    tnStreamBufferGroup group;
    ASSERT_EQ(group.CreateBuffers(4, 64, false), 0);
    auto work = [&group] {
        for (int i = 0; i < 5000; ++i) {
            tnStreamBuffer* buffer = nullptr;
            if (group.GetBuffer(&buffer, false) != 0) continue;
            static_cast<char*>(buffer->GetPointer())[0] = 1;
            buffer->AddWritingRef();
            buffer->ReleaseWriting();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) threads.emplace_back(work);
    for (std::thread& thread : threads) thread.join();
    for (int i = 0; i < 4; ++i) {
        tnStreamBuffer* buffer = nullptr;
        EXPECT_EQ(group.GetBuffer(&buffer, false), 0) << "all came back";
    }
}

}  // namespace
