#include "Program.h"

#include <cctype>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/NoThreads.h"
#include "tests/support/TestFolder.h"

namespace {

struct Told {
    int exitCode;
    std::string out;
    std::string err;
};

Told TellOf(std::vector<const char*> words) {
    words.insert(words.begin(), "/somewhere/tarn");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int exitCode = RunProgram(static_cast<int>(words.size()), words.data());
    const std::string out = testing::internal::GetCapturedStdout();
    return {exitCode, out, testing::internal::GetCapturedStderr()};
}

TEST(Program, WhatACommandThrowsIsToldInALine) {
    const tests::TestFolder folder;
    const std::string settings = folder.File("iso.xml");
    std::ofstream(settings) << "<iso_output output_folder=\"" << folder.Path() << "\"/>";
    const char* const words[] = {"tarn", "iso", "check", settings.c_str()};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    int exitCode = 0;
    {
        const tests::NoThreads none;
        exitCode = RunProgram(4, words);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "tarn: Resource temporarily unavailable; the machine has no memory or no thread left "
              "for it; end other programs and try again\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(exitCode, 2) << "as of all that cannot be checked";
}

TEST(Program, AClockWithoutAThreadMeasuresNothing) {
    const char* const words[] = {"tarn", "clock", "--seconds", "0.1"};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    int exitCode = 0;
    {
        const tests::NoThreads none;
        exitCode = RunProgram(4, words);
    }
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_NE(told.find("tarn: Resource temporarily unavailable; the machine has no memory or no "
                        "thread left for it; end other programs and try again\n"),
              std::string::npos)
        << told;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_NE(exitCode, 0);
}

TEST(Program, WordThatIsNoCommandIsTold) {
    for (const char* const word : {"recrod", "--verbose"}) {
        const Told told = TellOf({word});
        EXPECT_NE(told.exitCode, 0);
        EXPECT_EQ(
            told.err,
            std::string("tarn: '") + word +
                "' is no command; there are: record, clock, live, replay, sync, iso, probe\n");
    }
}

TEST(Program, TellsItsVersion) {
    const Told told = TellOf({"--version"});
    EXPECT_EQ(told.exitCode, 0) << told.err;
    EXPECT_EQ(told.out, std::string("tarn ") + TARN_VERSION + "\n");
}

// Names stand in front of column 30, and what is said of them from there on.
TEST(Program, EveryHelpSpeaksInOneVoice) {
    const std::vector<std::vector<const char*>> commands = {
        {},
        {"record"},
        {"clock"},
        {"live"},
        {"replay"},
        {"replay", "x", "list"},
        {"replay", "x", "cut"},
        {"replay", "x", "purge"},
        {"replay", "x", "watch"},
        {"sync"},
        {"sync", "signal"},
        {"sync", "measure"},
        {"iso"},
        {"iso", "check"},
        {"probe"},
    };
    for (std::vector<const char*> words : commands) {
        words.push_back("--help");
        std::istringstream help(TellOf(words).out);
        bool ofCommands = false;
        int lines = 0;
        for (std::string line; std::getline(help, line);) {
            SCOPED_TRACE(line);
            if (line == "Subcommands:") ofCommands = true;
            if (line.rfind("  ", 0) != 0 || line.size() <= 30 || line[29] != ' ') continue;
            const std::string text = line.substr(30);
            ++lines;
            if (line.find("--json") != std::string::npos) {
                EXPECT_EQ(text, "a JSON object a line, for machines");
            }
            if (ofCommands) {
                EXPECT_TRUE(std::isupper(text[0]));
                EXPECT_NE(text[text.find(' ') - 1], 's') << "it says what to do";
            } else {
                EXPECT_FALSE(std::isupper(text[0]));
            }
            EXPECT_EQ(text.find("(60)"), std::string::npos) << "defaults stand with the name";
        }
        EXPECT_GT(lines, 0);
    }
}

// The folder may be left out by who asks for help, and its place is shown.
TEST(Program, HelpOfAReplayCommandIsThatOfTheCommand) {
    for (const std::vector<const char*>& words :
         {std::vector<const char*>{"replay", "cut", "--help"}, {"replay", "x", "cut", "--help"}}) {
        const Told told = TellOf(words);
        EXPECT_EQ(told.exitCode, 0) << told.err;
        EXPECT_NE(told.out.find("--exact"), std::string::npos) << told.out;
        EXPECT_NE(told.out.find("Usage: tarn replay FOLDER cut [OPTIONS] OUTPUT\n"),
                  std::string::npos)
            << told.out;
    }
    EXPECT_NE(
        TellOf({"replay", "--help"}).out.find("Usage: tarn replay [OPTIONS] FOLDER SUBCOMMAND"),
        std::string::npos);
    EXPECT_NE(TellOf({"--help"}).out.find("Usage: tarn [OPTIONS] SUBCOMMAND"), std::string::npos);
}

TEST(Program, AReplayCommandWithoutItsFolderIsToldWhereThatStands) {
    const Told told = TellOf({"replay", "cut"});
    EXPECT_NE(told.exitCode, 0);
    EXPECT_EQ(told.err,
              "tarn replay: 'cut' stands where an argument belongs; type it as: tarn replay FOLDER "
              "cut\n");
}

TEST(Program, WordsThatAreRefusedAreToldToMachinesToo) {
    for (const bool json : {true, false}) {
        std::vector<const char*> words = {"record", "a", "b.mov", "--limit", "0"};
        if (json) words.push_back("--json");
        const Told told = TellOf(words);
        EXPECT_NE(told.exitCode, 0);
        EXPECT_EQ(told.err.find("tarn record: --limit: '0' is not from"), 0u) << told.err;
        EXPECT_EQ(told.out.find(R"({"event":"error","message":"--limit: '0' is not from)") == 0,
                  json)
            << told.out;
    }
}

}  // namespace
