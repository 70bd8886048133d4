#include "spar/zSpinLead.h"

#include <gtest/gtest.h>

namespace {

constexpr long long kLeast = 20;
constexpr long long kMost = 200;

/// A lead that punctual wake-ups have brought down as far as it goes.
zSpinLead lowest_lead() {
    zSpinLead lead;
    for (int i = 0; i < 100; ++i) lead.TakeWakeUp(0);
    return lead;
}

TEST(zSpinLead, PunctualWakeUpsBringItDownSlowly) {
    zSpinLead lead;
    const long long first = lead.Us();
    lead.TakeWakeUp(0);
    EXPECT_LT(lead.Us(), first);
    EXPECT_GE(lead.Us(), first - first / 16);
    EXPECT_EQ(lowest_lead().Us(), kLeast);
}

TEST(zSpinLead, OneLateWakeUpDoesNotLengthenIt) {
    zSpinLead lead = lowest_lead();
    for (int i = 0; i < 10; ++i) {
        lead.TakeWakeUp(150);
        EXPECT_EQ(lead.Us(), kLeast);
        lead.TakeWakeUp(0);
        EXPECT_EQ(lead.Us(), kLeast);
    }
}

TEST(zSpinLead, TwoLateOnesInARowBringItUpAtOnceToCoverTheLesser) {
    for (const auto& [one, other] : {std::pair{80LL, 120LL}, std::pair{120LL, 80LL}}) {
        zSpinLead lead = lowest_lead();
        lead.TakeWakeUp(one);
        lead.TakeWakeUp(other);
        EXPECT_EQ(lead.Us(), 100);
    }
}

TEST(zSpinLead, NeverLongerThanTheMost) {
    zSpinLead lead;
    for (int i = 0; i < 10; ++i) lead.TakeWakeUp(kMost);
    EXPECT_EQ(lead.Us(), kMost);
}

// Under load the processor is given back by the slice: no spin of ours makes up for that.
TEST(zSpinLead, WakeUpsThatNoLeadCoversDoNotLengthenIt) {
    zSpinLead lead = lowest_lead();
    for (int i = 0; i < 10; ++i) {
        lead.TakeWakeUp(kMost + 1);
        EXPECT_EQ(lead.Us(), kLeast);
    }
}

}  // namespace
