#include "tarn/foundation/tnEncoderProbe.h"

#include <atomic>
#include <memory>

#include "orb/CComponentInventory.h"
#include "orb/CVideoCompressor.h"
#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "orb/CodeBookProperty.h"
#include "orb/Rational.h"
#include "spar/trace.h"
#include "spar/zSignal.h"
#include "spar/zThread.h"
#include "spar/zThreadMain.h"
#include "tarn/writers/orbConversions.h"

using namespace Quillon::Orb;

namespace {

using Inventory = CComponentInventory<CComponentFactory<CVideoCompressor>>;
using Formats = CValueList<unsigned int>;

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr long long kSampleDuration = 100;

/// Trials that hang at this moment.
std::atomic<int> gHanging{0};

RObject<CVideoProperties> describe_frame(unsigned int format) {
    RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    if (!properties || properties->SetFormat(format).Failed() ||
        properties->SetWidth(kWidth).Failed() || properties->SetHeight(kHeight).Failed() ||
        properties->SetFrameRate(Rational<long long>{3000, 100}).Failed() ||
        properties->SetFieldOrder(1).Failed()) {
        return nullptr;
    }
    return properties;
}

/// H.264 under either name, else what the encoder gives best. 0 when it gives nothing.
unsigned int pick_output_format(CVideoCompressor& encoder) {
    const RObject<Formats> formats(encoder.GetOutputFormats());
    for (const unsigned int wanted : {'h264', 'avc1'}) {
        if (Contains(formats, wanted)) {
            return wanted;
        }
    }
    unsigned int first = 0;
    if (formats) {
        formats->GetValue(0, first);
    }
    return first;
}

bool begin_in_hardware(CVideoCompressor& encoder, unsigned int format) {
    bool isHardware = false;
    return encoder.SetFourProperty(CodeBookProperty::MediaFilter::OutputFormat, format)
               .Succeeded() &&
           encoder.Begin().Succeeded() &&
           encoder.GetProperty(CodeBookProperty::MediaFilter::UsingHardwareAcceleration, isHardware)
               .Succeeded() &&
           isHardware;  // some fall back to software instead of failing
}

/// A trial on its own thread, shared by that thread and whoever waits for it.
struct Trial {
    enum Phase { kRunning, kDone, kAbandoned };

    const std::unique_ptr<zSignal> fEnded{zSignal::Factory()};
    std::atomic<Phase> fPhase{kRunning};
    std::atomic<bool> fWorks{false};
};

class TrialMain : public zThreadMain {
public:
    explicit TrialMain(std::shared_ptr<Trial> trial) : fTrial(std::move(trial)) {}

    int Main(int, const char**) override {
        const std::unique_ptr<TrialMain> self(this);  // nobody else knows how long the driver takes
        fTrial->fWorks = tnEncoderProbe::Try();
        if (fTrial->fPhase.exchange(Trial::kDone) == Trial::kAbandoned) {
            --gHanging;
        }
        fTrial->fEnded->Raise();
        return 0;
    }

private:
    const std::shared_ptr<Trial> fTrial;
};

}  // namespace

bool Contains(const RObject<Formats>& list, unsigned int value) {
    return list && list->HasValue(value);
}

bool tnEncoderProbe::Try() {
    const RObject<CVideoCompressor> encoder(Inventory::CreateInstance('vtbx'));
    if (!encoder) {
        return false;
    }
    const RObject<Formats> inputs(encoder->GetInputFormats());
    unsigned int input = 0;
    if (!inputs || inputs->GetValue(0, input).Failed() || input == 0) {
        return false;
    }
    const RObject<CVideoProperties> properties = describe_frame(input);
    if (!properties || encoder->SetInputProperties(properties.Get()).Failed()) {
        return false;
    }
    const unsigned int output = pick_output_format(*encoder);
    if (output == 0 || !begin_in_hardware(*encoder, output)) {
        return false;
    }
    RObject<CVideoSample> sample;
    if (CreateCPUVideoSample(sample, properties.Get()).Failed()) {
        return false;
    }
    sample->SetTime(0);
    sample->SetDuration(kSampleDuration);
    const bool isTaken = encoder->PutSample(0, sample.Get()).Succeeded();
    encoder->End();
    return isTaken;
}

bool tnEncoderProbe::Run(long long limit) {
    if (gHanging > 0) {
        return false;
    }
    const auto trial = std::make_shared<Trial>();
    auto main = std::make_unique<TrialMain>(trial);
    const std::unique_ptr<zThread> thread(zThread::Factory("encoder_probe", main.get(), 4, 1));
    if (!thread) {
        return false;
    }
    main.release();  // deletes itself at its end
    if (trial->fEnded->WaitFor(limit) != 0) {
        ++gHanging;
        if (trial->fPhase.exchange(Trial::kAbandoned) != Trial::kDone) {
            zTrace(
                "tnEncoderProbe: the hardware encoder has not answered within {} ms; it is not "
                "offered\n",
                limit / 1000);
            return false;
        }
        --gHanging;  // it came at the last moment
    }
    return trial->fWorks;
}
