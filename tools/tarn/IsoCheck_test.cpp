#include "IsoCheck.h"

#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "spar/zTime.h"
#include "tarn/iso/tnISOValidator.h"

#include "tests/support/TestFolder.h"

struct IsoCheckTestPeer {
    static tnISOValidator& Validator(IsoCheck& check) { return *check.fValidator; }
};

namespace {

/// Two sources, a shot without sound, and two outputs that are right in everything.
class Settings : public testing::Test {
protected:
    Settings() {
        const std::string text =
            R"(<iso>
                 <source source_id="cam1"/> <source source_id="cam2" video="false"/>
                 <shot shot_id="wide" audio="0"/>
                 <iso_output source_id="cam1" output_filename="one.mov" output_folder=")" +
            fFolder.Path() +
            R"("/>
                 <iso_output source_id="cam2" output_filename="two.mov" output_folder=")" +
            fFolder.Path() + R"("/>
               </iso>)";
        std::string error;
        EXPECT_TRUE(ReadIsoSettingsText(text, "here", fSettings, error)) << error;
    }

    zRecord& output(unsigned int index) { return *fSettings.outputs.Child(index); }
    std::vector<IsoProblem> check(unsigned int index = 0) {
        const zRecord settings(output(index));
        return CheckIsoOutput(fSettings.outputs, settings, fSettings.sources);
    }
    /// The one problem of the first output has this flag, and its words name all of these.
    void expect_one(const char* flag, const std::vector<std::string>& words) {
        const std::vector<IsoProblem> problems = check();
        ASSERT_EQ(problems.size(), 1u) << flag;
        EXPECT_EQ(problems[0].flag, flag);
        for (const std::string& word : words) {
            EXPECT_NE(problems[0].text.find(word), std::string::npos) << word << "\n"
                                                                      << problems[0].text;
        }
        EXPECT_EQ(problems[0].text.find('\n'), std::string::npos);
    }

    tests::TestFolder fFolder;
    IsoSettings fSettings;
};

TEST_F(Settings, GoodOutputsHaveNoProblem) {
    EXPECT_TRUE(check(0).empty());
    EXPECT_TRUE(check(1).empty());
}

TEST_F(Settings, OutputSaysWhatItRecords) {
    output(0).RemoveKey("source_id");
    expect_one("no_source", {"source", "set source_id"});
    output(0).SetCString("recording_type", "shot");
    expect_one("no_source", {"shot", "set shot_id"});
    output(0).SetCString("recording_type", "scene");
    expect_one("no_source", {"scene", "source or shot"});
}

TEST_F(Settings, WhatItRecordsIsThere) {
    output(0).SetCString("source_id", "cam9");
    expect_one("unknown_source", {"cam9", "set source_id", "cam1, cam2"});
    output(0).SetCString("recording_type", "shot");
    output(0).SetCString("shot_id", "cam1");
    expect_one("unknown_source", {"shot 'cam1'", "set shot_id", "wide"});
    output(0).SetCString("shot_id", "wide");
    EXPECT_TRUE(check().empty());
}

TEST_F(Settings, SomethingIsRecorded) {
    output(0).SetBool("video_track_enabled", false);
    EXPECT_TRUE(check().empty());
    output(0).SetBool("audio_track_enabled", false);
    expect_one("no_tracks_enabled", {"video_track_enabled", "audio_track_enabled"});
}

TEST_F(Settings, SourceHasWhatIsRecorded) {
    output(0).SetCString("recording_type", "shot");
    output(0).SetCString("shot_id", "wide");
    output(0).SetBool("video_track_enabled", false);
    expect_one("tracks_unavailable", {"shot 'wide'", "no sound", "video_track_enabled"});
    fSettings.sources[2].hasVideo = false;
    output(0).SetBool("video_track_enabled", true);
    expect_one("tracks_unavailable", {"neither pictures nor sound", "another"});
    fSettings.sources[2].hasAudio = true;
    output(0).SetBool("audio_track_enabled", false);
    expect_one("tracks_unavailable", {"no pictures", "audio_track_enabled"});
}

