#include "IsoProblems.h"

#include <fmt/format.h>
#include <functional>

#include "spar/zRecord.h"
#include "tarn/iso/tnISOAccessor.h"
#include "tarn/iso/tnISOValidator.h"

#include "IsoSettings.h"

namespace {

std::string text_of(const zRecord& record, const char* key, const char* otherwise) {
    char scratch[64] = {};
    return record.AsCString(key, otherwise, &scratch);
}

const char* what_it_records(const tnISOAccessor& accessor) {
    return accessor.IsShotRecording() ? "shot" : "source";
}

/// The key under which the output says what it records.
const char* key_of(const tnISOAccessor& accessor) {
    return accessor.IsShotRecording() ? "shot_id" : "source_id";
}

std::string known_sources(const std::vector<IsoSource>& sources, bool shots) {
    std::string names;
    for (const IsoSource& source : sources) {
        if (source.isShot != shots) continue;
        names += (names.empty() ? "" : ", ") + source.id;
    }
    return names.empty() ? "none" : names;
}

/// The names of the other outputs for which `clashes` holds.
std::string others(const tnISOValidator& validator, const zRecord& settings,
                   const std::function<bool(const zRecord&)>& clashes) {
    std::string names;
    const std::string guid = settings.AsString('guid', "");
    validator.fOutputs->ForEachChild([&](const zRecord* child) {
        if (child->AsString('guid', "") != guid && clashes(*child)) {
            names += fmt::format("{}'{}'", names.empty() ? "" : ", ", IsoOutputName(*child));
        }
        return true;
    });
    return names;
}

std::string no_source(const zRecord& settings, const tnISOAccessor& accessor) {
    if (!accessor.IsSourceRecording() && !accessor.IsShotRecording()) {
        return fmt::format("recording_type=\"{}\" is none; set it to source or shot",
                           text_of(settings, "recording_type", ""));
    }
    return fmt::format("it does not say which {} it records; set {}", what_it_records(accessor),
                       key_of(accessor));
}

std::string unknown_source(const tnISOValidator& validator, const tnISOAccessor& accessor,
                           const std::vector<IsoSource>& sources) {
    return fmt::format("there is no {0} '{1}'; set {2} to one that there is: {3}",
                       what_it_records(accessor), validator.fSourceId, key_of(accessor),
                       known_sources(sources, accessor.IsShotRecording()));
}

std::string unavailable_tracks(const tnISOValidator& validator, const zRecord& settings,
                               const tnISOAccessor& accessor) {
    const bool video = settings.AsBool("video_track_enabled", true);
    const bool audio = settings.AsBool("audio_track_enabled", true);
    const char* const what = video && audio ? "pictures nor sound" : video ? "pictures" : "sound";
    const char* const remedy = video && audio
                                   ? "record another one"
                                   : (video ? "switch audio_track_enabled on, or record another one"
                                            : "switch video_track_enabled on, or record another "
                                              "one");
    return fmt::format("{} '{}' has {} {}; {}", what_it_records(accessor), validator.fSourceId,
                       video && audio ? "neither" : "no", what, remedy);
}

std::string same_source(const tnISOValidator& validator, const zRecord& settings,
                        const tnISOAccessor& accessor) {
    const auto clashes = [&](const zRecord& other) {
        const tnISOAccessor its(other);
        return (its.IsSourceRecording() &&
                other.AsString("source_id", "") == validator.fSourceId) ||
               (its.IsShotRecording() && other.AsString("shot_id", "") == validator.fSourceId);
    };
    return fmt::format("{} '{}' is recorded by {} as well; set {} of one of them to another",
                       what_it_records(accessor), validator.fSourceId,
                       others(validator, settings, clashes), key_of(accessor));
}

std::string same_path(const tnISOValidator& validator, const zRecord& settings,
                      const tnISOAccessor& accessor) {
    const auto clashes = [&](const zRecord& other) {
        return accessor.HasSamePath(tnISOAccessor(other));
    };
    return fmt::format(
        "'{}/{}' is written by {} as well; set output_filename or output_folder of "
        "one of them to another",
        text_of(settings, "output_folder", ""), text_of(settings, "output_filename", ""),
        others(validator, settings, clashes));
}

std::string missing_folder(const zRecord& settings) {
    const std::string folder = text_of(settings, "output_folder", "");
    if (folder.empty()) return "it has no folder; set output_folder";
    return fmt::format("there is no folder '{}'; make it, or set output_folder to another", folder);
}

}  // namespace

std::vector<IsoProblem> DescribeIsoProblems(const tnISOValidator& validator,
                                            const zRecord& settings,
                                            const std::vector<IsoSource>& sources) {
    const tnISOAccessor accessor(settings);
    std::vector<IsoProblem> problems;
    const auto tell = [&](const char* flag, std::string text) {
        problems.push_back({flag, std::move(text)});
    };
    if (validator.fSourceId.empty()) {
        tell("no_source", no_source(settings, accessor));
    } else if (validator.fSourceLookup && validator.fSourceNumber == 0) {
        tell("unknown_source", unknown_source(validator, accessor, sources));
    }
    if (validator.fNoTracksEnabled) {
        tell("no_tracks_enabled",
             "it records neither pictures nor sound; set video_track_enabled or "
             "audio_track_enabled to true");
    }
    if (validator.fTracksUnavailable) {
        tell("tracks_unavailable", unavailable_tracks(validator, settings, accessor));
    }
    if (validator.fBitrateOutOfRange) {
        tell("bitrate_out_of_range",
             fmt::format("a video_bitrate of {} {} is out of range; set it to 500 Kbps to 500 Mbps",
                         settings.AsInt32("video_bitrate", 10),
                         text_of(settings, "video_bitrate_units", "Mbps")));
    }
    if (validator.fSourceInUse) tell("source_in_use", same_source(validator, settings, accessor));
    if (validator.fPathInUse) tell("path_in_use", same_path(validator, settings, accessor));
    if (validator.fDurationOutOfRange) {
        tell("duration_out_of_range",
             fmt::format("a file_duration of {} {} is out of range; set it to 10 sec to 12 hour",
                         settings.AsInt32("file_duration", 4),
                         text_of(settings, "file_duration_units", "hour")));
    }
    if (text_of(settings, "output_filename", "").empty()) {
        tell("no_filename", "its file has no name; set output_filename");
    }
    if (validator.fBadFilename) {
        tell("bad_filename",
             fmt::format("the name '{}' holds what file systems refuse; take / \\ : * ? \" < > | "
                         "and control characters out of output_filename",
                         text_of(settings, "output_filename", "")));
    }
    if (!validator.fFolderExists) tell("folder_missing", missing_folder(settings));
    if (validator.fLowDiskSpace) {
        tell("low_disk_space",
             fmt::format("less than 512 MiB are free on the disk of '{}'; make room there, or set "
                         "output_folder to another disk",
                         text_of(settings, "output_folder", "")));
    }
    return problems;
}
