#include "PixelKernels.h"

#include <gtest/gtest.h>
#include <string>

#include "PixelPlan.h"
#include "PixelTestPicture.h"

using namespace Quillon::Orb;
using namespace Quillon::Orb::Testing;

namespace {

// Rows shorter than a vector of any set, exactly as long, and longer by every kind of rest.
constexpr int kWidths[] = {1,  2,  3,  7,  15, 16, 17, 30,  31,  32,  33,  34,
                           47, 48, 63, 64, 65, 66, 95, 127, 128, 129, 130, 191};
constexpr int kHeight = 5;

struct Set {
    const char* name;
    const PixelKernels* kernels;
};

/// Every set of this build; null where the processor lacks it.
std::vector<Set> all_sets() {
    return {{"Sse41", Sse41PixelKernels()},
            {"Avx2", Avx2PixelKernels()},
            {"Avx512", Avx512PixelKernels()}};
}

/// Converts with the kernels given into a picture that was filled before.
TestPicture converted(const PixelRequest& request, TestPicture& from, const PixelKernels& kernels) {
    TestPicture to(request.to, request.width, request.height, 1);
    PixelPlan::Make(request, kernels)->Convert(from.Image(), to.Image());
    return to;
}

class EverySet : public testing::TestWithParam<Set> {
protected:
    /// Compares a set with the plain kernels in one conversion.
    void check(const PixelRequest& request, Fill fill) {
        TestPicture from(request.from, request.width, request.height, 1);
        from.FillWith(fill, request.width);
        TestPicture fast = converted(request, from, *GetParam().kernels);
        TestPicture plain = converted(request, from, PlainPixelKernels());
        ASSERT_TRUE(fast.GuardsHold()) << request.from << " to " << request.to;
        ASSERT_TRUE(fast.SameBytes(plain))
            << std::hex << request.from << " to " << request.to << std::dec << ", width "
            << request.width << ", scan " << static_cast<int>(request.scan);
    }
};

TEST_P(EverySet, GivesTheSameBitsAsThePlainKernels) {
    if (!GetParam().kernels) GTEST_SKIP() << "this processor does not have " << GetParam().name;
    int count = 0;
    const unsigned int* codes = AllPixelFormats(count);
    const PixelColour colours[] = {{PixelMatrix::Bt709, PixelRange::Limited},
                                   {PixelMatrix::Bt601, PixelRange::Full}};
    for (int from = 0; from < count; ++from) {
        for (int to = 0; to < count; ++to) {
            for (const int width : kWidths) {
                for (int i = 0; i < 4; ++i) {
                    const PixelScan scan = i & 1 ? PixelScan::Interlaced : PixelScan::Progressive;
                    check({codes[from], codes[to], width, kHeight, colours[i / 2], colours[i & 1],
                           scan},
                          i & 1 ? Fill::Extremes : Fill::Random);
                    if (HasFatalFailure()) return;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(PixelKernels, EverySet, testing::ValuesIn(all_sets()),
                         [](const auto& set) { return std::string(set.param.name); });

TEST(PixelKernels, BestSetIsOneThatTheProcessorHas) {
    const PixelKernels& best = BestPixelKernels();
    bool found = &best == &PlainPixelKernels();
    for (const Set& set : all_sets()) found = found || &best == set.kernels;
    EXPECT_TRUE(found);
    EXPECT_EQ(&best == &PlainPixelKernels(), Sse41PixelKernels() == nullptr);
}

}  // namespace
