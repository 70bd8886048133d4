#pragma once

// Whole shows for the tests of `tarn live`: their files, a show that runs beside the test, and what
// its movies have to be.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

namespace liveKit {

using tests::BackgroundProcess;
using tests::GstreamerReads;
using tests::MediaInfo;
using tests::PacketTime;
using tests::ProbePackets;
using tests::ProbeStream;
using tests::ProcessResult;
using tests::TestFolder;

inline const std::string kTool = TARN_TOOL;
inline const std::string kCup = TARN_CLIPS "/cup.mp4";
inline const std::string kBox = TARN_CLIPS "/box.mp4";

// Sanitizers slow the encoders down and not the clock; the times in the files are the same.
#if defined(__SANITIZE_THREAD__)
inline constexpr const char* kSpeed = "0.2";
#elif defined(__SANITIZE_ADDRESS__)
inline constexpr const char* kSpeed = "0.25";
#else
inline constexpr const char* kSpeed = "1";
#endif

inline std::string WriteShow(const TestFolder& folder, const std::string& text) {
    const std::string path = folder.File("show.xml");
    std::ofstream(path) << "<show>" << text << "</show>";
    return path;
}

inline std::string Clip(const std::string& name, const std::string& path) {
    return "<source name=\"" + name + "\" clip=\"" + path +
           R"(" tn_width="160" tn_height="120" catch_up="600"/>)";
}

inline std::string Bars(const std::string& more = "") {
    return R"(<source name="bars" picture="bars" tn_width="320" tn_height="180" catch_up="600" )" +
           more + "/>";
}

inline std::string Output(const std::string& source, const std::string& name,
                          const std::string& format, const std::string& url,
                          const std::string& tracks) {
    return "<output source=\"" + source + "\" output_display_name=\"" + name + "\" format_name=\"" +
           format + "\" output_url=\"" + url + "\" output_enabled=\"true\">" + tracks + "</output>";
}

inline constexpr const char* kProRes =
    R"(<video codecname="ProRes" codec_quality="prores_422_proxy"/><audio codecname="PCM"/>)";
inline constexpr const char* kMjpeg =
    R"(<video codecname="MJPEG" codec_quality="mjpeg_high"/><audio codecname="PCM"/>)";
inline constexpr const char* kX264 =
    R"(<video codecname="x264" target_bit_rate="400" key_frame_rate="12"/>)"
    R"(<audio codecname="MPEG-4 Audio"/>)";

/// The number behind the first `"key":` after `from`; -1 when there is none.
inline double NumberOf(const std::string& json, const std::string& key, std::size_t from = 0) {
    const std::size_t at = json.find("\"" + key + "\":", from);
    return at == std::string::npos ? -1 : std::atof(json.c_str() + at + key.size() + 3);
}

/// What the line says of one output; empty when it does not name it.
inline std::string PartOf(const std::string& json, const std::string& output) {
    const std::size_t at = json.find("\"name\":\"" + output + "\"");
    return at == std::string::npos ? "" : json.substr(at, json.find('}', at) - at);
}

/// A show that runs beside the test.
class RunningShow {
public:
    explicit RunningShow(const std::string& show, std::vector<std::string> options = {},
                         const std::string& speed = kSpeed)
        : fProcess(words(show, std::move(options), speed), BackgroundProcess::Input::kPipe) {}

    /// Reads lines until one satisfies `wanted`; false at the end of the show.
    template <typename Predicate>
    bool ReadUntil(const Predicate& wanted) {
        while (fProcess.ReadLine(fLine)) {
            fAll += fLine + "\n";
            if (wanted(fLine)) return true;
        }
        return false;
    }
    /// Until the outputs have got that many seconds of the first source.
    bool PlayTo(double seconds) {
        return ReadUntil([&](const std::string& line) {
            const std::size_t sources = line.find("\"sources\":");
            return sources != std::string::npos && NumberOf(line, "seconds", sources) >= seconds;
        });
    }
    /// True when the command was obeyed.
    bool Command(const std::string& line) {
        fProcess.Write(line + "\n");
        return ReadUntil([](const std::string& answer) {
                   return answer.find("\"event\":\"answer\"") != std::string::npos;
               }) &&
               fLine.find("\"ok\":true") != std::string::npos;
    }
    ProcessResult Quit() {
        fProcess.Write("quit\n");
        return End();
    }
    ProcessResult End() {
        ProcessResult result = fProcess.Wait();
        result.out = fAll + result.out;
        return result;
    }
    const std::string& Line() const { return fLine; }

private:
    static std::vector<std::string> words(const std::string& show, std::vector<std::string> options,
                                          const std::string& speed) {
        // A show that never does what its test waits for ends all the same.
        options.insert(options.begin(), {kTool, "live", show, "--json", "--speed", speed,
                                         "--seconds", std::to_string(60 / std::atof(kSpeed))});
        return options;
    }

