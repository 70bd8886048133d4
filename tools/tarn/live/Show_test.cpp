#include "Show.h"

#include <cstdio>
#include <gtest/gtest.h>

#include "tarn/foundation/tnTarn.h"

#include "tests/support/TestFolder.h"

namespace {

class ShowFile : public testing::Test {
protected:
    ShowFile() { tnTarn::string_defines(); }

    bool read(const std::string& text) {
        fError.clear();
        return ReadShowText(text, "'a.xml'", fShow, fError);
    }

    Show fShow;
    std::string fError;
};

constexpr const char* kSource = R"(<source name="bars" picture="bars"/>)";
constexpr const char* kOutput =
    R"(<output output_display_name="take" format_name="QuickTime" output_url="a.mov">)"
    R"(<video codecname="ProRes"/></output>)";

std::string show_of(const std::string& inner) {
    return "<show>" + inner + "</show>";
}

/// A show whose output says that too, and whose pictures.
std::string with(const std::string& output, const std::string& video = "") {
    return show_of(std::string(kSource) +
                   R"(<output output_display_name="take" format_name="QuickTime" )" + output +
                   R"(><video codecname="ProRes" )" + video + "/></output>");
}

TEST_F(ShowFile, SaysSourcesOutputsAndTheirTracks) {
    ASSERT_TRUE(read(R"(<?xml version="1.0"?>
        <show>
          <output source="b" output_display_name="one" format_name="MPEG-4" output_url="x.mp4"
                  output_enabled="true">
            <video codecname="x264" target_bit_rate="2500" key_frame_rate="25"/>
            <audio codecname="MPEG-4 Audio"/>
          </output>
          <source name="a" picture="bars" tn_width="320" tn_height="180" fps="29.97" tone="440"/>
          <source name="b" picture="bars" loop="false" catch_up="0.5"/>
          <output source="a" format_name="MPEG-TS" output_url="udp://127.0.0.1:5000">
            <video codecname="x264"/>
          </output>
        </show>)"))
        << fError;
    ASSERT_EQ(fShow.sources.size(), 2u);
    EXPECT_EQ(fShow.sources[0].width, 320);
    EXPECT_EQ(fShow.sources[0].height, 180);
    EXPECT_EQ(fShow.sources[0].rate.numerator, 30000);
    EXPECT_EQ(fShow.sources[0].rate.denominator, 1001);
    EXPECT_EQ(fShow.sources[0].toneHz, 440);
    EXPECT_TRUE(fShow.sources[0].loop);
    EXPECT_FALSE(fShow.sources[1].loop);
    EXPECT_EQ(fShow.sources[1].catchUp, 0.5);
    ASSERT_EQ(fShow.outputs.size(), 2u);
    const ShowOutput& first = fShow.outputs[0];
    EXPECT_EQ(first.name, "one");
    EXPECT_EQ(first.source, "b");
    EXPECT_EQ(first.kind, "movie");
    EXPECT_EQ(first.format, "MPEG-4");
    EXPECT_EQ(first.Location(), "x.mp4");
    EXPECT_TRUE(first.Enabled());
    ASSERT_EQ(first.tracks.size(), 2u);
    const tnMediaRecord* video = first.Track(TN_MEDIA_VIDEO);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->AsString('mcon', ""), "x264");
    EXPECT_EQ(video->AsInt32('mtbr', 0), 2500);
    EXPECT_EQ(video->AsInt32("key_frame_rate", 0), 25);
    EXPECT_TRUE(video->AsBool('mena', false));
    const tnMediaRecord* audio = first.Track(TN_MEDIA_AUDIO);
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ(audio->AsUInt32("audio_output_track_mask", 0), 1u);
    // An output without a name goes by its address; one that does not say so is switched off.
    EXPECT_EQ(fShow.outputs[1].name, "udp://127.0.0.1:5000");
    EXPECT_FALSE(fShow.outputs[1].Enabled());
    EXPECT_EQ(fShow.outputs[1].Track(TN_MEDIA_AUDIO), nullptr);
}

TEST_F(ShowFile, TheOnlySourceNeedNotBeNamed) {
    ASSERT_TRUE(read(show_of(std::string(kSource) + kOutput))) << fError;
    EXPECT_EQ(fShow.outputs[0].source, "bars");
}

TEST_F(ShowFile, BadOnesSayWhatWhereAndWhatToDo) {
    const std::string source = kSource;
    const std::string output = kOutput;
    struct Case {
        std::string text;
        const char* words;
    };
    const Case cases[] = {
        {"", "no whole XML element"},
        {"hello", "not well-formed"},
        {"<show><source></show>", "not well-formed"},
        {"<show><!DOCTYPE x></show>", "not well-formed"},
        {"<!DOCTYPE show><show/>", "DOCTYPE"},
        {"<movie/>", "<show>"},
        {"<show>" + source + output, "ends before </show>"},
        {"<show>" + source + R"(<output output_display_name="cut" format_na)", "ends before"},
        {show_of(output), "no source"},
        {show_of(""), "no <source>"},
        {show_of(source), "no <output>"},
        {show_of("<camera/>" + source), "<camera> is unknown"},
        {show_of(R"(<source picture="bars"/>)" + output), "no name"},
        {show_of(R"(<source name="a"/>)" + output), "clip=\"FILE\" or picture=\"bars\""},
        {show_of(R"(<source name="a" picture="snow"/>)" + output), "picture=\"bars\""},
        {show_of(R"(<source name="a" clip="/nonexistent/a.mp4"/>)" + output),
         "no clip '/nonexistent/a.mp4'"},
        {show_of(R"(<source name="a" picture="bars" fps="fast"/>)" + output), "fps=\"fast\""},
        {show_of(R"(<source name="a" picture="bars" fps="0"/>)" + output), "fps=\"0\""},
        {show_of(R"(<source name="a" picture="bars" fps="-25"/>)" + output), "no rate"},
        {show_of(R"(<source name="a" picture="bars" fps="30/0"/>)" + output), "no rate"},
        {show_of(R"(<source name="a" picture="bars" fps="5000"/>)" + output), "no rate"},
        {show_of(R"(<source name="a" clip="/dev/null" fps="25"/>)" + output), "own rate"},
        {show_of(R"(<source name="a" picture="bars" tn_width="wide"/>)" + output), "tn_width"},
        {show_of(R"(<source name="a" picture="bars" tn_width="321"/>)" + output), "even"},
        {show_of(R"(<source name="a" picture="bars" tn_height="99999"/>)" + output), "tn_height"},
        {show_of(R"(<source name="a" picture="bars" tone="-1"/>)" + output), "tone"},
        {show_of(R"(<source name="a" picture="bars" catch_up="nan"/>)" + output), "catch_up"},
        // What must not pass as the default of a key that is not there.
        {show_of(R"(<source name="a" picture="bars" loop="no"/>)" + output),
         "loop=\"no\" is neither true nor false; write"},
        {show_of(R"(<source name="a" picture="bars" tn_widht="320"/>)" + output),
         "tn_widht=\"320\" is unknown; there are: name, clip"},
        {show_of(R"(<source name="a" picture="bars" tone="1O"/>)" + output), "tone=\"1O\" is no"},
        // Looking for these files is what fails.
        {show_of(R"(<source name="a" clip=")" + std::string(300, 'a') + R"("/>)" + output),
         "aaa' (File name too long); check its path"},
        {show_of(R"(<source name="a" clip="/dev/null/a.mp4"/>)" + output), "no clip '/dev/null/a"},
        {show_of(source + source + output), "two sources are called 'bars'"},
        {show_of(source + output + output), "two outputs are called 'take'"},
        {show_of(source + R"(<output source="x" output_display_name="t"/>)"), "no source 'x'"},
        {show_of(source + R"(<source name="b" picture="bars"/>)" + output), "says no source"},
        {show_of(source + "<output/>"), "output_display_name"},
        {show_of(source + R"(<output output_display_name="t"><video/></output>)"), "format_name"},
        {show_of(source + R"(<output output_display_name="t" format_name="M"/>)"), "no tracks"},
        {show_of(source + R"(<output output_display_name="t" format_name="M"><text/></output>)"),
         "<text> is no track"},
        {show_of(source + R"(<output output_display_name="t" format_name="M">)"
                          R"(<video target_bit_rate="much"/></output>)"),
         "target_bit_rate"},
        {with(R"(output_enabled="yes")"), "output_enabled=\"yes\" is neither"},
        {with(R"(output_autoinfilename="yes")"), "output_autoinfilename=\"yes\" is neither"},
        {with(R"(moov_rate="often")"), "moov_rate=\"often\" is no whole number from 0"},
        {with(R"(moov_rate="1.5")"), "moov_rate=\"1.5\" is no whole number"},
        {with(R"(expected_seconds="1h")"), "expected_seconds=\"1h\" is no number"},
        {with(R"(expected_seconds="-1")"), "expected_seconds=\"-1\" is no number"},
        {with("", R"(key_frame_rate="fast")"), "key_frame_rate=\"fast\" is no whole number from 1"},
        {with("", R"(key_frame_rate="0")"), "key_frame_rate=\"0\""},
        {with("", R"(codec_quality="bogus")"),
         "codec_quality=\"bogus\" is none of ProRes; there are: prores_422_proxy"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(read(c.text)) << c.text;
        EXPECT_NE(fError.find(c.words), std::string::npos) << c.text << "\n" << fError;
        EXPECT_NE(fError.find("a.xml"), std::string::npos) << fError;
        EXPECT_EQ(fError.find('\n'), std::string::npos) << "one line: " << fError;
    }
}

TEST_F(ShowFile, ValuesOfItsOutputsReachTheAddOnAsSuch) {
    ASSERT_TRUE(read(with(R"(output_enabled="1" output_autoinfilename="true" moov_rate="2" )"
                          R"(expected_seconds="7.5" of_its_own="yes")",
                          R"(key_frame_rate="12" codec_quality="prores_422_lt")")))
        << fError;
    const ShowOutput& output = fShow.outputs[0];
    EXPECT_TRUE(output.Enabled());
    EXPECT_TRUE(output.record.AsBool("output_autoinfilename", false));
    EXPECT_EQ(output.record.AsInt32("moov_rate", 0), 2);
    EXPECT_EQ(output.record.AsDouble("expected_seconds", 0), 7.5);
    EXPECT_EQ(output.record.AsString("of_its_own", ""), "yes");
    EXPECT_EQ(output.Track(TN_MEDIA_VIDEO)->AsInt32("key_frame_rate", 0), 12);
    ASSERT_TRUE(read(with(R"(output_enabled="0")"))) << fError;
    EXPECT_FALSE(fShow.outputs[0].Enabled());
    ASSERT_TRUE(
        read(show_of(R"(<source name="a" picture="bars" loop="0"/>)" + std::string(kOutput))))
        << fError;
    EXPECT_FALSE(fShow.sources[0].loop);
}

TEST_F(ShowFile, IsReadFromDisk) {
    const tests::TestFolder folder;
    const std::string path = folder.File("show.xml");
    EXPECT_FALSE(ReadShow(path, fShow, fError));
    EXPECT_NE(fError.find("no such file"), std::string::npos) << fError;
    struct Case {
        std::string path;
        const char* words;
    };
    const Case cases[] = {
        {folder.Path(), "is a folder"},
        {"/dev/zero", "is a pipe or a device"},
        {std::string(300, 'a'), "File name too long"},
        {"/proc/self/mem", "cannot be read to its end: Input/output error"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(ReadShow(c.path, fShow, fError)) << c.path;
        EXPECT_NE(fError.find("'" + c.path + "': "), std::string::npos) << fError;
        EXPECT_NE(fError.find(c.words), std::string::npos) << fError;
    }
    std::FILE* const file = std::fopen(path.c_str(), "w");
    std::fputs(show_of(std::string(kSource) + kOutput).c_str(), file);
    std::fclose(file);
    EXPECT_TRUE(ReadShow(path, fShow, fError)) << fError;
}

TEST_F(ShowFile, ElementsJoinARunningShow) {
    ASSERT_TRUE(read(show_of(std::string(kSource) + kOutput)));
    ShowOutput output;
    EXPECT_FALSE(ReadShowOutput(kOutput, fShow, output, fError));
    EXPECT_NE(fError.find("there is an output 'take'"), std::string::npos) << fError;
    EXPECT_FALSE(ReadShowOutput("<output ", fShow, output, fError));
    EXPECT_FALSE(ReadShowOutput(kSource, fShow, output, fError));
    EXPECT_TRUE(ReadShowOutput(
        R"(<output output_display_name="b" format_name="M" output_url="b"><audio/></output>)",
        fShow, output, fError))
        << fError;
    EXPECT_EQ(output.source, "bars");
    ShowSource source;
    EXPECT_FALSE(ReadShowSource(kSource, fShow, source, fError));
    EXPECT_TRUE(ReadShowSource(R"(<source name="c" picture="bars"/>)", fShow, source, fError));
    EXPECT_EQ(source.rate.numerator, 25);
}

}  // namespace
