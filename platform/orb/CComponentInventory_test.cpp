#include "orb/CComponentInventory.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "orb/CAudioConverter.h"
#include "orb/CVideoConverter.h"
#include "orb/testComponents.h"

namespace Quillon::Orb {
namespace {

using Compressors = CComponentInventory<CComponentFactory<CVideoCompressor>>;

/// Makes nothing: a component that does not work on this machine.
class EmptyFactory : public CComponentFactory<CVideoCompressor> {
public:
    EmptyFactory() : CComponentFactory<CVideoCompressor>('none') {}
    CVideoCompressor* CreateInstance() override { return nullptr; }
};

TEST(CComponentInventory, UnknownCodesGiveNull) {
    EXPECT_EQ(nullptr, Compressors::CreateInstance('wxyz'));
    EXPECT_EQ(nullptr, Compressors::GetFactory('wxyz'));
    EXPECT_EQ(nullptr, CComponentInventory<CComponentFactory<CVideoConverter>>::CreateInstance(0));
    EXPECT_EQ(nullptr, CComponentInventory<CComponentFactory<CAudioConverter>>::CreateInstance(0));
    EXPECT_EQ(nullptr, CComponentInventory<CComponentFactory<CAudioCompressor>>::CreateInstance(0));
}

TEST(CComponentInventory, FirstOfATypeIsMade) {
    const int before =
        RObject<CList<CComponentFactory<CVideoCompressor>>>(Compressors::GetFactories())
            ->GetCount();
    FactoryInFront<CVideoCompressor> first(new FakeVideoFactory('fake'));
    RObject<CComponentFactory<CVideoCompressor>> found(Compressors::GetFactory('fake'));
    ASSERT_TRUE(found);
    EXPECT_EQ(static_cast<unsigned>('fake'), found->GetType());
    {
        FactoryInFront<CVideoCompressor> second(new FakeVideoFactory('fake'));
        RObject<CComponentFactory<CVideoCompressor>> front(Compressors::GetFactory('fake'));
        EXPECT_FALSE(front == found);
        RObject<CComponentFactory<CVideoCompressor>> last(new FakeVideoFactory('fake'));
        Compressors::GetSingleton().Add(last.Get());
        RObject<CComponentFactory<CVideoCompressor>> still(Compressors::GetFactory('fake'));
        EXPECT_EQ(front, still);
        Compressors::GetSingleton().Remove(last.Get());
    }
    RObject<CComponentFactory<CVideoCompressor>> again(Compressors::GetFactory('fake'));
    EXPECT_EQ(found, again);
    RObject<CVideoCompressor> component(Compressors::GetSingleton().CreateInstance('fake'));
    ASSERT_TRUE(component);
    EXPECT_FALSE(component->IsShared());
    EXPECT_EQ(static_cast<unsigned>('fake'), component->GetType());
    RObject<CList<CComponentFactory<CVideoCompressor>>> all(Compressors::GetFactories());
    EXPECT_EQ(before + 1, all->GetCount());
}

TEST(CComponentInventory, FactoryThatCannotMakeGivesNull) {
    FactoryInFront<CVideoCompressor> empty(new EmptyFactory);
    EXPECT_EQ(nullptr, Compressors::CreateInstance('none'));
    Compressors::GetSingleton().Add(nullptr);
}

TEST(CComponentInventory, ManyThreadsAskWhileOthersAdd) {
    FactoryInFront<CVideoCompressor> fixed(new FakeVideoFactory('fake'));
    std::vector<std::thread> threads;
    std::atomic<int> made{0};
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 200; ++n) {
                RObject<CVideoCompressor> component(Compressors::CreateInstance('fake'));
                made += component != nullptr;
            }
        });
    }
    threads.emplace_back([] {
        for (int n = 0; n < 200; ++n) {
            FactoryInFront<CVideoCompressor> extra(new FakeVideoFactory('extr'));
            RObject<CList<CComponentFactory<CVideoCompressor>>> all(Compressors::GetFactories());
            EXPECT_GE(all->GetCount(), 2);
        }
    });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(600, made);
}

