// The order in which the module's services come up and go down. The linker puts what stands here in
// front of them, see tarn/CMakeLists.txt.

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "spar/zBoot.h"
#include "spar/zRecord.h"
#include "tarn/foundation/TCache.h"
#include "tarn/foundation/tnTarn.h"

namespace {
std::vector<std::string> gOrder;
}

#define TARN_NOTED(symbol, note)        \
    extern "C" void __real_##symbol();  \
    extern "C" void __wrap_##symbol() { \
        gOrder.push_back(note);         \
        __real_##symbol();              \
    }

TARN_NOTED(_ZN15tnFilterManager7StartupEv, "+filters")
TARN_NOTED(_ZN15tnFilterManager8ShutdownEv, "-filters")
TARN_NOTED(_ZN16tnReplayManifest7StartupEv, "+replay")
TARN_NOTED(_ZN16tnReplayManifest8ShutdownEv, "-replay")
TARN_NOTED(_ZN7tnUtils8ShutdownEv, "-utils")
TARN_NOTED(_ZN16tnOutputAccessor21RegisterVariableNamesEv, "+names")
TARN_NOTED(_ZN19tnOutputAnnotations21RegisterVariableNamesEv, "+annotations")

extern "C" int __real__ZN5zBoot7DependsEiPFvvE(int id, void (*token)());
extern "C" int __wrap__ZN5zBoot7DependsEiPFvvE(int id, void (*token)()) {
    gOrder.push_back(id == 'pell' ? "+pell" : "+other");
    return __real__ZN5zBoot7DependsEiPFvvE(id, token);
}

extern "C" void __real__ZN15zErrCodeManager17RegisterCodeRangeEiiPKc(int, int, const char*);
extern "C" void __wrap__ZN15zErrCodeManager17RegisterCodeRangeEiiPKc(int first, int last,
                                                                     const char* name) {
    gOrder.push_back("+errors");
    __real__ZN15zErrCodeManager17RegisterCodeRangeEiiPKc(first, last, name);
}

extern "C" TCache<bool>* __real__ZN6TCacheIbE9SingletonEv();
extern "C" TCache<bool>* __wrap__ZN6TCacheIbE9SingletonEv() {
    gOrder.push_back("+cache");
    return __real__ZN6TCacheIbE9SingletonEv();
}

namespace {

using Order = std::vector<std::string>;

TEST(tnTarnBoot, ServicesComeUpAndGoDownInOrder) {
    gOrder.clear();
    tnTarn::boot_Startup();
    EXPECT_EQ(gOrder, (Order{"+pell", "+names", "+annotations", "+errors", "+cache", "+replay",
                             "+filters"}));
    gOrder.clear();
    tnTarn::boot_Shutdown();
    EXPECT_EQ(gOrder, (Order{"-filters", "-replay", "-utils"}));
}

// In a process where nothing else has entered the keys.
TEST(tnTarnBoot, KeysStandOnceAllModulesAreUp) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto reaches = [] {
        zRecord record;
        record.SetInt32('mwid', 1920);
        record.SetInt32('mOyp', 2);
        record.SetInt32('mMTi', 3);
        return record.AsInt32("tn_width", 0) == 1920 && record.AsInt32("output_type", 0) == 2 &&
               record.AsInt32("output_title", 0) == 3;
    };
    EXPECT_EXIT(
        {
            const bool before = reaches();
            const int started = zBoot::StartAll();
            std::_Exit(!before && started == 0 && reaches() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