TEST_F(Settings, NumbersAreInRange) {
    output(0).SetInt32("video_bitrate", 900);
    expect_one("bitrate_out_of_range", {"900 Mbps", "500 Kbps", "500 Mbps"});
    output(0).SetCString("video_format", "PRORES-MOV");
    EXPECT_TRUE(check().empty());
    output(0).SetInt32("file_duration", 13);
    expect_one("duration_out_of_range", {"13 hour", "10 sec", "12 hour"});
}

TEST_F(Settings, OutputsDoNotMeet) {
    output(0).SetCString("source_id", "cam2");
    expect_one("source_in_use", {"cam2", "'two.mov'", "source_id"});
    output(0).SetCString("source_id", "cam1");
    output(0).SetCString("output_filename", "TWO.mov");
    expect_one("path_in_use", {"TWO.mov", "'two.mov'", "output_filename"});
}

TEST_F(Settings, FileHasAName) {
    output(0).SetCString("output_filename", "take 1/3.mov");
    expect_one("bad_filename", {"take 1/3.mov", "output_filename"});
    output(0).SetCString("output_filename", "");
    expect_one("no_filename", {"no name", "set output_filename"});
    output(0).RemoveKey("output_filename");
    expect_one("no_filename", {"no name", "set output_filename"});
}

TEST_F(Settings, FolderIsThere) {
    output(0).SetString("output_folder", fFolder.File("none"));
    expect_one("folder_missing", {fFolder.File("none"), "output_folder"});
    output(0).RemoveKey("output_folder");
    expect_one("folder_missing", {"no folder", "set output_folder"});
}

TEST_F(Settings, DiskHasRoom) {
    tnISOValidator validator(&fSettings.outputs);
    validator.fSourceId = "cam1";
    validator.fLowDiskSpace = true;
    const auto problems = DescribeIsoProblems(validator, output(0), {});
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].flag, "low_disk_space");
    EXPECT_NE(problems[0].text.find("512 MiB"), std::string::npos);
}

TEST_F(Settings, EveryProblemIsTold) {
    zRecord& bad = output(0);
    bad.SetCString("source_id", "cam9");
    bad.SetBool("video_track_enabled", false);
    bad.SetBool("audio_track_enabled", false);
    bad.SetCString("output_filename", "a:b");
    bad.SetInt32("file_duration", 0);
    bad.RemoveKey("output_folder");
    const auto problems = check();
    std::vector<std::string> flags;
    for (const IsoProblem& problem : problems) flags.push_back(problem.flag);
    EXPECT_EQ(flags, (std::vector<std::string>{"unknown_source", "no_tracks_enabled",
                                               "duration_out_of_range", "bad_filename",
                                               "folder_missing"}));
}

TEST_F(Settings, DiskThatDoesNotAnswerHoldsNobodyUp) {
    auto disk = std::make_shared<std::promise<bool>>();  // never kept: it stays with the check
    IsoCheck check(fSettings.outputs, fSettings.sources);
    tnISOValidator& validator = IsoCheckTestPeer::Validator(check);
    validator.fFolderCheck = disk->get_future();
    check.Begin(output(0));
    EXPECT_TRUE(validator.fSourceId.empty()) << "while it hangs nothing is asked again";
    EXPECT_FALSE(check.WaitUntil(zTime::MicroNow()));
    const auto problems = check.Problems(output(0));
    ASSERT_FALSE(problems.empty());
    EXPECT_EQ(problems.back().flag, "folder_silent");
    disk->set_value(false);
    EXPECT_TRUE(check.WaitUntil(zTime::MicroNow()));
    check.Begin(output(0));
    EXPECT_TRUE(check.WaitUntil(zTime::MicroNow() + 60'000'000));
    EXPECT_TRUE(check.Problems(output(0)).empty());
}

