// Files whose sound has another rate than its source. What changes the rate gives nothing before it
// has been filled: blocks that are short meet that, and nothing is lost by it.

#include <tuple>

#include "orb/CAudioConverter.h"
#include "orb/testSupport.h"

#include "tests/support/addonHost.h"
#include "tests/support/orbDoubles.h"

using namespace addonTest;
using namespace Quillon::Orb;

namespace {

constexpr long long kTicksOf60 = 500;
constexpr const char* kToldOnce = "gave none for the file";

tnMediaRecord sound_of(const Camera& camera, int rate) {
    tnMediaRecord sound = camera.Sound("PCM");
    sound.fSampleRate.SetInt32(rate);
    return sound;
}

class OtherRate : public AddonTest,
                  public testing::WithParamInterface<std::tuple<long long, int>> {};

TEST_P(OtherRate, KeepsEveryPictureAndItsSound) {
    constexpr int kFrames = 120;
    const auto [ticks, rate] = GetParam();
    const std::string path = fFolder.File("a.mov");
    Camera camera(1, ticks);
    Show show("QuickTime", {camera.Picture("MJPEG"), sound_of(camera, rate)});
    ASSERT_EQ(show.Add(path), 0);
    camera.Write(0, kFrames);
    ASSERT_EQ(show.Remove(), 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_AUDIO).fState, 0);
    const double step = static_cast<double>(ticks) / Camera::kScale;
    ExpectEveryFrame(path, 0, step, kFrames);
    constexpr double kStaysInTheFilter = 0.025;
    EXPECT_NEAR(tests::ProbeSeconds(path, "a:0"), kFrames * step, kStaysInTheFilter);
    EXPECT_EQ(tests::ProbeStream(path, "a:0", "sample_rate"), std::to_string(rate));
}

INSTANTIATE_TEST_SUITE_P(Rates, OtherRate,
                         testing::Combine(testing::Values(kTicksOf60, 1001),
                                          testing::Values(44100, 32000, 96000)));

/// Takes sound and never gives any.
class Mute final : public orbDoubles::Noting<CAudioConverter> {
public:
    Mute(unsigned int type, orbDoubles::Script& script) : Noting(type, script) {
        DeclareInt(CodeBookProperty::AudioConverter::SampleRate, 0, 0, 1000000);
    }
    CValueList<unsigned int>* GetInputFormats() override { return orbDoubles::list_of({'sowt'}); }
    CValueList<unsigned int>* GetOutputFormats() override { return orbDoubles::list_of({'sowt'}); }
    Result Begin() override { return 0; }
    Result End() override { return 0; }
    Result PutSample(int, CMediaSample*) override { return 0; }
    Result GetSample(int, RObject<CMediaSample>& sample) override {
        sample.Clear();
        return 0;
    }
};

class MuteRate : public AddonTest {
protected:
    /// What an output comes to that gets sound for so long and has none to write.
    tn_output_statistics record(int from, int to) {
        Show show("QuickTime", {fCamera.Picture("MJPEG"), sound_of(fCamera, 44100)});
        EXPECT_EQ(show.Add(fFolder.File(std::to_string(from) + ".mov")), 0);
        fCamera.Write(from, to);
        EXPECT_EQ(show.Remove(), 0);
        return show.Statistics(TN_MEDIA_AUDIO);
    }

    orbDoubles::Script fScript;
    const orbDoubles::Registered<CAudioConverter, Mute> fMute{'asrc', fScript};
    Camera fCamera{1, kTicksOf60};
};

TEST_F(MuteRate, IsBorneForASecondAndToldOnce) {
    TraceCatcher trace;
    EXPECT_EQ(record(0, 55).fState, 0);
    int told = 0;
    for (const std::string& line : trace.Lines()) told += line.find(kToldOnce) != line.npos ? 1 : 0;
    EXPECT_EQ(told, 1);
}

TEST_F(MuteRate, EndsTheOutputBehindASecond) {
    const tn_output_statistics statistics = record(0, 120);
    EXPECT_EQ(statistics.fState, 2);
    EXPECT_EQ(statistics.fStatus, -1058);
}

}  // namespace
