#include <algorithm>
#include <iterator>
#include <string_view>

#include "spar/zStringID.h"

#include "IsoOutput.h"
#include "LiveOutput.h"
#include "MovieOutput.h"
#include "ReplayOutput.h"

namespace {

std::vector<LiveOutputKind>& kinds() {
    static std::vector<LiveOutputKind> known = {
        {"movie",
         MakeMovieOutput,
         CheckMovieOutput,
         {"expected_seconds", "moov_rate", "stop_seconds"}},
        {"replay",
         MakeReplayOutput,
         CheckReplayOutput,
         {"segment_seconds", "keep_seconds", "expected_seconds", "moov_rate", "stop_seconds"}},
        {"iso",
         MakeIsoOutput,
         CheckIsoShowOutput,
         {"recording_type", "source_id", "shot_id", "guid", "output_filename", "output_folder",
          "video_format", "video_quality", "video_bitrate", "video_bitrate_units", "file_duration",
          "file_duration_units", "file_duration_maxed", "video_track_enabled",
          "audio_track_enabled", "expected_seconds", "moov_rate", "stop_seconds"}},
    };
    return known;
}

/// Of every kind.
constexpr std::string_view kOfOutputs[] = {"kind", "source", "format_name"};
/// What encoders read.
constexpr std::string_view kOfTracks[] = {
    "audio_output_track_mask", "b_frames",       "codec_quality", "encoder_preset",
    "encoder_threads",         "key_frame_rate", "strict_cbr"};

/// Adds to `unread` the keys that are neither the library's nor among the words.
template <typename... Words>
void find_unread(const zRecord& element, std::vector<std::string>& unread, const Words&... words) {
    element.ForEachVariable([&](const zVariable& variable) {
        const char* const key = zStringID::Default().Key(variable.ID());
        if (!key || !zStringID::IsMade(variable.ID())) return true;
        const auto standsIn = [key](const auto& known) {
            return std::find(std::begin(known), std::end(known), key) != std::end(known);
        };
        if (!(standsIn(words) || ...)) unread.emplace_back(key);
        return true;
    });
}

}  // namespace

void LiveOutputKinds::Add(const LiveOutputKind& kind) {
    kinds().insert(kinds().begin(), kind);
}

const LiveOutputKind* LiveOutputKinds::Find(const std::string& name) {
    for (const LiveOutputKind& kind : kinds()) {
        if (kind.name == name) return &kind;
    }
    return nullptr;
}

std::vector<std::string> LiveOutputKinds::Names() {
    std::vector<std::string> names;
    for (const LiveOutputKind& kind : kinds()) names.push_back(kind.name);
    return names;
}

std::vector<std::string> LiveOutputKinds::UnreadAttributes(const ShowOutput& output) {
    const LiveOutputKind* const kind = Find(output.kind);
    std::vector<std::string> unread;
    if (!kind || kind->attributes.empty()) return unread;
    find_unread(output.record, unread, kOfOutputs, kind->attributes);
    for (const tnMediaRecord& track : output.tracks) find_unread(track, unread, kOfTracks);
    return unread;
}
