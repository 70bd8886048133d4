// `tarn live` that is killed: what its files have kept.

#include <csignal>
#include <gtest/gtest.h>
#include <string>

#include "tests/system/liveKit.h"

using namespace liveKit;

TEST(Live, AKilledShowLeavesATransportStreamThatGoesAsFarAsItWasTold) {
    const TestFolder folder;
    const std::string stream = folder.File("web.ts");
    BackgroundProcess show(
        {kTool, "live",
         WriteShow(folder, Bars("tone=\"1000\"") + Output("bars", "web", "MPEG-TS", stream, kX264)),
         "--json", "--seconds", "600", "--speed", kSpeed},
        BackgroundProcess::Input::kPipe);
    std::string line;
    double told = 0;
    while (told < 50 && show.ReadLine(line)) told = NumberOf(PartOf(line, "web"), "frames");
    ASSERT_GE(told, 50) << line;
    EXPECT_GT(NumberOf(PartOf(line, "web"), "bytes"), 0) << line;
    show.Signal(SIGKILL);
    show.Wait();
    EXPECT_GE(ProbePackets(stream, "v:0").size(), 50U);
}
