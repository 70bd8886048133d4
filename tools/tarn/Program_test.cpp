#include "Program.h"

#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "tests/support/NoThreads.h"
#include "tests/support/TestFolder.h"

namespace {

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
    for (const char* const word : {"recrod", "--version"}) {
        const char* const words[] = {"tarn", word};
        testing::internal::CaptureStderr();
        EXPECT_NE(RunProgram(2, words), 0);
        EXPECT_EQ(
            testing::internal::GetCapturedStderr(),
            std::string("tarn: '") + word +
                "' is no command; there are: record, clock, live, replay, sync, iso, probe\n");
    }
}

}  // namespace
