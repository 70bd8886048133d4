// Tracks, samples and conversions for which there is no memory: each kind of track has a code of
// its own. The linker puts what stands here in front of allocations, see tarn/CMakeLists.txt.

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <set>
#include <vector>

#include "orb/BlockPool.h"
#include "orb/CAssetAudioCompressor.h"
#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoCompressor.h"
#include "orb/CAudioSample.h"
#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "tarn/audio/tnAudioConverter.h"
#include "tarn/writers/orbConversions.h"

#include "tests/support/WriterFixture.h"

using namespace writerFixture;

namespace {

thread_local std::size_t gFailingSize = 0;   // of objects that are not to be had
thread_local int gObjectsLeft = -1;          // until one is not to be had; -1: all are
thread_local bool gNoConverter = false;      // of sound
thread_local std::size_t gFailingArray = 0;  // bytes that are not to be had
thread_local std::size_t gUsedArray = 0;     // bytes that somebody had before
constexpr int kWhatSomebodyLeft = 0x41;

/// There is no memory for objects of that size as long as this lives.
class NoMemoryFor {
public:
    explicit NoMemoryFor(std::size_t size) { gFailingSize = size; }
    ~NoMemoryFor() { gFailingSize = 0; }
    NoMemoryFor(const NoMemoryFor&) = delete;
    NoMemoryFor& operator=(const NoMemoryFor&) = delete;
};

}  // namespace

// CObject::operator new
extern "C" void* __real__ZN7Quillon3Orb7CObjectnwEm(std::size_t size) noexcept;
extern "C" void* __wrap__ZN7Quillon3Orb7CObjectnwEm(std::size_t size) noexcept {
    if (gObjectsLeft == 0) return nullptr;
    if (gObjectsLeft > 0) --gObjectsLeft;
    return size == gFailingSize ? nullptr : __real__ZN7Quillon3Orb7CObjectnwEm(size);
}

// tnAudioConverter::Factory, and the new of arrays. Shared libraries refer to the latter, and the
// linker wants what stands in front to be as visible; they call the real one all the same.
extern "C" tnAudioConverter* __real__ZN16tnAudioConverter7FactoryEv();
extern "C" tnAudioConverter* __wrap__ZN16tnAudioConverter7FactoryEv() {
    if (gNoConverter) throw std::bad_alloc();
    return __real__ZN16tnAudioConverter7FactoryEv();
}
extern "C" void* __real__Znam(std::size_t size);
extern "C" __attribute__((visibility("default"))) void* __wrap__Znam(std::size_t size) {
    if (size == gFailingArray) throw std::bad_alloc();
    void* const memory = __real__Znam(size);
    if (size == gUsedArray) std::memset(memory, kWhatSomebodyLeft, size);
    return memory;
}

// What the pool asks for blocks. The sanitizers have one of their own, which is better left alone.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define TARN_OWN_BLOCKS
static thread_local bool gNoBlocks = false;  // no memory for pixels

extern "C" __attribute__((visibility("default"))) int posix_memalign(void** memory,
                                                                     std::size_t alignment,
                                                                     std::size_t size) noexcept {
    *memory = gNoBlocks
                  ? nullptr
                  : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    return *memory != nullptr ? 0 : ENOMEM;
}
#endif

namespace {

TEST_F(Writer, SaysThatThereIsNoMemoryForThePictureTrack) {
    {
        const NoMemoryFor track(sizeof(CAssetVideoCompressor));
        EXPECT_EQ(set_up(encoded_video("MJPEG")), -1032);
    }
    EXPECT_EQ(fWriter->CompleteInitialization(), 0);
}

TEST_F(Writer, SaysThatThereIsNoMemoryForTheSoundTrack) {
    struct Case {
        const char* codec;
        std::size_t size;
    };
    for (const Case& row : {Case{"MPEG-4 Audio", sizeof(CAssetAudioCompressor)},
                            Case{"PCM", sizeof(CAssetAudioWriter)}}) {
        open();
        fWriter->SetSourceAudioFormat(pcm());
        fWriter->SetEncodedAudioFormat(encoded_audio(row.codec));
        {
            const NoMemoryFor track(row.size);
            EXPECT_EQ(fWriter->CompleteInitialization(), -1055) << row.codec;
        }
        EXPECT_EQ(fWriter->CompleteInitialization(), 0) << row.codec;
        fWriter->Close();
    }
}

/// Calls `operation` with memory for no object, for one, and so on until it gives 0. Its codes.
template <typename Operation>
std::set<int> codes_without_memory(const Operation& operation) {
    std::set<int> codes;
    int code = -1;
    for (int objects = 0; code != 0; ++objects) {
        gObjectsLeft = objects;
        code = operation();
        gObjectsLeft = -1;
        if (code != 0) codes.insert(code);
    }
    return codes;
}

TEST_F(Writer, SaysThatThereIsNoMemoryForAFile) {
    const std::string path = fFolder.File("movie.mov");
    EXPECT_EQ(codes_without_memory([&] { return fWriter->Open(path.c_str(), 'mov ', 0, 0); }),
              std::set<int>{-1006});
    EXPECT_EQ(fWriter->CompleteInitialization(), 0);
}

TEST_F(Writer, SaysThatThereIsNoMemoryForASoundTracksParts) {
    for (const char* codec : {"MPEG-4 Audio", "PCM"}) {
        open();
        fWriter->SetSourceAudioFormat(pcm());
        fWriter->SetEncodedAudioFormat(encoded_audio(codec));
        EXPECT_EQ(codes_without_memory([&] { return fWriter->CompleteInitialization(); }),
                  (std::set<int>{-1041, -1055}))
            << codec;
        fWriter->Close();
    }
}

TEST_F(Writer, AFrameWithoutMemoryIsLostAndNothingElse) {
    ASSERT_EQ(set_up(encoded_video("MJPEG")), 0);
    Frame frame(0, 1001);
    ASSERT_EQ(fWriter->WriteVideo(frame), 0);
    {
        const NoMemoryFor sample(sizeof(CVideoSample));
        Frame lost(1001, 1001);
        EXPECT_EQ(fWriter->WriteVideo(lost), -1051);
        EXPECT_EQ(lost.written, -1) << "it is not told of bytes";
    }
    Frame next(2002, 1001);
    EXPECT_EQ(fWriter->WriteVideo(next), 0);
    fWriter->Close();
    ASSERT_EQ(fFile.samples.size(), 2u);
    EXPECT_EQ(fFile.samples[0].duration, 2002);
}

TEST_F(Writer, ABlockWithoutMemoryIsLostAndTheTrackGoesOn) {
    open();
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    const unsigned char block[400] = {};
    Packet packet;
    ASSERT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), 0);
    {
        const NoMemoryFor sample(sizeof(CAudioSample));
        Packet lost;
        EXPECT_EQ(fWriter->WriteAudioPacket(&lost, 0, 0, block, 400), -1059);
        EXPECT_EQ(lost.written, -1) << "it is not told of bytes";
    }
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), 0);
    fWriter->Close();
    EXPECT_EQ(fFile.samples.size(), 2u);
}

