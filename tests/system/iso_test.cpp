// `tarn iso check`, ISO outputs of `tarn live`, and `tarn probe`.

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"
#include "tests/system/liveKit.h"

using tests::BackgroundProcess;
using tests::CountFrames;
using tests::ProbeStream;
using tests::ProcessResult;
using tests::TestFolder;

namespace {

ProcessResult Check(std::vector<std::string> options) {
    options.insert(options.begin(), {TARN_TOOL, "iso", "check"});
    return tests::Run(options);
}

std::string Output(const std::string& source, const std::string& name, const std::string& folder) {
    return "<iso_output source_id=\"" + source + "\" output_filename=\"" + name +
           "\" output_folder=\"" + folder + "\" video_format=\"PRORES-MOV\"/>";
}

std::string Write(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
    return path;
}

/// Waits until the file of a process's output holds the words. Real time: what is watched is a
/// poll twice a second; a minute is far beyond it.
bool Appears(const std::string& path, const std::string& words) {
    for (int i = 0; i < 1200; ++i) {
        std::ifstream file(path);
        const std::string text((std::istreambuf_iterator<char>(file)), {});
        if (text.find(words) != std::string::npos) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

}  // namespace

TEST(IsoCheckCommand, GoodSettingsAreOk) {
    const TestFolder folder;
    const std::string settings =
        Write(folder.File("iso.xml"), "<iso><source source_id=\"cam1\"/>" +
                                          Output("cam1", "one.mov", folder.Path()) + "</iso>");
    const ProcessResult result = Check({settings});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "one.mov: ok\n");
    EXPECT_TRUE(result.err.empty()) << result.err;
}

TEST(IsoCheckCommand, EachProblemIsALineThatSaysWhatToChange) {
    const TestFolder folder;
    const std::string settings =
        Write(folder.File("iso.xml"), "<iso><source source_id=\"cam1\"/>" +
                                          Output("cam1", "one.mov", folder.Path()) +
                                          Output("cam1", "ONE.mov", folder.Path()) +
                                          Output("cam2", "a:b", "/nonexistent") + "</iso>");
    const ProcessResult result = Check({settings});
    EXPECT_EQ(result.exitCode, 1);
    for (const char* words :
         {"one.mov: source 'cam1' is recorded by 'ONE.mov' as well; set source_id",
          "ONE.mov: source 'cam1' is recorded by 'one.mov' as well", "is written by 'one.mov'",
          "a:b: there is no source 'cam2'; set source_id to one that there is: cam1",
          "a:b: the name 'a:b' holds", "a:b: there is no folder '/nonexistent'; make it"}) {
        EXPECT_NE(result.out.find(words), std::string::npos) << words << "\n" << result.out;
    }
    const ProcessResult json = Check({settings, "--json"});
    EXPECT_EQ(json.exitCode, 1);
    for (const char* words :
         {R"({"event":"output","name":"one.mov","ok":false,"problems":[{"flag":"source_in_use")",
          R"({"flag":"path_in_use","message":")", R"({"flag":"unknown_source")",
          R"({"flag":"bad_filename")", R"({"flag":"folder_missing")",
          R"({"event":"done","outputs":3,"problems":7})"}) {
        EXPECT_NE(json.out.find(words), std::string::npos) << words << "\n" << json.out;
    }
}

TEST(IsoCheckCommand, BadInputIsOneLine) {
    const TestFolder folder;
    const std::string broken = Write(folder.File("broken.xml"), "<iso><iso_output>");
    const std::pair<std::string, const char*> kCases[] = {
        {folder.File("none.xml"), "there is no such file"},
        {folder.Path(), "is a folder"},
        {"/dev/null", "is a pipe or a device"},
        {broken, "ends before </iso>"},
        {Write(folder.File("word.xml"), "<iso_output file_duration=\"long\"/>"),
         "file_duration=\"long\" is no whole number"},
    };
    for (const auto& [path, words] : kCases) {
        const ProcessResult result = Check({path});
        EXPECT_EQ(result.exitCode, 2) << path;
        EXPECT_TRUE(result.out.empty()) << result.out;
        EXPECT_EQ(result.err.find("tarn iso: '" + path + "': "), 0u) << result.err;
        EXPECT_NE(result.err.find(words), std::string::npos) << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
    }
    const ProcessResult json = Check({broken, "--json"});
    EXPECT_EQ(json.exitCode, 2);
    EXPECT_NE(json.out.find(R"({"event":"error","message":")"), std::string::npos) << json.out;
    EXPECT_NE(Check({}).exitCode, 0);
}

TEST(IsoCheckCommand, WatchTellsWhatChanges) {
    const TestFolder folder;
    const std::string place = folder.File("disk");
    const std::string settings = Write(folder.File("iso.xml"), Output("cam1", "one.mov", place));
    const std::string log = folder.File("log");
    BackgroundProcess process(
        {"sh", "-c", "exec \"$0\" iso check --watch \"$1\" > \"$2\"", TARN_TOOL, settings, log});
    EXPECT_TRUE(Appears(log, "one.mov: there is no folder"));
    std::filesystem::create_directory(place);
    EXPECT_TRUE(Appears(log, "one.mov: ok"));
    Write(settings, Output("cam1", "two:mov", place));
    EXPECT_TRUE(Appears(log, "two:mov: the name"));
    Write(settings, Output("cam1", "three.mov", place));
    EXPECT_TRUE(Appears(log, "three.mov: ok"));
    process.Signal(SIGINT);
    EXPECT_EQ(process.Wait().exitCode, 0);
}

TEST(IsoCheckCommand, WatchTellsThatTheFileIsEmptyFromTheStart) {
    const TestFolder folder;
    const std::string settings = Write(folder.File("iso.xml"), "");
    const std::string log = folder.File("log");
    BackgroundProcess process(
        {"sh", "-c", "exec \"$0\" iso check --watch \"$1\" 2> \"$2\"", TARN_TOOL, settings, log});
    EXPECT_TRUE(Appears(log, "holds no whole XML element"));
    std::filesystem::remove(settings);
    EXPECT_TRUE(Appears(log, "there is no such file"));
    std::ofstream(log).close();  // what it says next is new
    Write(settings, "");
    EXPECT_TRUE(Appears(log, "holds no whole XML element"));
    process.Signal(SIGINT);
    EXPECT_EQ(process.Wait().exitCode, 0);
}

namespace {

/// A show of one source of bars with a tone, and these outputs.
std::string WriteShow(const TestFolder& folder, const std::string& outputs) {
    return Write(folder.File("show.xml"),
                 "<show><source name=\"bars\" picture=\"bars\" tn_width=\"160\" tn_height=\"90\" "
                 "tone=\"440\"/>" +
                     outputs + "</show>");
}

std::string LiveOutput(const TestFolder& folder, const std::string& name, const std::string& file,
                       const std::string& more = "") {
    return "<output kind=\"iso\" output_enabled=\"true\" output_display_name=\"" + name +
           "\" output_filename=\"" + file + "\" output_folder=\"" + folder.Path() +
           "\" video_format=\"MJPEG-MOV\" " + more + "/>";
}

ProcessResult Live(const std::string& show, std::vector<std::string> options) {
    options.insert(options.begin(), {TARN_TOOL, "live", show});
    return tests::Run(options);
}

}  // namespace

TEST(IsoInAShow, RecordsOneSourceIntoItsOwnFile) {
    const TestFolder folder;
    liveKit::RunningShow show(liveKit::WriteShow(
        folder, liveKit::Bars("tone=\"440\"") + LiveOutput(folder, "alone", "alone.mov")));
    ASSERT_TRUE(show.PlayTo(1)) << show.End().err;
    const ProcessResult result = show.Quit();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::string movie = folder.File("alone.mov");
    EXPECT_EQ(ProbeStream(movie, "v:0", "codec_name"), "mjpeg");
    EXPECT_EQ(ProbeStream(movie, "a:0", "codec_name"), "pcm_s16le");
    EXPECT_GE(CountFrames(movie), 10);
}

TEST(IsoInAShow, ShowWithAProblemDoesNotStart) {
    const TestFolder folder;
    struct Case {
        std::string outputs;
        std::vector<const char*> words;
    };
    const Case cases[] = {
        {LiveOutput(folder, "one", "one.mov") + LiveOutput(folder, "two", "ONE.mov"),
         {"output 'one'", "is recorded by 'two' as well", "is written by 'two' as well"}},
        {LiveOutput(folder, "one", "a:b.mov"), {"output 'one'", "output_filename"}},
        {LiveOutput(folder, "one", ""), {"output 'one'", "no name", "set output_filename"}},
        {LiveOutput(folder, "one", "a.mov", "file_duration_units=\"minutes\""),
         {"output 'one'", "file_duration_units", "hour or min or sec"}},
        {LiveOutput(folder, "one", "a.mov", "file_duration=\"5\" file_duration_units=\"sec\""),
         {"output 'one'", "file_duration of 5 sec", "10 sec to 12 hour"}},
        {LiveOutput(folder, "one", "a.mov",
                    "video_track_enabled=\"false\" audio_track_enabled=\"false\""),
         {"output 'one'", "neither pictures nor sound"}},
        {LiveOutput(folder, "one", "a.mov", "video_quality=\"prores_422\""),
         {"output 'one'", "video_quality", "MJPEG-MOV"}},
        {LiveOutput(folder, "one", "a.mov", "file_duration=\"long\""),
         {"output 'one'", "no whole number"}},
        {"<output kind=\"iso\" output_display_name=\"one\" output_filename=\"a.mov\" "
         "output_folder=\"/nonexistent\" video_format=\"MJPEG-MOV\"/>",
         {"output 'one'", "there is no folder '/nonexistent'"}},
    };
    for (const Case& c : cases) {
        const ProcessResult result = Live(WriteShow(folder, c.outputs), {"--seconds", "30"});
        EXPECT_EQ(result.exitCode, 1) << c.outputs;
        EXPECT_EQ(result.err.find("tarn live: output"), 0u) << result.err;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
        for (const char* words : c.words) {
            EXPECT_NE(result.err.find(words), std::string::npos) << words << "\n" << result.err;
        }
        EXPECT_FALSE(std::filesystem::exists(folder.File("a.mov")));
    }
}

TEST(IsoInAShow, FullFileIsFollowedByTheNextWithoutAGap) {
    // Ten seconds is the shortest file, so this takes its time.
    const TestFolder folder;
    liveKit::RunningShow show(liveKit::WriteShow(
        folder, liveKit::Bars("tone=\"440\"") +
                    LiveOutput(folder, "long", "long.mov",
                               "file_duration=\"10\" file_duration_units=\"sec\"")));
    ASSERT_TRUE(show.PlayTo(12)) << show.End().err;
    const ProcessResult result = show.Quit();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const std::vector<int> first = liveKit::NumbersIn(folder.File("long.mov"), folder);
    const std::vector<int> second = liveKit::NumbersIn(folder.File("long 2.mov"), folder);
    ASSERT_FALSE(first.empty() || second.empty());
    EXPECT_GE(first.size(), 250u);
    liveKit::ExpectInSequence(first, "long.mov");
    liveKit::ExpectInSequence(second, "long 2.mov");
    EXPECT_LE(second.front(), first.back() + 1) << "no picture is missing";
    EXPECT_GT(second.front(), 200) << "and few stand in both";
}

TEST(IsoInAShow, OutputIsCheckedAgainWhenItIsSwitchedOn) {
    const TestFolder folder;
    const std::string place = folder.File("disk");
    std::filesystem::create_directory(place);
    liveKit::RunningShow show(liveKit::WriteShow(
        folder,
        liveKit::Bars("tone=\"440\"") +
            liveKit::Output("bars", "take", "QuickTime", folder.File("take.mov"), liveKit::kMjpeg) +
            "<output kind=\"iso\" output_display_name=\"alone\" "
            "output_filename=\"alone.mov\" video_format=\"MJPEG-MOV\" output_folder=\"" +
            place + "\"/>"));
    ASSERT_TRUE(show.PlayTo(0.5)) << show.End().err;
    std::filesystem::remove(place);
    EXPECT_FALSE(show.Command("enable alone on"));
    EXPECT_NE(show.Line().find("there is no folder"), std::string::npos) << show.Line();
    std::filesystem::create_directory(place);
    EXPECT_TRUE(show.Command("enable alone on")) << show.Line();
    ASSERT_TRUE(show.PlayTo(2));
    EXPECT_EQ(show.Quit().exitCode, 0);
    EXPECT_GE(CountFrames(place + "/alone.mov"), 1);
}

TEST(ProbeCommand, TellsWhereEachEncoderRunsOrWhyNot) {
    const ProcessResult result = tests::Run({TARN_TOOL, "probe"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    for (const char* name : {"x264", "Video Toolbox H.264", "NVidia H.264", "ProRes", "MJPEG",
                             "Mpeg2", "MPEG-4 Audio"}) {
        const std::size_t at = result.out.find(name);
        ASSERT_NE(at, std::string::npos) << name;
        const std::string line = result.out.substr(at, result.out.find('\n', at) - at);
        EXPECT_TRUE(line.find("  software") != std::string::npos ||
                    line.find("  hardware") != std::string::npos ||
                    line.find("  not here: ") != std::string::npos)
            << line;
    }
    EXPECT_TRUE(result.err.empty()) << result.err;
}

TEST(ProbeCommand, SpeaksToMachines) {
    const ProcessResult result = tests::Run({TARN_TOOL, "probe", "--json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(
        result.out.find(
            R"({"event":"encoder","name":"x264","offered":true,"runs":"software","why":null})"),
        std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find(R"({"event":"done","offered":)"), std::string::npos) << result.out;
}
