#include "tests/movies/Readers.h"

#include <cstdlib>
#include <sstream>

#include "tests/movies/MovieFolder.h"

namespace {

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

/// The value behind `key` on the first line that has it.
std::string value_of(const std::string& text, const std::string& key) {
    const auto at = text.find(key);
    if (at == std::string::npos) return "";
    const auto from = at + key.size();
    return text.substr(from, text.find('\n', from) - from);
}

/// A program that hangs is ended, so that its test fails by itself.
ProgramRun run_reader(const std::string& command) {
    return RunProgram("timeout 120 " + command);
}

bool is_about_missing_samples(const std::string& line) {
    return line.find("Could not find codec parameters") != std::string::npos ||
           line.find("Consider increasing") != std::string::npos;
}

}  // namespace

ReaderOpinion Ffprobe(const std::string& path, bool empty) {
    ReaderOpinion opinion;
    const ProgramRun run = run_reader(
        "ffprobe -v warning -show_entries format=duration -of default=nk=0:nw=1 " + path);
    if (run.status != 0) opinion.complaints += "ffprobe failed\n";
    for (const std::string& line : lines_of(run.output)) {
        if (line.rfind("duration=", 0) == 0)
            opinion.seconds = std::atof(line.c_str() + 9);
        else if (line.find("Guessed Channel Layout") == std::string::npos &&
                 !(empty && is_about_missing_samples(line)))
            opinion.complaints += line + "\n";
    }
    return opinion;
}

ReaderOpinion Mediainfo(const std::string& path) {
    ReaderOpinion opinion;
    const ProgramRun run = run_reader(
        "mediainfo --Output='General;duration=%Duration%\\ntruncated=%IsTruncated%\\n"
        "streams=%VideoCount%+%AudioCount%\\nstreamable=%IsStreamable%\\n' " +
        path);
    if (run.status != 0) opinion.complaints += "mediainfo failed\n";
    if (value_of(run.output, "truncated=") == "Yes") opinion.complaints += "truncated\n";
    const std::string duration = value_of(run.output, "duration=");
    if (!duration.empty()) opinion.seconds = std::atof(duration.c_str()) / 1000;
    opinion.lines = lines_of(run.output);
    return opinion;
}

ReaderOpinion GstDiscoverer(const std::string& path) {
    ReaderOpinion opinion;
    const ProgramRun run = run_reader("gst-discoverer-1.0 " + path);
    if (run.status != 0) opinion.complaints += run.output;
    for (const char* bad : {"rror", "issing", "not playable"})
        if (run.output.find(bad) != std::string::npos) opinion.complaints += run.output;
    const std::string duration = value_of(run.output, "Duration: ");
    int hours = 0, minutes = 0;
    double seconds = 0;
    if (sscanf(duration.c_str(), "%d:%d:%lf", &hours, &minutes, &seconds) == 3)
        opinion.seconds = hours * 3600 + minutes * 60 + seconds;
    opinion.lines = lines_of(run.output);
    return opinion;
}

ReaderOpinion GstDecode(const std::string& path, int streams) {
    ReaderOpinion opinion;
    // A stream that nobody takes can hold up the others for ever.
    std::string sinks;
    for (int i = 0; i < streams; i++) sinks += " d. ! queue ! fakesink sync=false";
    const ProgramRun run =
        run_reader("gst-launch-1.0 -q filesrc location=" + path + " ! decodebin name=d" + sinks);
    if (run.status != 0 || run.output.find("ERROR") != std::string::npos)
        opinion.complaints = "gst-launch: " + run.output;
    return opinion;
}

std::vector<std::string> DecodedFrames(const std::string& path, const std::string& stream) {
    const ProgramRun run = run_reader("ffmpeg -nostdin -v error -copyts -i " + path +
                                      " -map 0:" + stream + " -fps_mode passthrough -f framemd5 -");
    std::vector<std::string> frames;
    for (const std::string& line : lines_of(run.output)) {
        if (line.empty() || line[0] == '#') continue;
        // stream, dts, pts, duration, size, hash
        std::istringstream fields(line);
        std::string field;
        std::vector<std::string> parts;
        while (std::getline(fields, field, ',')) parts.push_back(field);
        frames.push_back(parts.size() == 6 ? parts[2] + parts[5] : line);
    }
    return frames;
}

std::string DecodedSound(const std::string& path, const std::string& stream) {
    const ProgramRun run =
        run_reader("ffmpeg -nostdin -v error -i " + path + " -map 0:" + stream + " -f md5 -");
    return run.output;
}
