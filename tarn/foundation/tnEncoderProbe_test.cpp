#include "tarn/foundation/tnEncoderProbe.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "orb/Rational.h"
#include "spar/zTraceManager.h"

#include "tests/support/vtbxTestSupport.h"

using namespace Quillon::Orb;

// The encoder that fails on order.

TestEncoder::TestEncoder(std::shared_ptr<Plan> plan)
    : CVideoCompressor('vtbx'), fPlan(std::move(plan)) {
    if (!fails(kNoSuchFlag)) {
        DeclareReadOnlyFlag(CodeBookProperty::MediaFilter::UsingHardwareAcceleration,
                            !fails(kSoftware));
    }
    ++fPlan->fMade;
}

TestEncoder::~TestEncoder() {
    ++fPlan->fGone;
}

CValueList<unsigned int>* TestEncoder::GetInputFormats() {
    if (fails(kNoInputList)) return nullptr;
    auto* formats = new CValueList<unsigned int>;
    if (!fails(kEmptyInputList)) {
        formats->AddValue(fails(kZeroInput) ? 0 : fPlan->fInput);
        formats->AddValue('UYVY');
    }
    return formats;
}

CValueList<unsigned int>* TestEncoder::GetOutputFormats() {
    if (fails(kNoOutputList)) return nullptr;
    if (fPlan->fOutputs) return RObject<CValueList<unsigned int>>(fPlan->fOutputs).Detach();
    auto* formats = new CValueList<unsigned int>;
    if (!fails(kEmptyOutputList)) {
        for (const unsigned int format : {'apcn', 'avc1', 'h264'}) formats->AddValue(format);
    }
    return formats;
}

Result TestEncoder::SetInputProperties(const CVideoProperties* properties) {
    {
        const zMutexLock lock(fPlan->fLock);
        fPlan->fShape = new CVideoProperties(properties);
    }
    return fails(kSetInput) ? Result(ResultError())
                            : CVideoCompressor::SetInputProperties(properties);
}

Result TestEncoder::AcceptProperty(const PropertyName& name, const PropertyValue& value) {
    const bool isRefused =
        fails(kOutputFormat) && name == CodeBookProperty::MediaFilter::OutputFormat;
    return isRefused ? Result(ResultError()) : CVideoCompressor::AcceptProperty(name, value);
}

Result TestEncoder::Begin() {
    fPlan->fPicked = GetOutputFormat();
    const zMutexLock lock(fPlan->fLock);
    while (fPlan->fHang) {
        fPlan->fHangs = true;
        fPlan->fChanged.WakeAll();
        fPlan->fChanged.Wait(fPlan->fLock);
    }
    return fails(kBegin) ? Result(ResultError()) : Result(ResultOK());
}

Result TestEncoder::End() {
    ++fPlan->fEnds;
    return fails(kEnd) ? Result(ResultError()) : Result(ResultOK());
}

Result TestEncoder::ProcessSample(CVideoSample* sample) {
    fPlan->fSampleTime = sample->GetTime();
    fPlan->fSampleDuration = sample->GetDuration();
    return fails(kPut) ? Result(ResultError()) : Result(ResultOK());
}

Result TestEncoder::ReceiveSample(RObject<CVideoSample>& sample) {
    sample.Clear();
    return ResultOK();
}

class TestEncoderFactory::Factory : public CComponentFactory<CVideoCompressor> {
public:
    explicit Factory(std::shared_ptr<TestEncoder::Plan> plan)
        : CComponentFactory('vtbx'), fPlan(std::move(plan)) {}
    CVideoCompressor* CreateInstance() override {
        if (fPlan->fFailAt == TestEncoder::kCreate) return nullptr;
        return new TestEncoder(fPlan);
    }

private:
    const std::shared_ptr<TestEncoder::Plan> fPlan;
};

using Inventory = CComponentInventory<CComponentFactory<CVideoCompressor>>;

TestEncoderFactory::TestEncoderFactory() : fFactory(new Factory(fPlan)) {
    Inventory::GetSingleton().AddFirst(fFactory.Get());
}

TestEncoderFactory::~TestEncoderFactory() {
    Inventory::GetSingleton().Remove(fFactory.Get());
}

void TestEncoderFactory::Hang() {
    const zMutexLock lock(fPlan->fLock);
    fPlan->fHang = true;
}

void TestEncoderFactory::WaitUntilHanging() {
    const zMutexLock lock(fPlan->fLock);
    while (!fPlan->fHangs) fPlan->fChanged.Wait(fPlan->fLock);
}

void TestEncoderFactory::LetGo() {
    const zMutexLock lock(fPlan->fLock);
    fPlan->fHang = false;
    fPlan->fChanged.WakeAll();
}

