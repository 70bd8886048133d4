#include "LiveReport.h"

#include <fmt/format.h>
#include <iterator>

#include "../JsonString.h"
#include "../TextUnits.h"
#include "LiveShow.h"
#include "LiveSource.h"

namespace {

void append_source(std::string& text, const LiveSource& source) {
    const LiveSourceFigures& figures = source.Figures();
    fmt::format_to(std::back_inserter(text),
                   "{:<16} {} {:.2f} fps  {} frames  late {}  lost {}  skipped {}  worst {:.1f} ms",
                   source.Name(), TextOfSeconds(source.Seconds()), source.FramesPerSecond(),
                   figures.frames.load(), figures.late.load(), figures.lost.load(),
                   figures.skipped.load(), static_cast<double>(figures.worstLateUs.load()) / 1000);
    text += figures.ended ? "  ended\n" : "\n";
}

void append_output(std::string& text, const LiveOutputEntry& entry) {
    fmt::format_to(std::back_inserter(text), "  {:<14} {:<8} {} frames  {}  {}",
                   entry.description.name, TextOf(entry.state), entry.figures.frames,
                   TextOfBytes(entry.figures.bytes), entry.location);
    if (!entry.figures.text.empty()) text += "  " + entry.figures.text;
    text += '\n';
}

std::string json_of(const LiveSource& source) {
    const LiveSourceFigures& figures = source.Figures();
    return fmt::format(
        R"({{"name":{},"seconds":{:.3f},"fps":{:.4f},"frames":{},"ticks":{},"late":{},"lost":{},)"
        R"("skipped":{},"worstLateMs":{:.3f},"ended":{}}})",
        JsonString(source.Name()), source.Seconds(), source.FramesPerSecond(),
        figures.frames.load(), figures.ticks.load(), figures.late.load(), figures.lost.load(),
        figures.skipped.load(), static_cast<double>(figures.worstLateUs.load()) / 1000,
        figures.ended.load());
}

std::string json_of(const LiveOutputEntry& entry) {
    return fmt::format(
        R"("name":{},"source":{},"state":"{}","location":{},"frames":{},"bytes":{},"status":{},)"
        R"("statusValue":{},"text":{})",
        JsonString(entry.description.name), JsonString(entry.description.source),
        TextOf(entry.state), JsonString(entry.location), entry.figures.frames, entry.figures.bytes,
        entry.figures.status, entry.figures.statusValue, JsonString(entry.figures.text));
}

std::string json_of_all(const LiveShow& show) {
    std::string text = fmt::format(R"("seconds":{:.3f},"sources":[)", show.Seconds());
    const char* comma = "";
    for (const auto& source : show.Sources()) {
        text += comma;
        text += json_of(*source);
        comma = ",";
    }
    text += R"(],"outputs":[)";
    comma = "";
    for (const LiveOutputEntry& entry : show.Outputs()) {
        text += fmt::format("{}{{{}}}", comma, json_of(entry));
        comma = ",";
    }
    return text + "]";
}

}  // namespace

std::string TextOfShow(const LiveShow& show) {
    std::string text;
    for (const auto& source : show.Sources()) {
        append_source(text, *source);
        for (const LiveOutputEntry& entry : show.Outputs()) {
            if (entry.description.source == source->Name()) append_output(text, entry);
        }
    }
    return text;
}

std::string JsonOfStats(const LiveShow& show) {
    return fmt::format(R"({{"event":"stats",{}}})", json_of_all(show));
}

std::string JsonOfOutput(const LiveOutputEntry& entry) {
    return fmt::format(R"({{"event":"output",{}}})", json_of(entry));
}

std::string JsonOfEnd(const LiveShow& show) {
    return fmt::format(R"({{"event":"done",{}}})", json_of_all(show));
}
