// `tarn clock`: what it prints and draws. How late ticks are is the machine's affair; nothing here
// looks at that.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

using tests::ProcessResult;
using tests::TestFolder;

namespace {

ProcessResult Clock(std::vector<std::string> options) {
    options.insert(options.begin(), {TARN_TOOL, "clock"});
    return tests::Run(options);
}

/// The whole number behind `"key":`, -1 when there is none.
long long NumberOf(const std::string& json, const std::string& key) {
    const size_t at = json.find("\"" + key + "\":");
    return at == std::string::npos ? -1 : std::stoll(json.substr(at + key.size() + 3));
}

}  // namespace

TEST(ClockCommand, CountsEveryTickOfItsRate) {
    for (const char* accuracy : {"scac", "asnc"}) {
        const ProcessResult result =
            Clock({"--rate", "60000/1001", "--seconds", "1", "--accuracy", accuracy, "--json"});
        ASSERT_EQ(result.exitCode, 0) << result.err;
        const long long ticks = NumberOf(result.out, "ticks");
        const long long lost = NumberOf(result.out, "lost");
        EXPECT_GE(lost, 0);
        // A second has 60; a machine that stands still at its end may owe some.
        EXPECT_GE(ticks + lost, 30) << result.out;
        EXPECT_NE(result.out.find("\"rate\":59.940060"), std::string::npos) << result.out;
        for (const char* key : {"producedLate", "receivedLate", "intervalOff"}) {
            EXPECT_NE(result.out.find(key), std::string::npos);
        }
        EXPECT_TRUE(result.err.empty()) << "quiet in a pipe: " << result.err;
    }
}

TEST(ClockCommand, PrintsPercentilesAsATable) {
    const ProcessResult result = Clock({"--rate", "200", "--seconds", "0.3", "--load"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (const char* word : {"200 Hz", "'scac'", "all cores loaded", "p50", "p90", "p99", "p99.9",
                             "max", "produced late", "received late", "interval off its period"}) {
        EXPECT_NE(result.out.find(word), std::string::npos) << word << "\n" << result.out;
    }
}

TEST(ClockCommand, DrawsWhatOtherToolsCanRender) {
    const TestFolder folder;
    const std::string svg = folder.File("clock.svg");
    const std::string png = folder.File("clock.png");
    const ProcessResult result = Clock({"--rate", "100", "--seconds", "0.5", "--plot", svg});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    ASSERT_EQ(tests::Run({"rsvg-convert", svg, "-o", png}).exitCode, 0);
    EXPECT_GT(std::filesystem::file_size(png), 5'000u);
    std::ifstream file(svg);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    for (const char* word : {"Ticks by lateness", "Lateness over time", "p50", "p99", "100 Hz"}) {
        EXPECT_NE(text.find(word), std::string::npos) << word;
    }
}

TEST(ClockCommand, ARateOfTelevisionIsThatOfShows) {
    const ProcessResult result = Clock({"--rate", "59.94", "--seconds", "0.2", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("\"rate\":59.940060"), std::string::npos) << result.out;
}

TEST(ClockCommand, APlotThatCannotBeWrittenIsToldBeforeItMeasures) {
    const ProcessResult result = Clock({"--seconds", "3600", "--plot", "/nonexistent/plot.svg"});
    EXPECT_NE(result.exitCode, 0);
    EXPECT_TRUE(result.out.empty()) << result.out;
    EXPECT_NE(result.err.find("/nonexistent/plot.svg': the plot cannot be written"),
              std::string::npos)
        << result.err;
    const TestFolder folder;
    const std::string plot = folder.File("plot.svg");
    EXPECT_NE(Clock({"--seconds", "0.1", "--rate", "1", "--plot", plot}).exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(plot)) << "asking leaves nothing behind";
}

TEST(ClockCommand, MachinesAreToldWhatIsWrongToo) {
    const ProcessResult result = Clock({"--seconds", "0.1", "--rate", "1", "--json"});
    EXPECT_NE(result.exitCode, 0);
    EXPECT_NE(result.out.find(R"({"event":"error","message":"no ticks)"), std::string::npos)
        << result.out;
}

// The end of a measurement waits for the tick that is due next, so none is begun that has no tick.
TEST(ClockCommand, MeasuresNothingWhereNoTickCanCome) {
    const ProcessResult result = Clock({"--seconds", "10", "--rate", "0.1", "--json"});
    EXPECT_NE(result.exitCode, 0);
    EXPECT_EQ(result.out.find("done"), std::string::npos) << result.out;
    EXPECT_NE(result.err.find("no ticks; measure for longer"), std::string::npos) << result.err;
}

TEST(ClockCommand, SaysWhatIsWrong) {
    struct Case {
        std::vector<std::string> options;
        const char* words;
    };
    const Case cases[] = {
        {{"--rate", "fast"}, "not a rate"},
        {{"--rate", "0"}, "from 0.1 to 2000"},
        {{"--rate", "0.09"}, "from 0.1 to 2000"},
        {{"--rate", "-25"}, "from 0.1 to 2000"},
        {{"--rate", "60/0"}, "from 0.1 to 2000"},
        {{"--rate", "60000/1001x"}, "not a rate"},
        {{"--rate", "5000"}, "from 0.1 to 2000"},
        {{"--accuracy", "best"}, "--accuracy"},
        {{"--rate", "nan"}, "from 0.1 to 2000"},
        {{"--seconds", "0"}, "--seconds"},
        {{"--seconds", "nan"}, "--seconds: 'nan' is not from 0.1 to 3600 seconds"},
        {{"--seconds", "0.1", "--rate", "1"}, "measure for longer"},
        {{"--seconds", "0.2", "--plot", "/nonexistent/plot.svg"}, "/nonexistent/plot.svg"},
    };
    for (const Case& c : cases) {
        const ProcessResult result = Clock(c.options);
        EXPECT_NE(result.exitCode, 0) << c.words;
        EXPECT_NE((result.out + result.err).find(c.words), std::string::npos) << c.words << "\n"
                                                                              << result.err;
    }
}