namespace {

constexpr long long kLong = 600'000'000;  // never passes in these tests

RObject<CValueList<unsigned int>> list_of(std::initializer_list<unsigned int> values) {
    return RObject<CValueList<unsigned int>>(new CValueList<unsigned int>(values));
}

TEST(tnEncoderProbe, HelperFindsAValueInAList) {
    EXPECT_FALSE(Contains(nullptr, 1));
    EXPECT_FALSE(Contains(list_of({}), 1));
    EXPECT_TRUE(Contains(list_of({3, 1}), 1));
    EXPECT_FALSE(Contains(list_of({3, 1}), 2));
}

TEST(tnEncoderProbe, OneFrameGoesIntoTheEncoder) {
    const TestEncoderFactory factory;
    EXPECT_TRUE(tnEncoderProbe::Try());
    const auto& plan = factory.Plan();
    EXPECT_EQ(plan.fMade, 1);
    EXPECT_EQ(plan.fGone, 1);
    EXPECT_EQ(plan.fEnds, 1);
    EXPECT_EQ(plan.fPicked, 'h264');
    EXPECT_EQ(plan.fShape->GetFormat(), 'NV12');
    EXPECT_EQ(plan.fShape->GetWidth(), 1280);
    EXPECT_EQ(plan.fShape->GetHeight(), 720);
    EXPECT_EQ(plan.fShape->GetFrameRate(), (Rational<long long>{3000, 100}));
    EXPECT_EQ(plan.fShape->GetFieldOrder(), 1);
    EXPECT_EQ(plan.fSampleTime, 0);
    EXPECT_EQ(plan.fSampleDuration, 100);
}

TEST(tnEncoderProbe, EveryFailingStepIsANo) {
    using E = TestEncoder;
    for (const E::Step step :
         {E::kCreate, E::kNoInputList, E::kEmptyInputList, E::kZeroInput, E::kSetInput,
          E::kNoOutputList, E::kEmptyOutputList, E::kOutputFormat, E::kBegin, E::kNoSuchFlag,
          E::kSoftware, E::kPut}) {
        SCOPED_TRACE(step);
        TestEncoderFactory factory;
        factory.FailAt(step);
        EXPECT_FALSE(tnEncoderProbe::Try());
        EXPECT_EQ(factory.Plan().fMade, factory.Plan().fGone);  // all is released
        EXPECT_FALSE(tnEncoderProbe::Run(kLong));
    }
}

TEST(tnEncoderProbe, FailingEndIsNotLookedAt) {
    TestEncoderFactory factory;
    factory.FailAt(TestEncoder::kEnd);
    EXPECT_TRUE(tnEncoderProbe::Try());
    factory.FailAt(TestEncoder::kPut);
    EXPECT_FALSE(tnEncoderProbe::Try());
    EXPECT_EQ(factory.Plan().fEnds, 2);  // ended on either outcome
}

TEST(tnEncoderProbe, OutputIsH264UnderEitherNameElseTheFirst) {
    const TestEncoderFactory factory;
    const std::pair<RObject<CValueList<unsigned int>>, unsigned int> kPicks[] = {
        {list_of({'apcn', 'avc1', 'h264'}), 'h264'},
        {list_of({'apcn', 'avc1'}), 'avc1'},
        {list_of({'apcn', 'apch'}), 'apcn'},
    };
    for (const auto& [outputs, pick] : kPicks) {
        factory.Plan().fOutputs = outputs;
        EXPECT_TRUE(tnEncoderProbe::Run(kLong));
        EXPECT_EQ(factory.Plan().fPicked, pick);
    }
}

TEST(tnEncoderProbe, FormatWithoutAPixelLayoutIsANo) {
    const TestEncoderFactory factory;
    factory.Plan().fInput = 'none';  // no stride: no sample can be made
    EXPECT_FALSE(tnEncoderProbe::Try());
    EXPECT_EQ(factory.Plan().fSampleTime, -1);
}

/// Keeps what is traced while it lives. Any thread.
class Trace : public zTraceManager {
public:
    Trace() : fBefore(zTraceManager::SetDefault(this)) {}
    ~Trace() override { zTraceManager::SetDefault(fBefore); }

    void TraceMessage(int, const std::string& text) override {
        const zMutexLock lock(fLock);
        fText += text;
    }
    std::string Text() {
        const zMutexLock lock(fLock);
        return fText;
    }

private:
    zTraceManager* const fBefore;
    zMutex fLock;
    std::string fText SPAR_GUARDED_BY(fLock);
};

TEST(tnEncoderProbe, HangingDriverIsLeftBehindAndNotAskedAgain) {
    TestEncoderFactory factory;
    factory.Hang();
    {
        Trace trace;
        EXPECT_FALSE(tnEncoderProbe::Run(10'000));
        factory.WaitUntilHanging();
        EXPECT_EQ(trace.Text(),
                  "tnEncoderProbe: the hardware encoder has not answered within 10 ms; it is not "
                  "offered\n");
        EXPECT_FALSE(tnEncoderProbe::Run(kLong));  // at once: the first still hangs
        const std::string text = trace.Text();
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    }
    EXPECT_EQ(factory.Made(), 1);
    factory.LetGo();
    while (!tnEncoderProbe::Run(kLong))
        std::this_thread::yield();  // once it has gone, it is asked again
    EXPECT_EQ(factory.Made(), 2);
}

TEST(tnEncoderProbe, TrialsOfSeveralThreadsDoNotMeet) {
    const TestEncoderFactory factory;
    std::atomic<int> works{0};
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] { works += tnEncoderProbe::Run(kLong) ? 1 : 0; });
    }
    EXPECT_EQ(works, 8);
    EXPECT_EQ(factory.Made(), 8);
}

TEST(tnEncoderProbe, RealAnswerIsGiven) {
    // Whatever this machine has: the trial of the real component ends and both ways agree.
    EXPECT_EQ(tnEncoderProbe::Run(kLong), tnEncoderProbe::Try());
}

}  // namespace
