// `tarn live`: whole shows on real clips and on generated pictures, checked with ffprobe,
// mediainfo, GStreamer and ffmpeg. A show takes real time by its nature; these run a few seconds
// each, wait for what the show reports rather than for the clock, and set no limit to how late
// anything is.

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/MakeClip.h"
#include "tests/system/liveKit.h"

using namespace liveKit;

TEST(Live, EveryPictureStandsOnceInEveryOutput) {
    const TestFolder folder;
    RunningShow show(WriteShow(
        folder, Bars("tone=\"1000\"") +
                    Output("bars", "prores", "QuickTime", folder.File("prores.mov"), kProRes) +
                    Output("bars", "mjpeg", "QuickTime", folder.File("mjpeg.mov"), kMjpeg) +
                    Output("bars", "mov", "Shared QuickTime", folder.File("shared.mov"), kX264) +
                    Output("bars", "mp4", "Shared MPEG-4", folder.File("shared.mp4"), kX264)));
    ASSERT_TRUE(show.PlayTo(1)) << show.End().err;
    ASSERT_TRUE(show.Command(
        "add " + Output("bars", "late", "Shared MPEG-4", folder.File("late.mp4"), kX264)))
        << show.Line();
    ASSERT_TRUE(show.Command("remove mov"));
    ASSERT_TRUE(show.PlayTo(4));
    const ProcessResult end = show.Quit();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    for (const char* name : {"prores.mov", "mjpeg.mov", "shared.mov", "shared.mp4"}) {
        const std::vector<int> numbers = NumbersIn(folder.File(name), folder);
        ASSERT_FALSE(numbers.empty()) << name;
        EXPECT_EQ(numbers.front(), 0) << name;
        ExpectInSequence(numbers, name);
    }
    EXPECT_EQ(NumbersIn(folder.File("prores.mov"), folder).size(),
              NumberOf(DoneLine(end), "frames"))
        << "every frame of the show, to its last";
    const std::vector<int> late = NumbersIn(folder.File("late.mp4"), folder);
    ASSERT_FALSE(late.empty());
    EXPECT_GE(late.front(), 12) << "from a key frame that came after it joined";
    ExpectInSequence(late, "late.mp4");
}

TEST(Live, SwitchedOnAgainWritesAnotherFile) {
    const TestFolder folder;
    RunningShow show(
        WriteShow(folder, Bars() + Output("bars", "take", "QuickTime", folder.File("take.mov"),
                                          R"(<video codecname="MJPEG"/>)")));
    ASSERT_TRUE(show.PlayTo(1)) << show.End().err;
    ASSERT_TRUE(show.Command("enable take off"));
    const auto before = std::filesystem::file_size(folder.File("take.mov"));
    // Counted from the answer on: the command itself may have taken long.
    const auto frames = [](const std::string& line) {
        const std::size_t sources = line.find("\"sources\":");
        return sources == std::string::npos ? -1 : NumberOf(line, "frames", sources);
    };
    ASSERT_TRUE(show.ReadUntil([&](const std::string& line) { return frames(line) >= 0; }));
    const double off = frames(show.Line());
    ASSERT_TRUE(show.ReadUntil([&](const std::string& line) { return frames(line) >= off + 15; }));
    ASSERT_TRUE(show.Command("enable take on"));
    ASSERT_TRUE(show.ReadUntil(
        [](const std::string& line) { return NumberOf(PartOf(line, "take"), "frames") > 10; }));
    const ProcessResult end = show.Quit();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_EQ(std::filesystem::file_size(folder.File("take.mov")), before);
    const std::vector<int> first = NumbersIn(folder.File("take.mov"), folder);
    const std::vector<int> second = NumbersIn(folder.File("take 2.mov"), folder);
    ASSERT_FALSE(first.empty() || second.empty());
    ExpectInSequence(first, "take.mov");
    ExpectInSequence(second, "take 2.mov");
    EXPECT_GT(second.front(), first.back() + 10);
    EXPECT_NE(end.out.find("take 2.mov"), std::string::npos) << "told where it writes now";
}

TEST(Live, EndsByItselfWithClipsThatArePlayedOnce) {
    const TestFolder folder;
    const std::string clip = folder.File("short.mp4");
    ASSERT_EQ(tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-y", "-i", kBox, "-t", "2", "-vf",
                          "scale=160:120", clip})
                  .exitCode,
              0);
    RunningShow show(WriteShow(
        folder, "<source name=\"a\" clip=\"" + clip + "\" loop=\"false\" catch_up=\"600\"/>" +
                    Output("a", "take", "QuickTime", folder.File("take.mov"), kProRes)));
    const ProcessResult end = show.End();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_NE(end.out.find(R"("state":"ended")"), std::string::npos) << end.out;
    EXPECT_EQ(tests::CountFrames(folder.File("take.mov")), tests::CountFrames(clip));
    EXPECT_GE(tests::Psnr(folder.File("take.mov"), clip), 30.0);
}

