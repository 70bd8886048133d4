#include "IsoSettings.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <limits>
#include <memory>

#include "spar/zStringID.h"

#include "ElementValues.h"
#include "XmlInput.h"

namespace {

constexpr const char* kTruths[] = {"video_track_enabled", "audio_track_enabled",
                                   "file_duration_maxed"};
constexpr const char* kNumbers[] = {"video_bitrate", "file_duration"};

/// A key and the words that may stand there.
struct Words {
    const char* key;
    std::vector<std::string> known;
};

/// The library takes a unit that it does not know for a rate or a time that nobody has asked for.
const std::vector<Words>& units() {
    static const std::vector<Words> all = {{"video_bitrate_units", {"Kbps", "Mbps"}},
                                           {"file_duration_units", {"hour", "min", "sec"}}};
    return all;
}

/// Records are read by id where files have keys.
void name_identity() {
    zStringID::Default().Add('guid', "guid", false);
}

bool read_source(const zRecord& element, bool isShot, IsoSettings& settings,
                 const std::string& where, std::string& error) {
    const char* const key = isShot ? "shot_id" : "source_id";
    IsoSource source;
    source.id = ElementText(element, key);
    source.isShot = isShot;
    if (source.id.empty()) {
        error = fmt::format("{}: a <{}> has no {}; give it one", where, XmlTagOf(element), key);
        return false;
    }
    const std::string its = fmt::format("{}: {} '{}'", where, XmlTagOf(element), source.id);
    if (!ReadTruth(element, "video", source.hasVideo, its, error) ||
        !ReadTruth(element, "audio", source.hasAudio, its, error)) {
        return false;
    }
    settings.sources.push_back(source);
    return true;
}

bool read_output(const zRecord& element, IsoSettings& settings, const std::string& where,
                 std::string& error) {
    auto output = std::make_unique<zRecord>(element);
    const unsigned int number = settings.outputs.ChildCount() + 1;
    // Outputs without an identity would all count as one, and so never clash.
    if (output->AsString('guid', "").empty()) {
        output->SetString('guid', fmt::format("output {}", number));
    }
    const std::string its = fmt::format("{}: output '{}'", where, IsoOutputName(*output));
    if (!ReadIsoValues(*output, its, error)) return false;
    const std::string guid = output->AsString('guid', "");
    for (const zRecord* other : settings.outputs.Children()) {
        if (other->AsString('guid', "") != guid) continue;
        error = fmt::format("{}: guid=\"{}\" is that of output '{}'; give each its own", its, guid,
                            IsoOutputName(*other));
        return false;
    }
    settings.outputs.AddChild(output.release(), 0x7FFFFFFF);
    return true;
}

bool read_element(const zRecord& element, IsoSettings& settings, const std::string& where,
                  std::string& error) {
    const std::string tag = XmlTagOf(element);
    if (tag == "source" || tag == "shot") {
        return read_source(element, tag == "shot", settings, where, error);
    }
    if (tag == "iso_output") return read_output(element, settings, where, error);
    error = fmt::format("{}: <{}> is unknown; settings hold <iso_output>, <source> and <shot>",
                        where, tag);
    return false;
}

bool read_list(const zRecord& root, IsoSettings& settings, const std::string& where,
               std::string& error) {
    for (const zRecord* child : root.Children()) {
        if (child && !read_element(*child, settings, where, error)) return false;
    }
    if (settings.outputs.HasChildren()) return true;
    error = fmt::format("{}: has no <iso_output>; there is nothing to check", where);
    return false;
}

bool are_units_known(const zRecord& output, const std::string& where, std::string& error) {
    for (const Words& unit : units()) {
        if (!output.ExistsKey(unit.key)) continue;
        const std::string text = ElementText(output, unit.key);
        if (std::find(unit.known.begin(), unit.known.end(), text) != unit.known.end()) continue;
        error = fmt::format("{}: {}=\"{}\" is none; set it to {}", where, unit.key, text,
                            fmt::join(unit.known, " or "));
        return false;
    }
    return true;
}

}  // namespace

bool ReadIsoValues(zRecord& output, const std::string& where, std::string& error) {
    for (const char* const key : kTruths) {
        if (!output.ExistsKey(key)) continue;
        bool value = false;
        if (!ReadTruth(output, key, value, where, error)) return false;
        output.SetBool(key, value);
    }
    for (const char* const key : kNumbers) {
        if (!output.ExistsKey(key)) continue;
        constexpr int kLeast = std::numeric_limits<int>::min();
        constexpr int kMost = std::numeric_limits<int>::max();
        int value = 0;
        if (!ReadWhole(output, key, kLeast, kMost, value, where, error)) return false;
        output.SetInt32(key, value);
    }
    return are_units_known(output, where, error);
}

std::string IsoOutputName(const zRecord& output) {
    for (const char* const key : {"output_display_name", "output_filename"}) {
        const std::string name = ElementText(output, key);
        if (!name.empty()) return name;
    }
    return output.AsString('guid', "");
}

bool ReadIsoSettingsText(const std::string& text, const std::string& where, IsoSettings& settings,
                         std::string& error) {
    name_identity();
    zRecord root;
    IsoSettings read;
    if (!ParseXmlText(text, where, root, error)) return false;
    const std::string tag = XmlTagOf(root);
    if (tag != "iso" && tag != "iso_output") {
        error =
            fmt::format("{}: begins with <{}>; it has to be <iso> or one <iso_output>", where, tag);
        return false;
    }
    const bool taken =
        tag == "iso" ? read_list(root, read, where, error) : read_output(root, read, where, error);
    if (!taken) return false;
    settings.outputs.TakeFrom(read.outputs);
    settings.sources = std::move(read.sources);
    return true;
}

bool ReadIsoSettings(const std::string& path, IsoSettings& settings, std::string& error) {
    std::string text;
    return ReadXmlFile(path, text, error) &&
           ReadIsoSettingsText(text, fmt::format("'{}'", path), settings, error);
}