class ConvertingWriter : public Writer {
protected:
    static constexpr int kBlock = 400;
    static constexpr std::size_t kHalfSecond = 24000 * 2;

    /// Opens a file of mono for sound of that many channels.
    void open_for(int channels) {
        open();
        fWriter->SetSourceAudioFormat(pcm(48000, channels));
        fWriter->SetEncodedAudioFormat(encoded_audio(nullptr, 48000, 1));
    }
    int write_block() {
        const unsigned char block[kBlock] = {};
        Packet packet;
        return fWriter->WriteAudioPacket(&packet, 0, 0, block, kBlock);
    }
    void record_a_file() {
        open_for(2);
        ASSERT_EQ(write_block(), 0);
        fWriter->Close();
    }
};

// The writer goes with this test: what it took away without a successor is not freed again.
TEST_F(ConvertingWriter, AConverterThatCannotBeMadeAnewIsGone) {
    record_a_file();
    open_for(2);
    gNoConverter = true;
    EXPECT_THROW(fWriter->CompleteInitialization(), std::bad_alloc);
    gNoConverter = false;
}

TEST_F(ConvertingWriter, ABufferThatCannotBeMadeAnewIsGone) {
    record_a_file();
    open_for(2);
    gFailingArray = kHalfSecond;
    EXPECT_THROW(fWriter->CompleteInitialization(), std::bad_alloc);
    gFailingArray = 0;
    // The converter stays in front of the next file's track, and has nowhere to put its sound.
    open_for(1);
    EXPECT_EQ(write_block(), -1058);
    fWriter->Close();
    record_a_file();
}

// One channel's samples lie in the first half of what two take.
TEST_F(Writer, WhatNoSampleReachesIsSilence) {
    constexpr std::size_t kHalfSecond = 24000 * 2 * 2;
    constexpr std::size_t kBlock = 1920;
    open();
    fWriter->SetSourceAudioFormat(pcm(48000, 1));
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr, 48000, 2));
    gUsedArray = kHalfSecond;
    const int begun = fWriter->CompleteInitialization();
    gUsedArray = 0;
    ASSERT_EQ(begun, 0);
    const std::vector<unsigned char> block(kBlock, 7);
    Packet packet;
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block.data(), kBlock), 0);
    fWriter->Close();
    std::vector<unsigned char> expected(2 * kBlock, 0);
    std::fill_n(expected.begin(), kBlock, block.front());
    ASSERT_EQ(fFile.samples.size(), 2u);
    for (const FileScript::Sample& sample : fFile.samples) EXPECT_EQ(sample.bytes, expected);
}

RObject<CVideoProperties> picture(int side) {
    RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    properties->SetFormat('GREY');
    properties->SetWidth(side);
    properties->SetHeight(side);
    return properties;
}

TEST(CpuSample, SaysThatThereIsNoMemoryAndLeavesTheHandle) {
    const RObject<CVideoProperties> properties = picture(64);
    RObject<CVideoSample> sample(new CVideoSample(nullptr));
    const CVideoSample* const before = sample.Get();
    // It is made of three objects.
    for (int objects = 0; objects < 3; ++objects) {
        gObjectsLeft = objects;
        const Result result = CreateCPUVideoSample(sample, properties.Get());
        gObjectsLeft = -1;
        EXPECT_EQ(static_cast<int>(result), ResultOutOfMemory::kCode) << objects;
        EXPECT_EQ(sample.Get(), before);
    }
    gObjectsLeft = 3;
    EXPECT_EQ(static_cast<int>(CreateCPUVideoSample(sample, properties.Get())), 0);
    gObjectsLeft = -1;
    EXPECT_NE(sample.Get(), before);
}

#ifdef TARN_OWN_BLOCKS
TEST(CpuSample, SaysThatThereIsNoMemoryForItsPixels) {
    const RObject<CVideoProperties> properties = picture(64);
    RObject<CVideoSample> sample;
    BlockPool::Shared().Trim();
    gNoBlocks = true;
    const Result result = CreateCPUVideoSample(sample, properties.Get());
    gNoBlocks = false;
    EXPECT_EQ(static_cast<int>(result), ResultOutOfMemory::kCode);
    EXPECT_FALSE(sample);
    EXPECT_EQ(static_cast<int>(CreateCPUVideoSample(sample, properties.Get())), 0);
}
#endif

}  // namespace
