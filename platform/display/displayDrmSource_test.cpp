#include "display/displayDrmSource.h"

#include <deque>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace {

/// A card whose displays and blanks a test writes down. Blanks that are not written do not come.
class ScriptedCard : public displayDrmCard {
public:
    struct Pipe {
        bool lit = false;
        bool counts = false;
        displayDrmMode mode{};
    };

    bool ActiveMode(int pipe, displayDrmMode& mode) override {
        mode = fPipes.at(static_cast<size_t>(pipe)).mode;
        return fPipes.at(static_cast<size_t>(pipe)).lit;
    }
    int PipeCount() override { return static_cast<int>(fPipes.size()); }
    bool WaitForVblank(int pipe, unsigned int ahead, unsigned int& sequence,
                       long long& realTime) override {
        if (!fPipes.at(static_cast<size_t>(pipe)).counts) return false;
        if (ahead == 0) return true;
        if (fBlanks.empty()) return false;
        sequence = fBlanks.front();
        realTime = 1000LL * sequence;
        fBlanks.pop_front();
        return true;
    }

    std::vector<Pipe> fPipes;
    std::deque<unsigned int> fBlanks;
};

displayDrmMode mode_1080p60() {
    return {148'500, 2200, 1125, 1, false, false};
}

}  // namespace

TEST(DisplayDrmSource, TheRateIsThatOfTheMode) {
    struct Case {
        const char* name;
        displayDrmMode mode;
        displayRefreshRate rate;
    };
    const Case cases[] = {
        {"1080p60", mode_1080p60(), {1, 60}},
        {"1080p59.94", {148'352, 2200, 1125, 1, false, false}, {2475, 148'352}},
        {"1080i, a refresh a field", {74'250, 2200, 1125, 1, true, false}, {1, 60}},
        {"doubled lines", {25'200, 800, 262, 1, false, true}, {131, 7875}},
        {"lines shown three times", {25'200, 800, 175, 3, false, false}, {1, 60}},
        {"no timing at all", {0, 0, 0, 1, false, false}, {1, 60}},
        // 2 376 000 000 pixels a second do not fit a scale of 31 bits as they stand.
        {"8k60", {2'376'000, 9000, 4400, 1, false, false}, {1, 60}},
    };
    for (const Case& c : cases) {
        displayDrmSource source(std::make_unique<ScriptedCard>(), 0, c.mode);
        EXPECT_EQ(source.Rate().period, c.rate.period) << c.name;
        EXPECT_EQ(source.Rate().timeScale, c.rate.timeScale) << c.name;
    }
}

TEST(DisplayDrmSource, AScaleThatDoesNotFitLosesItsLastBit) {
    const displayRefreshRate rate = displayRefreshRate::OfMode(2'376'000'001LL, 39'600'000);
    EXPECT_EQ(rate.timeScale, 1'188'000'000);
    EXPECT_EQ(rate.period, 19'800'000);
}

TEST(DisplayDrmSource, DarkPipesAndThoseThatCountNoBlanksArePassedOver) {
    auto card = std::make_unique<ScriptedCard>();
    card->fPipes = {{false, true, mode_1080p60()},
                    {true, false, mode_1080p60()},
                    {true, true, {148'500, 2640, 1125, 1, false, false}}};
    const auto source = displayDrmSource::ForCard(std::move(card));
    ASSERT_TRUE(source);
    EXPECT_EQ(source->Rate(), (displayRefreshRate{1, 50}));
}

TEST(DisplayDrmSource, ACardThatShowsNothingGivesNoSource) {
    auto card = std::make_unique<ScriptedCard>();
    card->fPipes = {{false, true, mode_1080p60()}, {true, false, mode_1080p60()}};
    EXPECT_FALSE(displayDrmSource::ForCard(std::move(card)));
    EXPECT_FALSE(displayDrmSource::ForCard(std::make_unique<ScriptedCard>()));
}

TEST(DisplayDrmSource, BlanksComeWithTheCardsNumberAcrossTheWrap) {
    auto card = std::make_unique<ScriptedCard>();
    card->fPipes = {{true, true, mode_1080p60()}};
    // Two missed in the middle, then over the end of 32 bits.
    card->fBlanks = {0xFFFFFFFBu, 0xFFFFFFFEu, 0xFFFFFFFFu, 0u, 3u};
    const auto source = displayDrmSource::ForCard(std::move(card));
    ASSERT_TRUE(source);
    for (long long expected :
         {0xFFFFFFFBLL, 0xFFFFFFFELL, 0xFFFFFFFFLL, 0x100000000LL, 0x100000003LL}) {
        displayRefresh refresh{};
        ASSERT_TRUE(source->WaitForRefresh(refresh));
        EXPECT_EQ(refresh.videoTime, expected);
        EXPECT_EQ(refresh.period, 1);
        EXPECT_EQ(refresh.timeScale, 60);
    }
    displayRefresh refresh{};
    EXPECT_FALSE(source->WaitForRefresh(refresh)) << "a dark display says so";
}
