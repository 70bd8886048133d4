#include "spar/zBoot.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "spar/zPell.h"
#include "spar/zTraceManager.h"

namespace {

std::string gLog;
std::string gTraced;

class Capture : public zTraceManager {
public:
    Capture() : fBefore(SetDefault(this)) { gTraced.clear(); }
    ~Capture() override { SetDefault(fBefore); }
    void TraceMessage(int, const std::string& text) override { gTraced += text; }

private:
    zTraceManager* fBefore;
};

class Boot : public testing::Test {
protected:
    void SetUp() override {
        zBoot::StopAll();
        gLog.clear();
    }
    void TearDown() override { zBoot::StopAll(); }
};

void start_a() {
    gLog += "+a";
}
void stop_a() {
    gLog += "-a";
}
void start_b() {
    zBoot::Depends('tesA', nullptr);
    gLog += "+b";
}
void stop_b() {
    gLog += "-b";
}
void start_c() {
    zBoot::Depends('tesB', nullptr);
    zBoot::Depends('tesA', nullptr);
    zBoot::Depends('pell', zPell::boot_Module);
    gLog += "+c";
}
void stop_c() {
    gLog += "-c";
}

}  // namespace

TEST_F(Boot, ModulesStartAfterWhatTheyNeedAndStopBefore) {
    zBoot c(start_c, stop_c, 'tesC'), b(start_b, stop_b, 'tesB'), a(start_a, stop_a, 'tesA');
    EXPECT_EQ(zBoot::StartAll(), 0);
    EXPECT_EQ(gLog, "+a+b+c");
    gLog.clear();
    zBoot::StopAll();
    EXPECT_EQ(gLog, "-c-b-a");
}

TEST_F(Boot, ModulesThatNeedNothingKeepTheOrderOfRegistration) {
    static const auto noted = [](char name, bool up) { gLog += {up ? '+' : '-', name}; };
    zBoot first([] { noted('1', true); }, [] { noted('1', false); }, 'tes1');
    zBoot second([] { noted('2', true); }, [] { noted('2', false); }, 'tes2');
    zBoot third([] { noted('3', true); }, [] { noted('3', false); }, 'tes3');
    EXPECT_EQ(zBoot::StartAll(), 0);
    zBoot::StopAll();
    EXPECT_EQ(gLog, "+1+2+3-3-2-1");
}

TEST_F(Boot, StartsOnceUntilStopped) {
    zBoot a(start_a, stop_a, 'tesA');
    zBoot::StartAll();
    zBoot::StartAll();
    EXPECT_EQ(gLog, "+a");
    zBoot::StopAll();
    zBoot::StopAll();
    EXPECT_EQ(gLog, "+a-a");
    zBoot::StartAll();
    EXPECT_EQ(gLog, "+a-a+a");
}

TEST_F(Boot, AModuleThatComesLaterStartsWithTheNextCall) {
    zBoot a(start_a, stop_a, 'tesA');
    zBoot::StartAll();
    auto b = std::make_unique<zBoot>(start_b, stop_b, 'tesB');
    EXPECT_EQ(zBoot::StartAll(), 0);
    EXPECT_EQ(gLog, "+a+b");
    b.reset();  // its code goes: nothing of it is called any more
    zBoot::StopAll();
    EXPECT_EQ(gLog, "+a+b-a");
}

TEST_F(Boot, AModuleThatAStartBringsIsStartedToo) {
    static std::unique_ptr<zBoot> brought;
    zBoot bringer([] { brought = std::make_unique<zBoot>(start_a, stop_a, 'tesA'); }, nullptr,
                  'brng');
    EXPECT_EQ(zBoot::StartAll(), 0);
    EXPECT_EQ(gLog, "+a");
    zBoot::StopAll();
    brought.reset();
    EXPECT_EQ(gLog, "+a-a");
}

TEST_F(Boot, ACircleIsTracedAndEndsInAnError) {
    Capture capture;
    static int inner = 1;
    zBoot a([] { inner = zBoot::Depends('tesB', nullptr); }, nullptr, 'tesA');
    zBoot b([] { gLog += zBoot::Depends('tesA', nullptr) == -1 ? "refused" : "accepted"; }, nullptr,
            'tesB');
    EXPECT_EQ(zBoot::StartAll(), -1);
    EXPECT_EQ(gLog, "refused");
    EXPECT_EQ(inner, 0);
    EXPECT_EQ(gTraced, "zBoot: module 'tesA' depends on itself in a circle\n");
    zBoot::StopAll();
    EXPECT_EQ(zBoot::StartAll(), -1);  // the next attempt tells again
}

TEST_F(Boot, AMissingModuleIsTracedAndEndsInAnError) {
    Capture capture;
    zBoot a(
        [] {
            zBoot::Depends('nope', nullptr);
            gLog += "+a";
        },
        stop_a, 'tesA');
    EXPECT_EQ(zBoot::StartAll(), -1);
    EXPECT_EQ(gLog, "+a");
    EXPECT_EQ(gTraced, "zBoot: no module 'nope' is loaded, on which another depends\n");
    zBoot::StopAll();
    EXPECT_EQ(gLog, "+a-a");
}

TEST_F(Boot, ASecondModuleOfOneIdIsRefused) {
    Capture capture;
    zBoot a(start_a, stop_a, 'tesA');
    {
        zBoot again(start_b, stop_b, 'tesA');
        EXPECT_EQ(gTraced, "zBoot: a second module 'tesA' is refused\n");
        zBoot::StartAll();
    }
    zBoot::StopAll();
    EXPECT_EQ(gLog, "+a-a");
}

TEST_F(Boot, EitherFunctionMayBeMissing) {
    zBoot none(nullptr, nullptr, 'none');
    EXPECT_EQ(zBoot::StartAll(), 0);
    EXPECT_EQ(zBoot::Depends('none', nullptr), 0);
    zBoot::StopAll();
}

TEST_F(Boot, TheBaseModuleIsThere) {
    EXPECT_EQ(zBoot::Depends('pell', zPell::boot_Module), 0);
}

TEST_F(Boot, ModulesRegisterFromAnyThread) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([i] {
            for (int round = 0; round < 200; ++round) zBoot module(nullptr, nullptr, 'mt00' + i);
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(zBoot::StartAll(), 0);
}
