#include "LiveShow.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <thread>

#include "spar/zBoot.h"
#include "tarn/foundation/tnOutputAccessor.h"

#include "LiveCommands.h"
#include "LiveReport.h"
#include "LiveSource.h"
#include "tests/support/NoThreads.h"
#include "tests/support/TestFolder.h"

namespace {

struct Script {
    bool failsToStart = false;
    int status = 0;
    int starts = 0;
    int stops = 0;
    long long frames = 0;
};
std::map<std::string, Script> gScripts;
// What every output says that it holds at least.
std::atomic<long long> gOwedFrames{0};

class ScriptedOutput final : public LiveOutput {
public:
    explicit ScriptedOutput(const ShowOutput& output)
        : fName(output.name),
          fLocation(output.Location().empty() ? "/" + output.name : output.Location()) {}
    ~ScriptedOutput() override {
        const Script& script = does();
        EXPECT_EQ(script.starts, script.stops) << fName;
    }
    bool Start(std::string& error) override {
        if (does().failsToStart) {
            error = "output '" + fName + "': cannot";
            return false;
        }
        ++does().starts;
        return true;
    }
    void Stop() override { ++does().stops; }
    LiveFigures Figures() override {
        LiveFigures figures;
        figures.frames = std::max(does().frames, gOwedFrames.load());
        figures.status = does().status;
        if (figures.status != 0) figures.text = "no space left";
        return figures;
    }
    std::string Location() const override { return fLocation; }

private:
    Script& does() const { return gScripts[fName]; }
    const std::string fName;
    const std::string fLocation;
};

std::unique_ptr<LiveOutput> make_scripted(const ShowOutput& output, LiveSource&, std::string&) {
    return std::make_unique<ScriptedOutput>(output);
}

bool check_scripted(const ShowOutput& output, const Show& show, std::string& error) {
    EXPECT_TRUE(show.FindSource(output.source));
    if (!output.record.AsBool("wrong", false)) return true;
    error = "output '" + output.name + "': wrong";
    return false;
}

std::string element(const std::string& name, const std::string& more = "") {
    return R"(<output kind="scripted" source="bars" output_enabled="true" output_display_name=")" +
           name + "\" " + more + "/>";
}

class RunningShow : public testing::Test {
protected:
    RunningShow() : fShow(1.0) {
        zBoot::StartAll();
        gScripts.clear();
        gOwedFrames = 0;
        LiveOutputKinds::Add({"scripted", make_scripted, check_scripted});
        fShow.SetObserver([this](const LiveOutputEntry& entry) {
            fChanges.push_back(entry.description.name + " " + TextOf(entry.state));
        });
    }
    ~RunningShow() override {
        fShow.Stop();
        zBoot::StopAll();
    }

    bool prepare(const std::string& outputs) {
        Show show;
        const std::string text = R"(<show><source name="bars" picture="bars" tn_width="32")"
                                 R"( tn_height="32"/>)" +
                                 outputs + "</show>";
        return ReadShowText(text, "test", show, fError) && fShow.Prepare(show, fError);
    }
    bool obey(const std::string& line) {
        const LiveAnswer answer = ObeyLiveCommand(line, fShow);
        fError = answer.message;
        return answer.ok;
    }
    LiveState state(std::size_t index) const { return fShow.Outputs()[index].state; }

    LiveShow fShow;
    std::vector<std::string> fChanges;
    std::string fError;
};

TEST_F(RunningShow, StartsWhatIsEnabled) {
    ASSERT_TRUE(prepare(element("a") + R"(<output kind="scripted" output_display_name="b"/>)"))
        << fError;
    EXPECT_EQ(state(0), LiveState::kRunning);
    EXPECT_EQ(state(1), LiveState::kOff);
    EXPECT_EQ(fShow.Outputs()[0].location, "/a");
    EXPECT_EQ(gScripts["a"].starts, 1);
    EXPECT_EQ(gScripts["b"].starts, 0);
    EXPECT_EQ(fChanges, (std::vector<std::string>{"a running", "b off"}));
}

