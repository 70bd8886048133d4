#include "Show.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <utility>

#include "tarn/foundation/tnOutputAccessor.h"

#include "../ElementValues.h"
#include "../XmlInput.h"
#include "../codecQualities.h"
#include "../recordLimits.h"

namespace {

constexpr int kDefaultWidth = 640;
constexpr int kDefaultHeight = 360;

// A record counts a text that spells a number as that number, and "true" as no truth at all. People
// write true and false; where a text is meant, it stays one.
void take_words_for_truth(zRecord& record) {
    constexpr const char* kTexts[] = {"name", "source",      "kind",       "output_display_name",
                                      "clip", "format_name", "output_url", "picture"};
    std::vector<std::pair<unsigned long long, bool>> found;
    record.ForEachVariable([&](const zVariable& variable) {
        const bool yes = variable.Text() == "true";
        if (yes || variable.Text() == "false") found.emplace_back(variable.ID(), yes);
        return true;
    });
    for (const char* const key : kTexts) {
        const zVariable* const text = record.FindVariable(key);
        if (!text) continue;
        std::erase_if(found, [&](const auto& one) { return one.first == text->ID(); });
    }
    for (const auto& [id, yes] : found) record.SetBool(id, yes);
    for (zRecord* child : record.Children()) {
        if (child) take_words_for_truth(*child);
    }
}

bool parse_xml(const std::string& text, const std::string& where, const std::string& root,
               zRecord& record, std::string& error) {
    if (!ParseXmlText(text, where, record, error)) return false;
    if (XmlTagOf(record) != root) {
        error =
            fmt::format("{}: begins with <{}>; it has to be a <{}>", where, XmlTagOf(record), root);
        return false;
    }
    take_words_for_truth(record);
    return true;
}

bool read_side(const zRecord& record, const char* key, int& side, const std::string& where,
               std::string& error) {
    double value = side;
    if (!ReadNumber(record, key, kSmallestSide, kLargestSide, value, where, error)) return false;
    side = static_cast<int>(value);
    if (value != side || side % 2 != 0) {
        error = fmt::format("{}: {}=\"{:g}\" has to be even", where, key, value);
        return false;
    }
    return true;
}

bool read_rate(const zRecord& record, ShowSource& source, const std::string& where,
               std::string& error) {
    if (!record.ExistsKey("fps")) return true;
    const std::string text = ElementText(record, "fps");
    if (!ParseRate(text, source.rate)) {
        error = fmt::format(
            "{}: fps=\"{}\" is no rate; write 25, 29.97 or 60000/1001, from {:g} to {:g}", where,
            text, kSlowestRate, kFastestFrameRate);
        return false;
    }
    if (!source.clip.empty()) {
        error = fmt::format("{}: fps=\"{}\" with a clip; clips have their own rate, take it out",
                            where, text);
        return false;
    }
    return true;
}

bool read_source(const zRecord& record, ShowSource& source, const std::string& file,
                 std::string& error) {
    source.name = record.AsString("name", "");
    if (source.name.empty()) {
        error = fmt::format("{}: a <source> has no name; give it name=\"...\"", file);
        return false;
    }
    const std::string where = fmt::format("{}: source '{}'", file, source.name);
    source.clip = record.AsString("clip", "");
    if (!KnowsAttributes(
            record,
            {"name", "clip", "picture", "loop", "fps", "tone", "tn_width", "tn_height", "catch_up"},
            where, error) ||
        !ReadTruth(record, "loop", source.loop, where, error)) {
        return false;
    }
    const std::string picture = record.AsString("picture", source.clip.empty() ? "" : "none");
    if (source.clip.empty() && picture != "bars") {
        error = fmt::format("{}: needs clip=\"FILE\" or picture=\"bars\"", where);
        return false;
    }
    std::error_code failed;
    if (!source.clip.empty() && !std::filesystem::exists(source.clip, failed)) {
        const std::string why = failed ? " (" + failed.message() + ")" : "";
        error = fmt::format("{}: there is no clip '{}'{}; check its path", where, source.clip, why);
        return false;
    }
    if (source.clip.empty()) {
        source.width = kDefaultWidth;
        source.height = kDefaultHeight;
        source.rate = {25, 1};
    }
    return read_rate(record, source, where, error) &&
           read_side(record, "tn_width", source.width, where, error) &&
           read_side(record, "tn_height", source.height, where, error) &&
           ReadNumber(record, "tone", 0, 20000, source.toneHz, where, error) &&
           ReadNumber(record, "catch_up", 0, 3600, source.catchUp, where, error);
}

bool check_quality(const zRecord& track, const std::string& where, std::string& error) {
    if (!track.ExistsKey("codec_quality")) return true;
    const std::string quality = ElementText(track, "codec_quality");
    const std::string codec = track.AsString('mcon', "");
    const std::vector<std::string>* const known = QualitiesOf(codec);
    if (!known || std::find(known->begin(), known->end(), quality) != known->end()) return true;
    error = fmt::format("{}: codec_quality=\"{}\" is none of {}; there are: {}", where, quality,
                        codec, fmt::join(*known, ", "));
    return false;
}

bool read_track(const zRecord& element, tnMediaRecord& track, const std::string& where,
                std::string& error) {
    const std::string tag = XmlTagOf(element);
    if (tag != "video" && tag != "audio") {
        error = fmt::format("{}: <{}> is no track; it takes <video> and <audio>", where, tag);
        return false;
    }
    const bool video = tag == "video";
    track = tnMediaRecord(element);
    track.fType.SetInt32(video ? TN_MEDIA_VIDEO : TN_MEDIA_AUDIO);
    if (!track.ExistsID('mena')) track.SetBool('mena', true);
    if (!video && !track.ExistsKey("audio_output_track_mask")) {
        track.SetUInt32("audio_output_track_mask", 1);
    }
    double rate = 0;
    int keys = 0;
    if (!ReadNumber(track, "target_bit_rate", 1, kMostKilobits, rate, where, error) ||
        !ReadWhole(track, "key_frame_rate", 1, kLongestKeyInterval, keys, where, error)) {
        return false;
    }
    if (rate > 0) track.SetInt32('mtbr', static_cast<int>(rate));
    if (keys > 0) track.SetInt32("key_frame_rate", keys);
    return check_quality(track, where, error);
}

/// What an add-on would read as a default, if it were none of what is meant there.
bool read_values(zRecord& record, const std::string& where, std::string& error) {
    for (const char* const key : {"output_enabled", "output_autoinfilename"}) {
        bool value = false;
        if (!ReadTruth(record, key, value, where, error)) return false;
        if (record.ExistsKey(key)) record.SetBool(key, value);
    }
    double expected = 0;
    int moovRate = 0;
    if (!ReadNumber(record, "expected_seconds", 0, kLongestSeconds, expected, where, error) ||
        !ReadWhole(record, "moov_rate", 0, kLongestMoovRate, moovRate, where, error)) {
        return false;
    }
    if (record.ExistsKey("expected_seconds")) record.SetDouble("expected_seconds", expected);
    if (record.ExistsKey("moov_rate")) record.SetInt32("moov_rate", moovRate);
    return true;
}

std::string names_of(const std::vector<ShowSource>& sources) {
    std::string names;
    for (const ShowSource& source : sources) names += (names.empty() ? "" : ", ") + source.name;
    return names.empty() ? "none" : names;
}

bool read_output(const zRecord& record, const Show& show, ShowOutput& output,
                 const std::string& file, std::string& error) {
    output.record = record;
    const tnOutputAccessor accessor(output.record);
    output.name = accessor.OutputDisplayName();
    if (output.name.empty()) output.name = output.Location();
    if (output.name.empty()) {
        error = fmt::format("{}: an <output> has no output_display_name; give it one", file);
        return false;
    }
    const std::string where = fmt::format("{}: output '{}'", file, output.name);
    if (!read_values(output.record, where, error)) return false;
    output.kind = record.AsString("kind", "movie");
    output.format = record.AsString("format_name", "");
    output.source = record.AsString("source", show.sources.size() == 1 ? show.sources[0].name : "");
    if (!show.FindSource(output.source)) {
        error = output.source.empty()
                    ? fmt::format("{}: says no source; give it source=\"NAME\"", where)
                    : fmt::format("{}: there is no source '{}'; there are: {}", where,
                                  output.source, names_of(show.sources));
        return false;
    }
    if (output.kind == "movie" && output.format.empty()) {
        error = fmt::format("{}: has no format_name; say which kind of file it is", where);
        return false;
    }
    for (const zRecord* child : record.Children()) {
        if (!child) continue;
        tnMediaRecord track;
        if (!read_track(*child, track, where, error)) return false;
        output.tracks.push_back(track);
    }
    if (output.kind == "movie" && output.tracks.empty()) {
        error = fmt::format("{}: has no tracks; give it a <video> or an <audio>", where);
        return false;
    }
    return true;
}

bool is_taken(const Show& show, const ShowOutput& output) {
    return std::any_of(show.outputs.begin(), show.outputs.end(),
                       [&](const ShowOutput& other) { return other.name == output.name; });
}

bool add_element(const zRecord& element, const std::string& where, Show& show, std::string& error) {
    const std::string tag = XmlTagOf(element);
    if (tag == "source") {
        ShowSource source;
        if (!read_source(element, source, where, error)) return false;
        if (show.FindSource(source.name)) {
            error = fmt::format("{}: two sources are called '{}'; rename one", where, source.name);
            return false;
        }
        show.sources.push_back(std::move(source));
        return true;
    }
    if (tag != "output") {
        error = fmt::format("{}: <{}> is unknown; a show holds <source> and <output>", where, tag);
        return false;
    }
    ShowOutput output;
    if (!read_output(element, show, output, where, error)) return false;
    if (is_taken(show, output)) {
        error = fmt::format("{}: two outputs are called '{}'; rename one", where, output.name);
        return false;
    }
    show.outputs.push_back(std::move(output));
    return true;
}

/// Sources first, wherever they stand: outputs name them.
bool add_elements(const zRecord& root, const std::string& where, Show& show, std::string& error) {
    for (const bool sources : {true, false}) {
        for (const zRecord* child : root.Children()) {
            if (!child || (XmlTagOf(*child) == "source") != sources) continue;
            if (!add_element(*child, where, show, error)) return false;
        }
    }
    return true;
}

}  // namespace

