// Black, white and what lies between come out of a file as they went in, whichever range the frames
// have and whichever the file's codec: real encoders, and a decoder that is not ours.

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "orb/CByteArray.h"
#include "orb/CPixelBufferDataReference.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/foundation/tnRasterType.h"
#include "tarn/writers/tnWriteORB2.h"

#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

using namespace Quillon::Orb;

namespace {

constexpr int kWidth = 256;
constexpr int kHeight = 64;
constexpr int kFrames = 3;
constexpr int kNeutral = 128;

struct Case {
    const char* codec;
    const char* quality;
    int raster;
    unsigned int range;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.codec << " of " << static_cast<char>(row.raster >> 24)
         << static_cast<char>(row.raster >> 16) << (row.range == 'full' ? " full" : " limited");
}

/// The grey of column x as a frame of that range stores it; RGB is always of full range.
int stored_grey(const Case& row, int x) {
    if (row.raster == 'rgba' || row.range == 'full') return x;
    return static_cast<int>(std::lround(16 + x * 219.0 / 255.0));
}

class Ramp final : public tnVideoCompressor2::EncodedBuffer {
public:
    Ramp(const Case& row, int number) : fRow(row), fNumber(number) {}

    void SetBytesWritten(int) override {}
    EncodedBufferTiming GetTiming() override { return {1, fNumber * 1000LL, 1, 1000}; }
    CPixelDataReference* GetPixelData() override {
        const int pitch = tnRasterType::ActiveBytesPerRow(kWidth, fRow.raster);
        const int rows = tnRasterType::RowCount(kHeight, fRow.raster);
        const RObject<CByteArray> bytes(new CByteArray(pitch * rows, 1));
        unsigned char* at = bytes->GetData();
        for (int y = 0; y < rows; ++y) {
            for (int i = 0; i < pitch; ++i) *at++ = byte_at(y, i);
        }
        return new CPixelBufferDataReference(bytes.Get(), kWidth, kHeight, pitch);
    }

private:
    unsigned char byte_at(int y, int i) const {
        int value = kNeutral;
        if (fRow.raster == 'rgba') value = i % 4 == 3 ? 255 : i / 4;
        if (fRow.raster == '2vuy' && i % 2 == 1) value = stored_grey(fRow, i / 2);
        if (fRow.raster == 'I420' && y < kHeight) value = stored_grey(fRow, i);
        return static_cast<unsigned char>(value);
    }

    const Case fRow;
    const int fNumber;
};

/// Opens a file for this row's frames, of which none has come yet.
int set_up(tnWriteORB2& writer, const Case& row, const std::string& path, int moovRate = 0) {
    tnMediaRecord source(TN_MEDIA_VIDEO);
    source.fColourspace.SetInt32(row.raster);
    source.fWidth.SetInt32(kWidth);
    source.fHeight.SetInt32(kHeight);
    source.fColorSpace.SetInt32('r709');
    source.fNominalRange.SetInt32(static_cast<int>(row.range));
    source.SetInt64('tmsc', 25000);
    source.SetUInt64('dura', 1000);
    tnMediaRecord encoded(source);
    encoded.SetBool('mena', true);
    encoded.SetCString('mcon', row.codec);
    encoded.SetInt32('mtbr', 20000);
    if (*row.quality) encoded.SetCString("codec_quality", row.quality);
    EXPECT_EQ(writer.Open(path.c_str(), 'mov ', moovRate, 1), 0);
    writer.SetSourceVideoFormat(source);
    writer.SetEncodedVideoFormat(encoded);
    return writer.CompleteInitialization();
}

void record(tnWriteORB2& writer, const Case& row, const std::string& path) {
    ASSERT_EQ(set_up(writer, row, path), 0);
    for (int i = 0; i < kFrames; ++i) {
        Ramp ramp(row, i);
        ASSERT_EQ(writer.WriteVideo(ramp), 0);
    }
    writer.Close();
}

/// The first picture's luma, brought to full range by what the file says of its own.
std::vector<unsigned char> decoded_greys(const std::string& path, const std::string& raw) {
    const tests::ProcessResult run =
        tests::Run({"ffmpeg", "-v", "error", "-y", "-i", path, "-frames:v", "1", "-vf",
                    "scale=in_range=auto:out_range=pc:flags=accurate_rnd+full_chroma_int",
                    "-pix_fmt", "gray", "-f", "rawvideo", raw});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    std::ifstream file(raw, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class FileRange : public testing::TestWithParam<Case> {
protected:
    ~FileRange() override { fWriter->Release(); }

    void expect_greys_of(const std::string& path) const;

    const tests::TestFolder fFolder;
    tnWriteORB2* const fWriter = new tnWriteORB2;
};

void FileRange::expect_greys_of(const std::string& path) const {
    const std::vector<unsigned char> greys = decoded_greys(path, fFolder.File("ramp.raw"));
    ASSERT_EQ(greys.size(), static_cast<std::size_t>(kWidth) * kHeight);
    constexpr int kTolerance = 4;  // of the codecs; a wrong range is up to 20 off
    for (int x = 0; x < kWidth; ++x) {
        const int grey = greys[static_cast<std::size_t>(kHeight / 2 * kWidth + x)];
        ASSERT_LE(std::abs(grey - x), kTolerance) << "column " << x;
    }
}

TEST_P(FileRange, GreysComeOutAsTheyWentIn) {
    const std::string path = fFolder.File("ramp.mov");
    record(*fWriter, GetParam(), path);
    expect_greys_of(path);
}

std::vector<Case> every_case() {
    std::vector<Case> cases;
    const Case codecs[] = {{"ProRes", "prores_422_hq", 0, 0},
                           {"ProRes", "prores_4444", 0, 0},
                           {"MJPEG", "mjpeg_best", 0, 0},
                           {"Mpeg2", "", 0, 0},
                           {"x264", "", 0, 0}};
    for (const Case& codec : codecs) {
        for (const int raster : {'2vuy', 'I420', 'rgba'}) {
            for (const unsigned int range : {'full', 'limt'}) {
                cases.push_back({codec.codec, codec.quality, raster, range});
            }
        }
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Every, FileRange, testing::ValuesIn(every_case()));

constexpr Case kOfLimitedRangeAlone = {"ProRes", "prores_422_hq", 'I420', 'full'};

/// Codecs that keep the range of such frames, and take them as they are.
class RangeOfALaterFile : public FileRange {};

TEST_P(RangeOfALaterFile, IsItsOwnWhateverTheFileBeforeNeeded) {
    const std::string path = fFolder.File("ramp.mov");
    record(*fWriter, kOfLimitedRangeAlone, fFolder.File("before.mov"));
    record(*fWriter, GetParam(), path);
    expect_greys_of(path);
}

TEST_P(RangeOfALaterFile, IsItsOwnWhereTheSetUpBeforeFailed) {
    const std::string path = fFolder.File("ramp.mov");
    constexpr int kNoSuchRate = -1;
    EXPECT_EQ(set_up(*fWriter, kOfLimitedRangeAlone, path, kNoSuchRate), -1041);
    record(*fWriter, GetParam(), path);
    expect_greys_of(path);
}

INSTANTIATE_TEST_SUITE_P(Full, RangeOfALaterFile,
                         testing::Values(Case{"MJPEG", "mjpeg_best", 'I420', 'full'},
                                         Case{"x264", "", 'I420', 'full'}));

}  // namespace