TEST_F(RunningShow, DoesNotStartWithAnOutputThatIsWrong) {
    EXPECT_FALSE(prepare(element("a") + element("b", "wrong=\"true\"")));
    EXPECT_EQ(fError, "output 'b': wrong");
    EXPECT_EQ(gScripts["a"].starts, 0) << "checked before anything starts";
    EXPECT_FALSE(prepare(R"(<output kind="none" output_display_name="c"/>)"));
    EXPECT_NE(fError.find("unknown kind 'none'; there are: "), std::string::npos) << fError;
    gScripts["d"].failsToStart = true;
    EXPECT_FALSE(prepare(element("d")));
    EXPECT_EQ(fError, "output 'd': cannot");
}

TEST_F(RunningShow, AFailedOutputStopsAlone) {
    ASSERT_TRUE(prepare(element("a") + element("b")));
    gScripts["a"].frames = 7;
    fShow.Poll();
    EXPECT_EQ(fShow.Outputs()[0].figures.frames, 7);
    EXPECT_FALSE(fShow.HasFailed());
    gScripts["a"].status = -1050;
    fShow.Poll();
    fShow.Poll();
    EXPECT_EQ(state(0), LiveState::kFailed);
    EXPECT_EQ(state(1), LiveState::kRunning);
    EXPECT_EQ(gScripts["a"].stops, 1);
    EXPECT_TRUE(fShow.HasFailed());
    EXPECT_NE(TextOfShow(fShow).find("no space left"), std::string::npos);
    EXPECT_NE(JsonOfStats(fShow).find(R"("state":"failed","location":"/a")"), std::string::npos)
        << JsonOfStats(fShow);
    // Its trouble may be over: it can be switched on again.
    gScripts["a"].status = 0;
    EXPECT_TRUE(obey("enable a"));
    EXPECT_EQ(state(0), LiveState::kRunning);
}

TEST_F(RunningShow, WhatOnlyTheClosingShowsIsAFailureToo) {
    ASSERT_TRUE(prepare(element("a")));
    gScripts["a"].status = -5;
    EXPECT_TRUE(obey("enable a off"));
    EXPECT_EQ(state(0), LiveState::kFailed);
}

TEST_F(RunningShow, ObeysCommands) {
    ASSERT_TRUE(prepare(element("a b")));
    EXPECT_TRUE(obey("add " + element("c"))) << fError;
    EXPECT_EQ(fShow.Outputs().size(), 2u);
    EXPECT_EQ(state(1), LiveState::kRunning);
    EXPECT_TRUE(obey("enable a b off")) << fError;
    EXPECT_EQ(state(0), LiveState::kOff);
    EXPECT_TRUE(obey("enable a b off"));
    EXPECT_TRUE(obey("  enable a b on \r"));
    EXPECT_EQ(gScripts["a b"].starts, 2);
    EXPECT_TRUE(obey("remove a b"));
    EXPECT_EQ(fShow.Outputs().size(), 1u);
    EXPECT_EQ(fChanges.back(), "a b removed");
    EXPECT_TRUE(ObeyLiveCommand("stats", fShow).stats);
    EXPECT_TRUE(ObeyLiveCommand("quit", fShow).quit);
    EXPECT_TRUE(obey("help"));
    EXPECT_TRUE(obey(""));
    EXPECT_TRUE(obey("add " + element("a b"))) << "the name is free again: " << fError;
}

TEST_F(RunningShow, TakesAnOutputOutOfAFile) {
    const tests::TestFolder folder;
    const std::string path = folder.File("more.xml");
    std::ofstream(path) << "<!-- one more -->\n" << element("more") << "\n";
    ASSERT_TRUE(prepare(element("a")));
    EXPECT_TRUE(obey("add " + path)) << fError;
    EXPECT_EQ(gScripts["more"].starts, 1);
}

TEST_F(RunningShow, ASourceThatWouldHardlyEverTickIsRefused) {
    Show show;
    const std::string text =
        R"(<show><source name="bars" picture="bars" fps="10"/>)" + element("a") + "</show>";
    ASSERT_TRUE(ReadShowText(text, "test", show, fError)) << fError;
    LiveShow slow(0.009);
    EXPECT_FALSE(slow.Prepare(show, fError));
    EXPECT_NE(fError.find("source 'bars': would give 0.09 frames a second"), std::string::npos)
        << fError;
    EXPECT_TRUE(LiveShow(0.01).Prepare(show, fError)) << fError;
}