TEST(IsoSettings, OneOutputAloneIsEnough) {
    IsoSettings settings;
    std::string error;
    ASSERT_TRUE(ReadIsoSettingsText(
        R"(<iso_output source_id="1" audio_track_enabled="false" video_bitrate="20"/>)", "here",
        settings, error))
        << error;
    ASSERT_EQ(settings.outputs.ChildCount(), 1u);
    EXPECT_TRUE(settings.sources.empty());
    const zRecord& output = *settings.outputs.Child(0);
    EXPECT_FALSE(output.AsBool("audio_track_enabled", true));
    EXPECT_EQ(output.AsInt32("video_bitrate", 0), 20);
    EXPECT_EQ(output.AsString('guid', ""), "output 1");
}

TEST(IsoSettings, UnitsAreTaken) {
    for (const char* units :
         {"file_duration_units='hour'", "file_duration_units='min'", "file_duration_units='sec'",
          "video_bitrate_units='Kbps'", "video_bitrate_units='Mbps'"}) {
        IsoSettings settings;
        std::string error;
        EXPECT_TRUE(ReadIsoSettingsText("<iso_output " + std::string(units) + "/>", "here",
                                        settings, error))
            << error;
    }
}

TEST(IsoSettings, IdentitiesAreKept) {
    IsoSettings settings;
    std::string error;
    ASSERT_TRUE(ReadIsoSettingsText(R"(<iso><iso_output guid="A"/><iso_output/></iso>)", "here",
                                    settings, error))
        << error;
    EXPECT_EQ(settings.outputs.Child(0)->AsString('guid', ""), "A");
    EXPECT_EQ(settings.outputs.Child(1)->AsString('guid', ""), "output 2");
    EXPECT_EQ(IsoOutputName(*settings.outputs.Child(0)), "A");
}

TEST(IsoSettings, BadInputIsOneLine) {
    const std::pair<const char*, const char*> kCases[] = {
        {"", "no whole XML element"},
        {"<iso><iso_output></iso>", "not well-formed"},
        {"<iso><iso_output/>", "ends before </iso>"},
        {"<!DOCTYPE iso><iso><iso_output/></iso>", "DOCTYPE"},
        {"<show/>", "<iso> or one <iso_output>"},
        {"<iso/>", "no <iso_output>"},
        {"<iso><output/></iso>", "<output> is unknown"},
        {"<iso><source/><iso_output/></iso>", "no source_id"},
        {"<iso><shot source_id='1'/><iso_output/></iso>", "no shot_id"},
        {"<iso><source source_id='1' video='some'/><iso_output/></iso>", "video=\"some\""},
        {"<iso_output video_bitrate='much'/>", "video_bitrate=\"much\""},
        {"<iso_output file_duration='4.5h'/>", "file_duration=\"4.5h\""},
        {"<iso_output output_filename='a' video_track_enabled='on'/>", "output 'a'"},
        {"<iso_output file_duration_maxed='yes'/>", "neither true nor false"},
        {"<iso><iso_output guid='A' output_filename='a'/><iso_output guid='A'/></iso>",
         "guid=\"A\" is that of output 'a'; give each its own"},
        {"<iso_output file_duration='90' file_duration_units='minutes'/>",
         "file_duration_units=\"minutes\" is none; set it to hour or min or sec"},
        {"<iso_output video_bitrate='20' video_bitrate_units='mbps'/>",
         "video_bitrate_units=\"mbps\" is none; set it to Kbps or Mbps"},
    };
    for (const auto& [text, words] : kCases) {
        IsoSettings settings;
        std::string error;
        EXPECT_FALSE(ReadIsoSettingsText(text, "'x.xml'", settings, error)) << text;
        EXPECT_NE(error.find(words), std::string::npos) << text << "\n" << error;
        EXPECT_EQ(error.find("'x.xml': "), 0u) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
        EXPECT_FALSE(settings.outputs.HasChildren());
    }
}

}  // namespace