TEST(Live, AFullDiskStopsThatOutputAlone) {
    const TestFolder folder;
    const std::string path = WriteShow(
        folder, Bars("tone=\"440\"") +
                    Output("bars", "big", "QuickTime",
                           folder.File("big.mov") + "\" expected_seconds=\"10\" moov_rate=\"1",
                           R"(<video codecname="ProRes" codec_quality="prores_422_hq"/>)") +
                    Output("bars", "small", "MPEG-TS", folder.File("small.ts"), kX264));
    // No file of this process may grow past a megabyte: to a writer that is a full disk. The room
    // for the index of a long recording would be more than that.
    BackgroundProcess show({"bash", "-c", "ulimit -f 1024; exec \"$@\"", "bash", kTool, "live",
                            path, "--json", "--speed", kSpeed, "--seconds", "300"},
                           BackgroundProcess::Input::kPipe);
    std::string line;
    std::string all;
    bool failed = false;
    while (show.ReadLine(line)) {
        all += line + "\n";
        failed = failed || PartOf(line, "big").find("\"failed\"") != std::string::npos;
        const std::string small = PartOf(line, "small");
        if (failed && NumberOf(small, "frames") > 75) break;
    }
    ASSERT_TRUE(failed) << all;
    show.Write("quit\n");
    const ProcessResult end = show.Wait();
    EXPECT_EQ(end.exitCode, 1) << "an output failed";
    const std::string big = PartOf(DoneLine(end), "big");
    EXPECT_LT(NumberOf(big, "status"), 0) << big;
    EXPECT_NE(big.find("big.mov"), std::string::npos) << big;
    const std::string small = PartOf(DoneLine(end), "small");
    EXPECT_NE(small.find(R"("state":"ended")"), std::string::npos) << small;
    const std::vector<int> kept = NumbersIn(folder.File("big.mov"), folder);
    EXPECT_GT(kept.size(), 5u) << "what was there is kept";
    ExpectInSequence(kept, "big.mov");
    ExpectInSequence(NumbersIn(folder.File("small.ts"), folder), "small.ts");
}

