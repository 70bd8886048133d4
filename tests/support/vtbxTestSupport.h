#pragma once

#include <atomic>
#include <memory>

#include "orb/CComponentInventory.h"
#include "orb/CVideoCompressor.h"
#include "orb/CodeBookProperty.h"
#include "spar/zMutex.h"

// An encoder under the platform encoder's code that fails, or hangs, where a test says.

class TestEncoder : public Quillon::Orb::CVideoCompressor {
public:
    enum Step {
        kNowhere,
        kCreate,
        kNoInputList,
        kEmptyInputList,
        kZeroInput,
        kSetInput,
        kNoOutputList,
        kEmptyOutputList,
        kOutputFormat,
        kBegin,
        kNoSuchFlag,
        kSoftware,
        kPut,
        kEnd,
    };

    struct Plan {
        Step fFailAt = kNowhere;
        unsigned int fInput = 'NV12';
        Quillon::Orb::RObject<Quillon::Orb::CValueList<unsigned int>> fOutputs;
        std::atomic<int> fMade{0};
        std::atomic<int> fGone{0};
        std::atomic<int> fEnds{0};
        std::atomic<unsigned int> fPicked{0};
        std::atomic<long long> fSampleTime{-1};
        std::atomic<long long> fSampleDuration{-1};

        // trials of several threads meet here; a test reads fShape when they have ended
        zMutex fLock;
        // as SetInputProperties saw it last
        Quillon::Orb::RObject<Quillon::Orb::CVideoProperties> fShape;

        // hanging in Begin
        zCondition fChanged;
        bool fHang SPAR_GUARDED_BY(fLock) = false;
        bool fHangs SPAR_GUARDED_BY(fLock) = false;
    };

    explicit TestEncoder(std::shared_ptr<Plan> plan);
    ~TestEncoder() override;

    Quillon::Orb::CValueList<unsigned int>* GetInputFormats() override;
    Quillon::Orb::CValueList<unsigned int>* GetOutputFormats() override;
    Quillon::Orb::Result SetInputProperties(
        const Quillon::Orb::CVideoProperties* properties) override;
    Quillon::Orb::Result Begin() override;
    Quillon::Orb::Result End() override;
    Quillon::Orb::Result ProcessSample(Quillon::Orb::CVideoSample* sample) override;
    Quillon::Orb::Result ReceiveSample(
        Quillon::Orb::RObject<Quillon::Orb::CVideoSample>& sample) override;

protected:
    Quillon::Orb::Result AcceptProperty(const Quillon::Orb::PropertyName& name,
                                        const Quillon::Orb::PropertyValue& value) override;

private:
    bool fails(Step step) const { return fPlan->fFailAt == step; }

    const std::shared_ptr<Plan> fPlan;
};

/// Takes the place of the platform's encoder while it lives.
class TestEncoderFactory {
public:
    TestEncoderFactory();
    ~TestEncoderFactory();

    void FailAt(TestEncoder::Step step) { fPlan->fFailAt = step; }
    int Made() const { return fPlan->fMade; }
    TestEncoder::Plan& Plan() const { return *fPlan; }

    void Hang();
    void WaitUntilHanging();
    void LetGo();

private:
    class Factory;

    const std::shared_ptr<TestEncoder::Plan> fPlan = std::make_shared<TestEncoder::Plan>();
    Quillon::Orb::RObject<Factory> fFactory;
};