TEST_F(RunningShow, SourcesComeAndGo) {
    ASSERT_TRUE(prepare(element("a")));
    ASSERT_TRUE(fShow.Start(fError)) << fError;
    EXPECT_TRUE(obey(R"(add <source name="s2" picture="bars" tn_width="16" tn_height="16"/>)"));
    EXPECT_EQ(fShow.Sources().size(), 2u);
    EXPECT_TRUE(obey(R"(add <output kind="scripted" source="s2" output_display_name="b"/>)"));
    EXPECT_FALSE(obey("remove s2"));
    EXPECT_NE(fError.find("remove that first"), std::string::npos) << fError;
    EXPECT_TRUE(obey("remove b"));
    EXPECT_TRUE(obey("remove s2"));
    EXPECT_EQ(fShow.Sources().size(), 1u);
}

TEST_F(RunningShow, AShowThatGetsNoThreadDoesNotStart) {
    ASSERT_TRUE(prepare(element("a")));
    const tests::NoThreads none;
    EXPECT_FALSE(fShow.Start(fError));
    EXPECT_EQ(fError,
              "source 'bars': the machine has no thread left for it; end other programs and try "
              "again");
}

TEST_F(RunningShow, ASourceThatGetsNoThreadIsNotAdded) {
    ASSERT_TRUE(prepare(element("a")));
    ASSERT_TRUE(fShow.Start(fError)) << fError;
    // Of another rate: its clock is a new one too.
    const std::string add =
        R"(add <source name="s2" picture="bars" tn_width="16" tn_height="16" fps="200"/>)";
    {
        const tests::NoThreads none;
        EXPECT_FALSE(obey(add));
    }
    EXPECT_NE(fError.find("source 's2': the machine has no thread"), std::string::npos) << fError;
    EXPECT_EQ(fShow.Sources().size(), 1u);
    ASSERT_TRUE(obey(add)) << "nothing of the first try is left: " << fError;
    while (fShow.Sources()[1]->Figures().frames < 3) std::this_thread::yield();
}

TEST_F(RunningShow, AttributesThatNothingReadsAreToldOf) {
    std::vector<std::string> advice;
    fShow.SetAdviser([&](const std::string& line) { advice.push_back(line); });
    LiveOutputKinds::Add({"choosy", make_scripted, check_scripted, {"segment_seconds"}});
    const auto choosy = [](const std::string& name, const std::string& more,
                           const std::string& track) {
        return "<output kind=\"choosy\" source=\"bars\" output_display_name=\"" + name + "\" " +
               more + "><video codecname=\"x264\" " + track + "/></output>";
    };
    ASSERT_TRUE(prepare(
        choosy("well", R"(segment_seconds="2" output_title="Take")",
               R"(key_frame_rate="25" encoder_preset="fast")") +
        choosy("ill", R"(segment_second="2" output_titel="Take")", R"(key_framerate="25")") +
        element("other", R"(of_its_own="1")")))
        << fError;
    ASSERT_EQ(advice.size(), 1u);
    EXPECT_EQ(advice[0],
              "output 'ill': nothing here reads segment_second, output_titel, key_framerate; check "
              "the spelling");
    EXPECT_TRUE(obey("add " + choosy("late", R"(format="mov")", ""))) << fError;
    ASSERT_EQ(advice.size(), 2u);
    EXPECT_NE(advice[1].find("output 'late': nothing here reads format;"), std::string::npos);
}