bool ShowOutput::Enabled() const {
    return tnOutputAccessor(record).OutputEnabled();
}

std::string ShowOutput::Location() const {
    return tnOutputAccessor(record).URL();
}

const tnMediaRecord* ShowOutput::Track(tnMediaType type) const {
    for (const tnMediaRecord& track : tracks) {
        if (track.fType.AsInt32(0) == static_cast<int>(type)) return &track;
    }
    return nullptr;
}

const ShowSource* Show::FindSource(const std::string& name) const {
    for (const ShowSource& source : sources) {
        if (source.name == name) return &source;
    }
    return nullptr;
}

bool ReadShowText(const std::string& text, const std::string& where, Show& show,
                  std::string& error) {
    zRecord root;
    Show read;
    if (!parse_xml(text, where, "show", root, error)) return false;
    if (!add_elements(root, where, read, error)) return false;
    if (read.sources.empty()) {
        error = fmt::format("{}: has no <source>; a show needs one", where);
        return false;
    }
    if (read.outputs.empty()) {
        error = fmt::format("{}: has no <output>; a show needs one", where);
        return false;
    }
    show = std::move(read);
    return true;
}

bool ReadShow(const std::string& path, Show& show, std::string& error) {
    std::string text;
    if (!ReadXmlFile(path, text, error)) return false;
    return ReadShowText(text, fmt::format("'{}'", path), show, error);
}

bool ReadShowOutput(const std::string& text, const Show& show, ShowOutput& output,
                    std::string& error) {
    zRecord element;
    ShowOutput read;
    if (!parse_xml(text, "add", "output", element, error)) return false;
    if (!read_output(element, show, read, "add", error)) return false;
    if (is_taken(show, read)) {
        error = fmt::format("add: there is an output '{}'; choose another output_display_name",
                            read.name);
        return false;
    }
    output = std::move(read);
    return true;
}

bool ReadShowSource(const std::string& text, const Show& show, ShowSource& source,
                    std::string& error) {
    zRecord element;
    ShowSource read;
    if (!parse_xml(text, "add", "source", element, error)) return false;
    if (!read_source(element, read, "add", error)) return false;
    if (show.FindSource(read.name)) {
        error = fmt::format("add: there is a source '{}'; choose another name", read.name);
        return false;
    }
    source = std::move(read);
    return true;
}
