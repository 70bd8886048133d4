#include "EncoderTrial.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "orb/CComponentInventory.h"
#include "orb/CVideoCompressor.h"
#include "tarn/foundation/tnUtils.h"

using namespace Quillon::Orb;

namespace {

enum class Fault {
    kNone,
    kNoComponent,
    kOutput,
    kNoInputs,
    kInput,
    kBegin,
    kFrame,
    kNothing,
    kHang
};

struct Plan {
    Fault fault = Fault::kNone;
    bool hardware = true;
    std::atomic<bool> hangs{false};
};

/// An encoder that fails where a test says.
class Encoder final : public CVideoCompressor {
public:
    explicit Encoder(std::shared_ptr<Plan> plan)
        : CVideoCompressor('test'), fPlan(std::move(plan)) {
        UpdateFlag(CodeBookProperty::MediaFilter::UsingHardwareAcceleration, fPlan->hardware);
    }
    CValueList<unsigned int>* GetInputFormats() override {
        if (fPlan->fault == Fault::kNoInputs) return nullptr;
        return new CValueList<unsigned int>{'NV12'};
    }
    CValueList<unsigned int>* GetOutputFormats() override {
        const unsigned int format = fPlan->fault == Fault::kOutput ? 'none' : 'h264';
        return new CValueList<unsigned int>{format};
    }
    Result SetInputProperties(const CVideoProperties* properties) override {
        if (fPlan->fault == Fault::kInput) return ResultError("no such pictures");
        return CVideoCompressor::SetInputProperties(properties);
    }
    Result Begin() override {
        while (fPlan->fault == Fault::kHang && fPlan->hangs) std::this_thread::yield();
        return fPlan->fault == Fault::kBegin ? Result(ResultError("no session")) : Result(0);
    }
    Result End() override { return 0; }
    Result ProcessSample(CVideoSample* sample) override {
        if (sample) fSample = RObject<CVideoSample>::Share(sample);
        return fPlan->fault == Fault::kFrame ? Result(ResultError()) : Result(0);
    }
    Result ReceiveSample(RObject<CVideoSample>& sample) override {
        if (fPlan->fault != Fault::kNothing) sample = fSample;
        return 0;
    }

private:
    const std::shared_ptr<Plan> fPlan;
    RObject<CVideoSample> fSample;
};

class EncoderTrial : public testing::Test {
protected:
    using Inventory = CComponentInventory<CComponentFactory<CVideoCompressor>>;

    class Factory final : public CComponentFactory<CVideoCompressor> {
    public:
        explicit Factory(std::shared_ptr<Plan> plan)
            : CComponentFactory('test'), fPlan(std::move(plan)) {}
        CVideoCompressor* CreateInstance() override {
            return fPlan->fault == Fault::kNoComponent ? nullptr : new Encoder(fPlan);
        }

    private:
        const std::shared_ptr<Plan> fPlan;
    };

    EncoderTrial() : fFactory(new Factory(fPlan)) {
        Inventory::GetSingleton().AddFirst(fFactory.Get());
    }
    ~EncoderTrial() override {
        fPlan->hangs = false;
        Inventory::GetSingleton().Remove(fFactory.Get());
    }

    const std::shared_ptr<Plan> fPlan = std::make_shared<Plan>();
    const RObject<Factory> fFactory;
    EncoderKind fKind{"Test", 'test', 'h264', false, false};
};

constexpr long long kLongUs = 600'000'000;  // never passes in these tests

TEST_F(EncoderTrial, EncoderThatEncodesWorks) {
    for (const bool hardware : {false, true}) {
        fPlan->hardware = hardware;
        const EncoderAnswer answer = TryEncoder(fKind, kLongUs);
        EXPECT_TRUE(answer.works);
        EXPECT_EQ(answer.inHardware, hardware);
        EXPECT_EQ(answer.why, "");
    }
}

TEST_F(EncoderTrial, FallbackOfAHardwareEncoderIsNone) {
    fKind.onlyInHardware = true;
    EXPECT_TRUE(TryEncoder(fKind, kLongUs).works);
    fPlan->hardware = false;
    const EncoderAnswer answer = TryEncoder(fKind, kLongUs);
    EXPECT_FALSE(answer.works);
    EXPECT_NE(answer.why.find("hardware"), std::string::npos) << answer.why;
}

TEST_F(EncoderTrial, EveryFaultHasItsWords) {
    const std::pair<Fault, const char*> kCases[] = {
        {Fault::kNoComponent, "no such component"},
        {Fault::kOutput, "gives only 'none'"},
        {Fault::kNoInputs, "takes no pictures"},
        {Fault::kInput, "no such pictures"},
        {Fault::kBegin, "no session"},
        {Fault::kFrame, "encode a frame"},
        {Fault::kNothing, "gives nothing"},
    };
    for (const auto& [fault, words] : kCases) {
        fPlan->fault = fault;
        const EncoderAnswer answer = TryEncoder(fKind, kLongUs);
        EXPECT_FALSE(answer.works) << words;
        EXPECT_NE(answer.why.find(words), std::string::npos) << words << "\n" << answer.why;
        EXPECT_EQ(answer.why.find('\n'), std::string::npos);
    }
}

TEST_F(EncoderTrial, DriverThatHangsIsLeftBehind) {
    fPlan->fault = Fault::kHang;
    fPlan->hangs = true;
    const EncoderAnswer answer = TryEncoder(fKind, 20'000);
    EXPECT_FALSE(answer.works);
    EXPECT_NE(answer.why.find("has not answered within 0.02 s"), std::string::npos) << answer.why;
}

TEST(EncoderKinds, HardwareAnswerIsThatOfTheLibrary) {
    for (const EncoderKind& kind : AllEncoderKinds()) {
        if (kind.component != 'vtbx' || !kind.onlyInHardware) continue;
        EXPECT_EQ(TryEncoder(kind).works, tnUtils::IsVideoCodecEnabledWithFlags(0, kind.name));
    }
}

TEST(EncoderKinds, SoftwareEncodersAreAlwaysHere) {
    for (const EncoderKind& kind : AllEncoderKinds()) {
        if (kind.onlyInHardware) continue;
        const EncoderAnswer answer = TryEncoder(kind, kLongUs);
        EXPECT_TRUE(answer.works) << kind.name << ": " << answer.why;
        EXPECT_FALSE(answer.inHardware) << kind.name;
    }
}

}  // namespace