TEST_F(RunningShow, SaysWhatIsWrongWithACommand) {
    ASSERT_TRUE(prepare(element("a")));
    struct Case {
        std::string line;
        const char* words;
    };
    const Case cases[] = {
        {"dance", "'dance' is no command; there are: add"},
        {"add", "add what"},
        {"add /nonexistent.xml", "neither an <output> element nor a file"},
        {"add /dev/zero", "is a pipe or a device"},
        {"add <source name=\"x\" clip=\"" + std::string(300, 'a') + "\"/>", "File name too long"},
        {"add " + element("w", "output_autoinfilename=\"yes\""), "neither true nor false"},
        {"add <output", "no whole XML element"},
        {"add <movie/>", "has to be a <output>"},
        {"add " + element("a"), "there is an output 'a'"},
        {"add " + element("w", "wrong=\"true\""), "output 'w': wrong"},
        {"add <output kind=\"scripted\" source=\"x\" output_display_name=\"b\"/>",
         "no source 'x'; there are: bars"},
        {"add <source name=\"bars\" picture=\"bars\"/>", "there is a source 'bars'"},
        {"remove", "which output"},
        {"remove nobody",
         "no output or source 'nobody'; there are the outputs: a; the sources: bars"},
        {"enable", "which output"},
        {"enable nobody", "no output 'nobody'; there are: a"},
        {"remove bars", "still serves output 'a'"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(obey(c.line)) << c.line;
        EXPECT_NE(fError.find(c.words), std::string::npos) << c.line << "\n" << fError;
    }
    EXPECT_EQ(fShow.Outputs().size(), 1u);
}

TEST_F(RunningShow, OnePlaceIsWrittenByOneOutputAtATime) {
    const tests::TestFolder folder;
    std::ofstream(folder.File("take.mov")) << "a";
    std::filesystem::create_hard_link(folder.File("take.mov"), folder.File("other.mov"));
    const auto at = [](const std::string& url) { return "output_url=\"" + url + "\""; };
    ASSERT_TRUE(prepare(element("stream", at("udp://127.0.0.1:5000?ttl=2")) +
                        element("file", at(folder.File("take.mov")))))
        << fError;
    const std::string again = "add " + element("again", at("udp://127.0.0.1:5000"));
    EXPECT_FALSE(obey(again));
    EXPECT_NE(fError.find("output 'stream' is writing to"), std::string::npos) << fError;
    EXPECT_TRUE(obey("add " + element("next", at("udp://127.0.0.1:5001")))) << fError;
    EXPECT_FALSE(obey("add " + element("link", at(folder.File("other.mov")))));
    EXPECT_FALSE(obey("add " + element("scheme", at("file://" + folder.File("other.mov")))));
    EXPECT_NE(fError.find("output 'file' is writing to"), std::string::npos) << fError;
    EXPECT_TRUE(obey("add " + element("counts", at(folder.File("other.mov")) +
                                                    " output_autoinfilename=\"true\"")))
        << fError;
    EXPECT_TRUE(obey("enable stream off"));
    EXPECT_TRUE(obey(again)) << fError;
    EXPECT_FALSE(obey("enable stream on")) << "now the other one has it";
    EXPECT_EQ(gScripts["link"].starts, 0);
}

TEST_F(RunningShow, PlaysOnUntilEncodersHaveGivenWhatTheyHold) {
    const std::string video = R"(<video codecname="x264"/>)";
    ASSERT_TRUE(
        prepare(R"(<output kind="scripted" output_enabled="true" output_display_name="a">)" +
                video + "</output>" + element("sound alone")))
        << fError;
    ASSERT_TRUE(fShow.Start(fError)) << fError;
    const LiveSource& source = *fShow.Sources()[0];
    while (source.Figures().frames < 3) std::this_thread::yield();
    // Nothing comes out of this encoder until it was fed twice as much.
    std::jthread encoder([&] {
        while (source.Figures().frames < 9) std::this_thread::yield();
        gOwedFrames = 9;
    });
    fShow.PlayOut();
    EXPECT_GE(source.Figures().frames, 9);
    EXPECT_EQ(state(0), LiveState::kRunning);
}

// An encoder holds frames, not seconds: at one a second it takes long until they are out. Fifty of
// them are five seconds here, two seconds were a fifth of one, and the source needs 1.7.
TEST_F(RunningShow, PlaysOnLongEnoughForASlowSource) {
    Show show;
    ASSERT_TRUE(ReadShowText(R"(<show><source name="bars" picture="bars" tn_width="32")"
                             R"( tn_height="32" fps="1" catch_up="600"/>)"
                             R"(<output kind="scripted" output_enabled="true")"
                             R"( output_display_name="slow"><video codecname="x264"/></output>)"
                             "</show>",
                             "test", show, fError))
        << fError;
    LiveShow fast(10);
    ASSERT_TRUE(fast.Prepare(show, fError)) << fError;
    ASSERT_TRUE(fast.Start(fError)) << fError;
    const LiveSource& source = *fast.Sources()[0];
    while (source.Figures().frames < 3) std::this_thread::yield();
    std::jthread encoder([&] {
        while (source.Figures().frames < 20) std::this_thread::yield();
        gOwedFrames = 20;
    });
    fast.PlayOut();
    EXPECT_GE(source.Figures().frames, 20);
    encoder.join();
    fast.Stop();
    EXPECT_FALSE(fast.HasFailed());
}

TEST_F(RunningShow, AnOutputThatKeptNothingHasFailed) {
    const auto output = [](const std::string& name) {
        return "<output kind=\"scripted\" output_enabled=\"true\" output_display_name=\"" + name +
               "\"><video codecname=\"x264\"/></output>";
    };
    ASSERT_TRUE(prepare(output("off") + output("ended") + output("well") + element("sound alone")))
        << fError;
    gScripts["well"].frames = 1;
    EXPECT_TRUE(obey("enable off off"));
    EXPECT_EQ(state(0), LiveState::kOff) << "its source gave nothing yet";
    EXPECT_TRUE(obey("enable off on"));
    ASSERT_TRUE(fShow.Start(fError)) << fError;
    while (fShow.Sources()[0]->Figures().frames < 3) std::this_thread::yield();
    EXPECT_TRUE(obey("enable off off"));
    EXPECT_EQ(state(0), LiveState::kFailed);
    EXPECT_NE(fShow.Outputs()[0].figures.text.find("nothing was kept"), std::string::npos);
    fShow.Stop();
    EXPECT_EQ(state(1), LiveState::kFailed);
    EXPECT_EQ(state(2), LiveState::kEnded);
    EXPECT_EQ(state(3), LiveState::kEnded);
    EXPECT_TRUE(fShow.HasFailed());
}

// Half a minute of the show, at a hundred times its pace.
TEST_F(RunningShow, AnOutputThatNothingEverReachesHasFailed) {
    Show show;
    ASSERT_TRUE(ReadShowText(R"(<show><source name="bars" picture="bars" tn_width="32")"
                             R"( tn_height="32" catch_up="600"/>)"
                             R"(<output kind="scripted" output_enabled="true")"
                             R"( output_display_name="empty"><video codecname="x264"/></output>)" +
                                 element("sound alone") + "</show>",
                             "test", show, fError))
        << fError;
    LiveShow fast(100);
    ASSERT_TRUE(fast.Prepare(show, fError)) << fError;
    ASSERT_TRUE(fast.Start(fError)) << fError;
    constexpr long long kHalfAMinute = 30 * 25;
    fast.Poll();
    const bool isSilent = fast.Outputs()[0].figures.text.empty();
    EXPECT_TRUE(isSilent || fast.Sources()[0]->Figures().frames >= kHalfAMinute);
    while (fast.Sources()[0]->Figures().frames < kHalfAMinute) std::this_thread::yield();
    fast.Poll();
    EXPECT_EQ(fast.Outputs()[0].state, LiveState::kRunning) << "it may come yet";
    EXPECT_NE(fast.Outputs()[0].figures.text.find("nothing has come"), std::string::npos);
    EXPECT_NE(TextOfShow(fast).find("nothing has come"), std::string::npos);
    EXPECT_FALSE(fast.HasFailed());
    fast.Stop();
    EXPECT_EQ(fast.Outputs()[0].state, LiveState::kFailed);
    EXPECT_EQ(fast.Outputs()[1].state, LiveState::kEnded);
    EXPECT_TRUE(fast.HasFailed());
}

TEST_F(RunningShow, EndingStopsEveryOutput) {
    ASSERT_TRUE(prepare(element("a") + element("b")));
    ASSERT_TRUE(fShow.Start(fError)) << fError;
    fShow.Stop();
    EXPECT_EQ(state(0), LiveState::kEnded);
    EXPECT_EQ(gScripts["b"].stops, 1);
}

}  // namespace