    BackgroundProcess fProcess;
    std::string fLine;
    std::string fAll;
};

/// The last line that a show printed.
inline std::string DoneLine(const ProcessResult& result) {
    const std::size_t at = result.out.rfind("{\"event\":\"done\"");
    return at == std::string::npos ? "" : result.out.substr(at);
}

inline std::string FirstFlags(const std::string& path) {
    return tests::Run({"ffprobe", "-v", "error", "-select_streams", "v:0", "-read_intervals",
                       "%+#1", "-show_entries", "packet=flags", "-of", "csv=p=0", path})
        .out;
}

/// When the first frame that decodes is shown or heard, in seconds: what an encoder's run-up of
/// packets is no part of.
inline double FirstFrameTime(const std::string& path, const std::string& stream) {
    return std::atof(
        tests::Run({"ffprobe", "-v", "error", "-select_streams", stream, "-read_intervals", "%+#6",
                    "-show_entries", "frame=pts_time", "-of", "default=nk=1:nw=1", path})
            .out.c_str());
}

/// Each picture begins where the one before it ends: none is missing, none stands twice.
inline void ExpectSteadyPictures(const std::string& path, double frame, std::size_t least) {
    std::vector<PacketTime> pictures = ProbePackets(path, "v:0");
    std::sort(pictures.begin(), pictures.end(),
              [](const PacketTime& a, const PacketTime& b) { return a.time < b.time; });
    EXPECT_GE(pictures.size(), least) << path;
    for (std::size_t i = 1; i < pictures.size(); ++i) {
        ASSERT_NEAR(pictures[i].time - pictures[i - 1].time, frame, 0.0011)
            << path << " picture " << i;
    }
}

/// `frame` seconds; `least` pictures that have to be there.
inline void ExpectWholeMovie(const std::string& path, const std::string& codec, double frame,
                             std::size_t least) {
    EXPECT_EQ(ProbeStream(path, "v:0", "codec_name"), codec) << path;
    EXPECT_NE(MediaInfo(path, "Video", "Format"), "") << path;
    EXPECT_NE(MediaInfo(path, "Audio", "Format"), "") << path;
    EXPECT_TRUE(GstreamerReads(path)) << path;
    EXPECT_NE(FirstFlags(path).find('K'), std::string::npos) << path;
    ExpectSteadyPictures(path, frame, least);
    EXPECT_NEAR(FirstFrameTime(path, "v:0"), FirstFrameTime(path, "a:0"), frame) << path;
    const ProcessResult decoded =
        tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-xerror", "-i", path, "-f", "null", "-"});
    EXPECT_EQ(decoded.exitCode, 0) << path << "\n" << decoded.err;
}

/// Numbers that generated pictures carry, as the decoded file shows them.
inline std::vector<int> NumbersIn(const std::string& path, const TestFolder& folder) {
    constexpr int kBits = 16;
    const std::string raw = folder.File("numbers.gray");
    tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-y", "-i", path, "-map", "0:v:0", "-vf",
                "crop=iw:10:0:ih-14,scale=16:1:flags=area,format=gray", "-fps_mode", "passthrough",
                "-f", "rawvideo", raw});
    std::ifstream file(raw, std::ios::binary);
    std::vector<int> numbers;
    char bits[kBits];
    while (file.read(bits, kBits)) {
        int number = 0;
        for (const char bit : bits) number = number * 2 + (static_cast<unsigned char>(bit) > 128);
        numbers.push_back(number);
    }
    return numbers;
}

inline void ExpectInSequence(const std::vector<int>& numbers, const std::string& what) {
    for (std::size_t i = 1; i < numbers.size(); ++i) {
        ASSERT_EQ(numbers[i], numbers[i - 1] + 1) << what << " picture " << i;
    }
}

}  // namespace liveKit
