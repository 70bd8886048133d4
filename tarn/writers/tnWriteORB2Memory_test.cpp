// Tracks for which there is no memory: each has a code of its own.
//
// The sanitizers bring allocators of their own, which are better left alone.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

#include <cstddef>
#include <gtest/gtest.h>

#include "orb/CAssetAudioCompressor.h"
#include "orb/CAssetAudioWriter.h"
#include "orb/CAssetVideoCompressor.h"

#include "tests/support/WriterFixture.h"

using namespace writerFixture;

namespace {
thread_local std::size_t gFailingSize = 0;  // blocks of exactly that size are not to be had
}

extern "C" void* __libc_malloc(std::size_t size);
extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) {
    return gFailingSize != 0 && size == gFailingSize ? nullptr : __libc_malloc(size);
}

namespace {

TEST_F(Writer, SaysThatThereIsNoMemoryForThePictureTrack) {
    gFailingSize = sizeof(CAssetVideoCompressor);
    EXPECT_EQ(set_up(encoded_video("MJPEG")), -1032);
    gFailingSize = 0;
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
        gFailingSize = row.size;
        EXPECT_EQ(fWriter->CompleteInitialization(), -1055) << row.codec;
        gFailingSize = 0;
        EXPECT_EQ(fWriter->CompleteInitialization(), 0) << row.codec;
        fWriter->Close();
    }
}

}  // namespace

#endif
