// The raw format in which frames enter a movie file's compressor, and the converter that stands in
// front of it for their range alone.

#include <functional>
#include <gtest/gtest.h>
#include <ostream>
#include <vector>

#include "tests/support/WriterFixture.h"

using namespace writerFixture;

namespace {

struct Preference {
    int raster;
    unsigned int source;                  ///< as the compressors call it
    std::vector<unsigned int> bestFirst;  ///< heads with `source`, if frames may enter as they are
};

void PrintTo(const Preference& row, std::ostream* out) {
    for (const int shift : {24, 16, 8, 0}) *out << static_cast<char>(row.raster >> shift);
}

const Preference kPreferences[] = {
    {'2vuy', 'UYVY', {'UYVY', 'YUYV', 'I422', 'YV16', 'I420', 'YV12'}},
    {'yuvs', 'YUYV', {'YUYV', 'UYVY', 'I422', 'YV16', 'I420', 'YV12'}},
    {'I420', 'I420', {'I420', 'YV12', 'NV12', 'UYVY'}},
    {'IMC4', 'I420', {'I420', 'YV12', 'NV12', 'UYVY'}},
    {'YV12', 'YV12', {'YV12', 'I420', 'NV12', 'UYVY'}},
    {'NV12', 'NV12', {'NV12', 'I420', 'YV12', 'UYVY'}},
    {'YM16', 'I422', {'I422', 'YV16', 'YUYV', 'UYVY', 'I420', 'YV12'}},
    {'rgba', 'BGRA', {'UYVY', 'YUYV', 'I422', 'YV16', 'I420', 'YV12', 'NV12'}},
    {'gry8', 'GREY', {'UYVY', 'YUYV', 'I422', 'YV16', 'I420', 'YV12', 'NV12'}},
};

class InputFormat : public Writer, public testing::WithParamInterface<Preference> {
protected:
    /// The format in which frames enter a compressor that takes these.
    unsigned int entered_of(const std::vector<unsigned int>& offered) {
        fScript.inputFormats = offered;
        EXPECT_EQ(set_up(encoded_video("MJPEG"), GetParam().raster), 0);
        fWriter->Close();
        return fScript.input->GetFormat();
    }
};

TEST_P(InputFormat, IsTheBestOfThoseThatAreOffered) {
    const std::vector<unsigned int>& formats = GetParam().bestFirst;
    for (std::size_t better = 0; better < formats.size(); ++better) {
        for (std::size_t worse = better + 1; worse < formats.size(); ++worse) {
            const int before = fConverter.Made();
            EXPECT_EQ(entered_of({formats[worse], formats[better]}), formats[better])
                << better << " before " << worse;
            const bool converts = formats[better] != GetParam().source;
            EXPECT_EQ(fConverter.Made() - before, converts ? 1 : 0);
        }
    }
}

TEST_P(InputFormat, IsTheFirstOfferWhereNoneIsPreferred) {
    EXPECT_EQ(entered_of({'RV24', 'RGB2', 'RV16'}), 'RV24');
}

INSTANTIATE_TEST_SUITE_P(Rasters, InputFormat, testing::ValuesIn(kPreferences));

/// Frames of full range on their way into a file that has the limited one alone.
class RangeConverter : public Writer {
protected:
    RangeConverter() {
        fConverterScript.takesOutput = true;
        fConverterScript.look = [this](const CVideoSample&) { ++fSeen; };
    }
    /// How many of two frames the converter sees; the encoder gets both.
    int seen_of_two_frames() {
        fSeen = 0;
        fFile.samples.clear();
        tnMediaRecord encoded = encoded_video("ProRes");
        encoded.fNominalRange.SetInt32('full');
        EXPECT_EQ(set_up(encoded), 0);
        for (const long long time : {0, 1001}) {
            Frame frame(time, 1001);
            EXPECT_EQ(fWriter->WriteVideo(frame), 0);
        }
        fWriter->Close();
        EXPECT_EQ(fFile.samples.size(), 2u);
        return fSeen;
    }

private:
    int fSeen = 0;
};

TEST_F(RangeConverter, SeesEveryFrame) {
    EXPECT_EQ(seen_of_two_frames(), 2);
}

TEST_F(RangeConverter, ThatCannotBeHadIsGoneWithout) {
    const struct {
        const char* name;
        std::function<void(Script&)> breakIt;
    } faults[] = {
        {"input", [](Script& script) { script.failInput = true; }},
        {"range", [](Script& script) { script.takesOutput = false; }},
        {"format", [](Script& script) { script.refused = {"MediaFilter::OutputFormat"}; }},
        {"begin", [](Script& script) { script.failBegin = true; }},
    };
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.name);
        fault.breakIt(fConverterScript);
        EXPECT_EQ(seen_of_two_frames(), 0);
        fConverterScript.failInput = false;
        fConverterScript.takesOutput = true;
        fConverterScript.refused.clear();
        fConverterScript.failBegin = false;
    }
    fConverter.GiveNull();
    EXPECT_EQ(seen_of_two_frames(), 0) << "it is not there";
}

}  // namespace
