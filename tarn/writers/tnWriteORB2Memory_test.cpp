// Tracks for which there is no memory: each has a code of its own. The linker puts what stands here
// in front of the media library's allocation, see tarn/CMakeLists.txt.

#include <cstddef>
#include <gtest/gtest.h>

#include "orb/CAssetAudioCompressor.h"
#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoCompressor.h"

#include "tests/support/WriterFixture.h"

using namespace writerFixture;

namespace {

thread_local std::size_t gFailingSize = 0;  // of objects that are not to be had

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
    return size == gFailingSize ? nullptr : __real__ZN7Quillon3Orb7CObjectnwEm(size);
}

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

}  // namespace