TEST(Live, AnOutputThatCannotStartIsToldAndTheShowGoesOn) {
    const TestFolder folder;
    RunningShow show(
        WriteShow(folder, Bars() + Output("bars", "take", "QuickTime", folder.File("take.mov"),
                                          R"(<video codecname="MJPEG"/>)")));
    ASSERT_TRUE(show.PlayTo(0.2)) << show.End().err;
    const auto replay = [&](const std::string& more) {
        return "add <output kind=\"replay\" output_display_name=\"r\" output_url=\"" +
               folder.File("r") + "\" " + more + "><video codecname=\"x264\"/></output>";
    };
    struct Case {
        std::string command;
        const char* words;
    };
    const Case cases[] = {
        {"add " + Output("bars", "x", "RealFormat", "x.mov", kMjpeg), "there are: "},
        {"add " + Output("bars", "x", "QuickTime", "udp://127.0.0.1:9", kMjpeg), "does not write"},
        {"add " + Output("bars", "x", "QuickTime", "/nonexistent/x.mov", kMjpeg), "no folder"},
        {"add " + Output("bars", "x", "QuickTime", std::string(300, 'a') + "/x.mov", kMjpeg),
         "File name too long"},
        {replay("segment_seconds=\"fast\""), "segment_seconds=\\\"fast\\\" is no number from 0.2"},
        {replay("keep_seconds=\"1O\""), "keep_seconds=\\\"1O\\\" is no number from 0"},
        {replay("keep_seconds=\"1\""), "keep_seconds=\\\"1\\\" is less than a segment"},
        {"add " + Output("bars", "x", "QuickTime", folder.File("take.mov"), kMjpeg), "writes to"},
        {"add " + Output("bars", "x", "QuickTime", folder.File("x.mov"), kMjpeg), "has no sound"},
        {"add " + Output("bars", "x", "Shared QuickTime", folder.File("x.mov"),
                         R"(<video codecname="Crayon"/>)"),
         "is not known here"},
        {"add " + Output("bars", "x", "Shared QuickTime", folder.File("x.mov"),
                         R"(<video codecname="x264"/><video codecname="x264"/>)"),
         "one <video>"},
        {"add nothing.xml", "neither"},
        {"remove x", "no output or source 'x'"},
        {"frobnicate", "no command"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(show.Command(c.command)) << c.command;
        EXPECT_NE(show.Line().find(c.words), std::string::npos) << c.command << "\n" << show.Line();
    }
    const ProcessResult end = show.Quit();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    ExpectInSequence(NumbersIn(folder.File("take.mov"), folder), "take.mov");
}

TEST(Live, BadShowsAreRefusedInOneLine) {
    const TestFolder folder;
    const std::string take =
        Output("bars", "take", "QuickTime", folder.File("a.mov"), R"(<video codecname="MJPEG"/>)");
    struct Case {
        std::string text;
        const char* words;
    };
    const Case cases[] = {
        {"<source name=\"a\" clip=\"" + folder.File("gone.mp4") + "\"/>" + take, "no clip"},
        {"<source name=\"bars\" clip=\"" + folder.File("show.xml") + "\"/>" + take, "show.xml"},
        {Bars() + Output("bars", "take", "RealFormat", "a.mov", kX264),
         "unknown format_name 'RealFormat'; there are: "},
        {Bars(), "no <output>"},
        {take, "no source 'bars'"},
        {Bars("fps=\"fast\"") + take, "fps=\"fast\""},
        {Bars() + take + "</show><show>", "well-formed"},
        {Bars() + Output("bars", "take", "QuickTime", "/nonexistent/a.mov", kX264), "no folder"},
        {Bars() + Output("bars", "take", "MPEG-TS", "udp://127.0.0.1:70000", kX264), "no port"},
        {Bars() + Output("bars", "take", "MPEG-TS", "udp://127.0.0.1", kX264), "no port"},
        {Bars() + Output("bars", "take", "MPEG-TS", "udp://:?ttl=2", kX264), "no port"},
        {Bars() + Output("bars", "take", "QuickTime", folder.File("a.mov"), kMjpeg),
         "has no sound"},
        {Bars() + "<output kind=\"hologram\" output_display_name=\"h\"/>", "unknown kind"},
        {Clip("cup", kCup) + Output("cup", "take", "QuickTime", kCup, kMjpeg), "clip of source"},
    };
    for (const Case& c : cases) {
        const ProcessResult result =
            tests::Run({kTool, "live", WriteShow(folder, c.text), "--seconds", "5"});
        EXPECT_EQ(result.exitCode, 1) << c.text;
        EXPECT_NE(result.err.find(c.words), std::string::npos) << c.text << "\n" << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_EQ(result.err.rfind("tarn live: ", 0), 0u) << result.err;
    }
    struct Option {
        const char* name;
        const char* value;
        const char* words;
    };
    const Option options[] = {
        {"--seconds", "nan", "--seconds: 'nan' is not from 0.001 to 10000000 seconds"},
        {"--seconds", "inf", "--seconds: 'inf' is not from 0.001 to 10000000 seconds"},
        {"--speed", "nan", "--speed: 'nan' is not from 0.001 to 100 times real time"},
        {"--speed", "0", "--speed: '0' is not from 0.001 to 100 times real time"},
    };
    for (const Option& option : options) {
        const ProcessResult result = tests::Run(
            {kTool, "live", WriteShow(folder, Bars() + take), option.name, option.value});
        EXPECT_NE(result.exitCode, 0) << option.words;
        EXPECT_NE(result.err.find(option.words), std::string::npos) << result.err;
        EXPECT_FALSE(std::filesystem::exists(folder.File("a.mov")));
    }
    const ProcessResult gone = tests::Run({kTool, "live", folder.File("gone.xml"), "--json"});
    EXPECT_EQ(gone.exitCode, 1);
    EXPECT_NE(gone.out.find(R"({"event":"error","message":)"), std::string::npos) << gone.out;
    const ProcessResult addons = tests::Run(
        {kTool, "live", WriteShow(folder, Bars() + take), "--addons", folder.File("gone")});
    EXPECT_NE(addons.err.find("--addons"), std::string::npos) << addons.err;
}

TEST(Live, ATerminalShowsTheShowAndItsCommands) {
    const TestFolder folder;
    const std::string path =
        WriteShow(folder, Bars() + Output("bars", "take", "QuickTime", folder.File("take.mov"),
                                          R"(<video codecname="MJPEG"/>)"));
    // A terminal of 100 columns that `script` makes.
    const ProcessResult result = tests::Run({"script", "-qec",
                                             "stty cols 100; " + kTool + " live " + path +
                                                 " --seconds 1 --speed " + std::string(kSpeed),
                                             "/dev/null"});
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_NE(result.out.find("\033["), std::string::npos);
    EXPECT_NE(result.out.find("take"), std::string::npos);
    EXPECT_NE(result.out.find("running"), std::string::npos) << result.out;
    const std::regex counts("late [0-9]+  lost [0-9]+");
    EXPECT_TRUE(std::regex_search(result.out, counts)) << result.out;
}

// A monitor that ends, a pipe into `head`: the recordings matter more than who watches them.
TEST(Live, WhoReadsItsLinesMayGo) {
    const TestFolder folder;
    const std::string path =
        WriteShow(folder, Bars() + Output("bars", "take", "QuickTime", folder.File("take.mov"),
                                          R"(<video codecname="MJPEG"/>)"));
    const ProcessResult result = tests::Run(
        {"bash", "-c", "set -o pipefail; env --default-signal=PIPE \"$@\" 2>&1 | head -n 1", "bash",
         kTool, "live", path, "--json", "--seconds", "3", "--speed", kSpeed});
    EXPECT_EQ(result.exitCode, 0) << result.out;
    const std::vector<int> numbers = NumbersIn(folder.File("take.mov"), folder);
    EXPECT_GT(numbers.size(), 75 * std::atof(kSpeed) / 2) << "longer than its first line";
    ExpectInSequence(numbers, "take.mov");
}

TEST(Live, AClosedTerminalEndsItInOrder) {
    const TestFolder folder;
    const std::string path =
        WriteShow(folder, Bars() + Output("bars", "take", "QuickTime", folder.File("take.mov"),
                                          R"(<video codecname="MJPEG"/>)"));
    BackgroundProcess show({"env", "--default-signal=HUP", kTool, "live", path, "--json",
                            "--seconds", "100", "--speed", kSpeed},
                           BackgroundProcess::Input::kPipe);
    std::string line;
    while (show.ReadLine(line)) {
        if (NumberOf(PartOf(line, "take"), "frames") > 5) break;
    }
    show.Signal(SIGHUP);
    show.Signal(SIGHUP);
    const ProcessResult end = show.Wait();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    EXPECT_NE(DoneLine(end).find(R"("state":"ended")"), std::string::npos) << end.out;
    EXPECT_EQ(NumbersIn(folder.File("take.mov"), folder).size(), NumberOf(DoneLine(end), "frames"));
}

// What is typed then is for the shell in front; a program that reads it is stopped by the system.
TEST(Live, PlaysOnInTheBackgroundOfATerminal) {
    const TestFolder folder;
    const std::string path =
        WriteShow(folder, Bars() + Output("bars", "take", "QuickTime", folder.File("take.mov"),
                                          R"(<video codecname="MJPEG"/>)"));
    BackgroundProcess shell(
        {"script", "-qec",
         "bash -c 'set -m; " + kTool + " live " + path + " --seconds 2 --speed " + kSpeed +
             " & wait %1 && echo played to its end'",
         "/dev/null"},
        BackgroundProcess::Input::kPipe);
    shell.Write("ls\n");
    const ProcessResult result = shell.Wait();
    EXPECT_NE(result.out.find("played to its end"), std::string::npos) << result.out;
    ExpectInSequence(NumbersIn(folder.File("take.mov"), folder), "take.mov");
}

// The filter of plain sound takes stereo in blocks of a thirtieth of a second only: neither the
// frame rate nor what a clip brings may show.
TEST(Live, PlainSoundReachesSharedFilesWhateverTheSource) {
    const TestFolder folder;
    const std::string clip = folder.File("mono.mov");
    ASSERT_TRUE(tests::MakeClip(clip,
                                "-f lavfi -i testsrc2=s=160x120:r=25:d=3 "
                                "-f lavfi -i sine=440:r=32000:d=3 "
                                "-ac 1 -c:v mjpeg -c:a pcm_s16le"));
    const std::string tracks =
        R"(<video codecname="x264" target_bit_rate="400" key_frame_rate="12"/>)"
        R"(<audio codecname="PCM"/>)";
    RunningShow show(WriteShow(
        folder,
        Bars("fps=\"29.97\" tone=\"440\"") + "<source name=\"mono\" catch_up=\"600\" clip=\"" +
            clip + "\"/>" +
            Output("bars", "ntsc", "Shared QuickTime", folder.File("ntsc.mov"), tracks) +
            Output("mono", "mono", "Shared QuickTime", folder.File("mono out.mov"), tracks)));
    ASSERT_TRUE(show.PlayTo(3)) << show.End().err;
    const ProcessResult end = show.Quit();
    EXPECT_EQ(end.exitCode, 0) << end.err;
    ExpectWholeMovie(folder.File("ntsc.mov"), "h264", 1001.0 / 30000, 60);
    ExpectWholeMovie(folder.File("mono out.mov"), "h264", 1.0 / 25, 50);
    for (const char* name : {"ntsc.mov", "mono out.mov"}) {
        const std::string path = folder.File(name);
        EXPECT_EQ(ProbeStream(path, "a:0", "codec_name"), "pcm_s16le") << name;
        EXPECT_GE(std::atof(ProbeStream(path, "a:0", "duration").c_str()),
                  std::atof(ProbeStream(path, "v:0", "duration").c_str()))
            << name;
    }
}
