// The distance of key frames that a record asks for is the one that a file of MPEG-2 has: the real
// encoder, and a reader that is not ours.

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "orb/CByteArray.h"
#include "orb/CPixelBufferDataReference.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/writers/tnWriteORB2.h"

#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

using namespace Quillon::Orb;

namespace {

constexpr int kWidth = 128;
constexpr int kHeight = 64;
constexpr int kFrames = 61;

/// A ramp that moves on by two pixels a frame.
class Ramp final : public tnVideoCompressor2::EncodedBuffer {
public:
    explicit Ramp(int number) : fNumber(number) {}

    void SetBytesWritten(int) override {}
    EncodedBufferTiming GetTiming() override { return {1, fNumber * 1001LL, 1, 1001}; }
    CPixelDataReference* GetPixelData() override {
        const RObject<CByteArray> bytes(new CByteArray(kWidth * 2 * kHeight, 1));
        unsigned char* at = bytes->GetData();
        for (int i = 0; i < kWidth * kHeight; ++i) {
            *at++ = 128;
            *at++ = static_cast<unsigned char>(40 + (i % kWidth + i / kWidth + 2 * fNumber) % 128);
        }
        return new CPixelBufferDataReference(bytes.Get(), kWidth, kHeight, kWidth * 2);
    }

private:
    const int fNumber;
};

void record(const std::string& path, int keyFrameRate) {
    tnMediaRecord source(TN_MEDIA_VIDEO);
    source.fColourspace.SetInt32('2vuy');
    source.fWidth.SetInt32(kWidth);
    source.fHeight.SetInt32(kHeight);
    source.SetInt64('tmsc', 30000);
    source.SetUInt64('dura', 1001);
    tnMediaRecord encoded(source);
    encoded.SetBool('mena', true);
    encoded.SetCString('mcon', "Mpeg2");
    encoded.SetInt32('mtbr', 2000);
    encoded.SetInt32("key_frame_rate", keyFrameRate);
    auto* const writer = new tnWriteORB2;
    EXPECT_EQ(writer->Open(path.c_str(), 'mov ', 0, 1), 0);
    writer->SetSourceVideoFormat(source);
    writer->SetEncodedVideoFormat(encoded);
    for (int i = 0; i < kFrames; ++i) {
        Ramp ramp(i);
        EXPECT_EQ(writer->WriteVideo(ramp), 0);
    }
    writer->Close();
    writer->Release();
}

/// The places of the key frames among a file's pictures, in the order of display.
std::vector<int> key_frames_of(const std::string& path) {
    std::istringstream lines(
        tests::Run({"ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                    "packet=pts,flags", "-of", "csv=p=0", path})
            .out);
    std::vector<int> keys;
    for (std::string line; std::getline(lines, line);) {
        if (line.find('K') != std::string::npos) keys.push_back(std::stoi(line) / 1001);
    }
    return keys;
}

class GroupsOfAFile : public testing::TestWithParam<int> {};

TEST_P(GroupsOfAFile, AreAsLongAsTheRecordSays) {
    const tests::TestFolder folder;
    const std::string path = folder.File("groups.mov");
    record(path, GetParam());
    std::vector<int> expected;
    for (int i = 0; i < kFrames; i += GetParam()) expected.push_back(i);
    EXPECT_EQ(key_frames_of(path), expected);
}

INSTANTIATE_TEST_SUITE_P(Mpeg2, GroupsOfAFile, testing::Values(1, 2, 3, 5, 7, 8, 12, 15, 30));

}  // namespace