TEST(CTransformFilterT, KeepsAPrivateCopyOfTheInput) {
    RObject<FakeVideoCompressor> filter(new FakeVideoCompressor('fake', nullptr));
    EXPECT_EQ(nullptr, filter->GetInputProperties(0));
    EXPECT_EQ(nullptr, filter->GetOutputProperties(0));
    RObject<CVideoProperties> input(new CVideoProperties(nullptr));
    input->SetFormat('UYVY');
    input->SetWidth(64);
    EXPECT_EQ(0, filter->SetInputProperties(input.Get()));
    input->SetWidth(32);
    RObject<CVideoProperties> held(filter->GetInputProperties(0));
    EXPECT_EQ(64, held->GetWidth());
    EXPECT_EQ(0, filter->SetInputProperties(nullptr));
    RObject<CVideoProperties> empty(filter->GetInputProperties(0));
    EXPECT_EQ(0, empty->GetWidth());
    EXPECT_EQ(64, held->GetWidth());
}

TEST(CTransformFilterT, OutputFormatIsAPropertyThatTheListBounds) {
    TraceCatcher trace;
    RObject<FakeVideoCompressor> filter(new FakeVideoCompressor('fake', nullptr));
    RObject<CVideoProperties> input(new CVideoProperties(nullptr));
    input->SetFormat('UYVY');
    filter->SetInputProperties(input.Get());
    EXPECT_EQ(0, filter->SetOutputFormat('jpeg'));
    unsigned int format = 0;
    EXPECT_EQ(0, filter->GetFourProperty(CodeBookProperty::MediaFilter::OutputFormat, format));
    EXPECT_EQ(static_cast<unsigned>('jpeg'), format);
    RObject<CVideoProperties> output(filter->GetOutputProperties(0));
    EXPECT_EQ(static_cast<unsigned>('jpeg'), output->GetFormat());
    EXPECT_EQ(0, trace.Count());
    EXPECT_EQ(ResultNotSupported::kCode, filter->SetOutputFormat('nope'));
    EXPECT_TRUE(trace.HasLineWith(
        {"'fake'", "MediaFilter::OutputFormat", "'nope'", "was not set: it gives only 'jpeg'"}));
    bool hardware = true;
    EXPECT_EQ(
        0, filter->GetProperty(CodeBookProperty::MediaFilter::UsingHardwareAcceleration, hardware));
    EXPECT_FALSE(hardware);
}

TEST(CVideoFilter, PutGetAndTransformAreTheSameRoad) {
    RObject<FakeVideoCompressor> filter(new FakeVideoCompressor('fake', nullptr));
    RObject<CVideoProperties> input(new CVideoProperties(nullptr));
    input->SetFormat('UYVY');
    filter->SetInputProperties(input.Get());
    ASSERT_EQ(0, filter->Begin());
    RObject<CVideoSample> picture = fake_picture(5, 1);
    EXPECT_EQ(0, filter->PutSample(0, picture.Get()));
    RObject<CMediaSample> out;
    EXPECT_EQ(0, filter->GetSample(0, out));
    ASSERT_TRUE(out);
    EXPECT_EQ(5, out->GetTime());
    EXPECT_EQ(0, filter->GetSample(0, out));
    EXPECT_FALSE(out);
    RObject<CVideoSample> encoded;
    int a = 0;
    int b = 0;
    EXPECT_EQ(0, filter->TransformSample(picture.Get(), 0, encoded, &a, &b));
    EXPECT_TRUE(encoded);
    RObject<CAudioSample> sound(new CAudioSample(1));
    EXPECT_EQ(ResultInvalidArgument::kCode, filter->PutSample(0, sound.Get()));
}

}  // namespace
}  // namespace Quillon::Orb
