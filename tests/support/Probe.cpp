#include "tests/support/Probe.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "tests/support/Process.h"

namespace tests {

namespace {

/// Ends a program that hangs, so that its test fails by itself.
ProcessResult run_reader(std::vector<std::string> words) {
    words.insert(words.begin(), {"timeout", "120"});
    return Run(words);
}

std::string first_line(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

}  // namespace

std::string ProbeStream(const std::string& path, const std::string& stream,
                        const std::string& entry) {
    return first_line(
        run_reader({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
                    "stream=" + entry, "-of", "default=nk=1:nw=1", path})
            .out);
}

std::vector<PacketTime> ProbePackets(const std::string& path, const std::string& stream) {
    const std::string text =
        run_reader({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
                    "packet=pts_time,duration_time", "-of", "csv=p=0", path})
            .out;
    std::vector<PacketTime> packets;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        PacketTime packet;
        if (std::sscanf(line.c_str(), "%lf,%lf", &packet.time, &packet.duration) == 2) {
            packets.push_back(packet);
        }
    }
    return packets;
}

std::vector<double> ProbePictureTimes(const std::string& path) {
    std::istringstream lines(
        run_reader({"ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                    "frame=best_effort_timestamp_time", "-of", "default=nk=1:nw=1", path})
            .out);
    std::vector<double> times;
    for (std::string line; std::getline(lines, line);) {
        char* end = nullptr;
        const double time = std::strtod(line.c_str(), &end);
        if (end != line.c_str()) times.push_back(time);
    }
    return times;
}

double ProbeSeconds(const std::string& path, const std::string& stream) {
    double seconds = 0;
    for (const PacketTime& packet : ProbePackets(path, stream)) seconds += packet.duration;
    return seconds;
}

int CountFrames(const std::string& path) {
    return std::atoi(
        first_line(
            run_reader({"ffprobe", "-v", "error", "-count_frames", "-select_streams", "v:0",
                        "-show_entries", "stream=nb_read_frames", "-of", "default=nk=1:nw=1", path})
                .out)
            .c_str());
}

double Psnr(const std::string& path, const std::string& reference) {
    const std::string text =
        run_reader({"ffmpeg", "-v", "info", "-nostdin", "-i", path, "-i", reference, "-lavfi",
                    "[0:v]settb=1/1000,setpts=N[a];[1:v]settb=1/1000,setpts=N[b];[a][b]psnr", "-f",
                    "null", "-"})
            .err;
    const std::size_t at = text.rfind("average:");
    if (at == std::string::npos) return 0;
    const std::string value = text.substr(at + 8, text.find(' ', at) - at - 8);
    return value == "inf" ? 200.0 : std::atof(value.c_str());
}

std::string SoundHash(const std::string& path, double seconds) {
    std::vector<std::string> words = {"ffmpeg", "-v", "error", "-nostdin",
                                      "-i",     path, "-map",  "0:a:0"};
    if (seconds > 0) words.insert(words.end(), {"-t", std::to_string(seconds)});
    words.insert(words.end(), {"-c:a", "pcm_s16le", "-f", "md5", "-"});
    return first_line(run_reader(words).out);
}

std::string MediaInfo(const std::string& path, const std::string& section,
                      const std::string& entry) {
    return first_line(
        run_reader({"mediainfo", "--Output=" + section + ";%" + entry + "%", path}).out);
}

bool GstreamerReads(const std::string& path) {
    const ProcessResult result = run_reader({"gst-discoverer-1.0", "file://" + path});
    return result.exitCode == 0 && result.out.find("Duration") != std::string::npos;
}

}  // namespace tests
