#include "IsoOutput.h"

#include <filesystem>
#include <fmt/format.h>
#include <utility>

#include "spar/zStringID.h"
#include "tarn/foundation/tnOutputAccessor.h"
#include "tarn/iso/tnISOAccessor.h"

#include "../IsoCheck.h"
#include "../IsoSettings.h"
#include "LiveSource.h"
#include "MovieOutput.h"

namespace {

constexpr const char* kFormat = "QuickTime";

struct Codec {
    const char* format;
    const char* name;
};
constexpr Codec kCodecs[] = {
    {"PRORES-MOV", "ProRes"}, {"MJPEG-MOV", "MJPEG"}, {"H264-MOV", "x264"}};

/// Null for a format that this program does not write.
const char* codec_of(const std::string& format) {
    for (const Codec& codec : kCodecs) {
        if (format == codec.format) return codec.name;
    }
    return nullptr;
}

/// What the validator looks at: in a show outputs are told apart by their names.
zRecord settings_of(const ShowOutput& output) {
    zRecord settings;
    settings.Copy(output.record, true, false, {});
    settings.SetString('guid', output.name);
    settings.SetString("source_id", output.source);
    return settings;
}

std::vector<IsoSource> sources_of(const Show& show) {
    std::vector<IsoSource> sources;
    for (const ShowSource& source : show.sources) {
        // Whether a clip has sound is known only once it plays.
        const bool hasAudio = !source.clip.empty() || source.toneHz > 0;
        sources.push_back({source.name, false, true, hasAudio});
    }
    return sources;
}

bool check_quality(const zRecord& settings, const std::string& where, std::string& error) {
    const std::string format = settings.AsString("video_format", "");
    const std::string quality = settings.AsString("video_quality", "");
    if (!codec_of(format)) {
        error = fmt::format(
            "{}: video_format=\"{}\" is none; set it to PRORES-MOV, MJPEG-MOV or H264-MOV", where,
            format);
        return false;
    }
    const bool hasQuality = tnISOAccessor(settings).IsVideoFormatWithQualitySetting();
    if (!hasQuality || quality.empty() ||
        tnISOAccessor::IsVideoQualityOptionForFormat(format, quality)) {
        return true;
    }
    error = fmt::format("{}: video_quality=\"{}\" is none of {}; {} is the usual one", where,
                        quality, format, tnISOAccessor::DefaultVideoQualityForFormat(format));
    return false;
}

tnMediaRecord video_track(const zRecord& settings) {
    const tnISOAccessor accessor(settings);
    const std::string format = settings.AsString("video_format", "");
    tnMediaRecord track(TN_MEDIA_VIDEO);
    track.SetBool('mena', true);
    track.SetCString('mcon', codec_of(format));
    if (accessor.IsVideoFormatWithQualitySetting()) {
        const std::string usual = tnISOAccessor::DefaultVideoQualityForFormat(format);
        track.SetString("codec_quality", settings.AsString("video_quality", usual));
    } else {
        track.SetInt32('mtbr', accessor.VideoBitrateKbps(true));
    }
    return track;
}

tnMediaRecord audio_track() {
    tnMediaRecord track(TN_MEDIA_AUDIO);
    track.SetBool('mena', true);
    track.SetCString('mcon', "PCM");
    track.SetUInt32("audio_output_track_mask", 1);
    return track;
}

/// "cup.mov", "cup 2.mov", ...
std::filesystem::path path_of(const zRecord& settings, int number) {
    const std::filesystem::path name(settings.AsString("output_filename", ""));
    const std::filesystem::path folder(settings.AsString("output_folder", ""));
    if (number == 1) return folder / name;
    return folder / fmt::format("{} {}{}", name.stem().string(), number, name.extension().string());
}

/// The movie that carries the output's file of that number.
ShowOutput movie_of(const ShowOutput& output, const zRecord& settings, int number, bool hasSound) {
    ShowOutput movie = output;
    movie.kind = "movie";
    movie.format = kFormat;
    movie.tracks.clear();
    if (settings.AsBool("video_track_enabled", true)) movie.tracks.push_back(video_track(settings));
    if (hasSound && settings.AsBool("audio_track_enabled", true)) {
        movie.tracks.push_back(audio_track());
    }
    tnOutputAccessor accessor(movie.record);
    accessor.SetURL(path_of(settings, number).string());
    accessor.SetAutoIncrementFileName(true);  // a recording that is there is never written over
    movie.record.SetInt32("expected_seconds", tnISOAccessor(settings).FileDurationSeconds(true));
    return movie;
}

class IsoOutput final : public LiveOutput {
public:
    IsoOutput(const ShowOutput& output, LiveSource& source)
        : fOutput(output), fSettings(settings_of(output)), fSource(source) {
        std::string none;
        ReadIsoValues(fSettings, "", none);  // has been checked
        const int seconds = tnISOAccessor(std::as_const(fSettings)).FileDurationSeconds(true);
        fFramesPerFile = static_cast<long long>(seconds * source.FramesPerSecond());
    }

    bool Start(std::string& error) override {
        fBefore = {};
        fNumber = 0;
        return begin_file(error);
    }
    void Stop() override {
        end_full_file();
        if (fMovie) fMovie->Stop();
        fStopped = true;
    }
    LiveFigures Figures() override {
        if (!fMovie) return fBefore;
        LiveFigures figures = fMovie->Figures();
        if (fFull && figures.frames > 0) end_full_file();
        if (!fFull && figures.status == 0 && figures.frames >= fFramesPerFile) {
            begin_next_file();
            figures = fMovie->Figures();
        }
        add(fBefore, figures);
        if (fFull) add(fFull->Figures(), figures);
        // A file that did not end well is told when the last one has ended; until then they go on.
        if (fStopped && figures.status == 0 && fBefore.status != 0) {
            figures.status = fBefore.status;
            figures.text = fBefore.text;
        }
        return figures;
    }
    std::string Location() const override {
        return fMovie ? fMovie->Location() : path_of(fSettings, 1).string();
    }

private:
    static void add(const LiveFigures& of, LiveFigures& figures) {
        figures.frames += of.frames;
        figures.bytes += of.bytes;
    }

    bool begin_file(std::string& error) {
        const bool hasSound = fSource.AudioFormat() != nullptr;
        std::unique_ptr<LiveOutput> movie =
            MakeMovieOutput(movie_of(fOutput, fSettings, fNumber + 1, hasSound), fSource, error);
        if (!movie || !movie->Start(error)) return false;
        ++fNumber;
        fMovie = std::move(movie);
        fStopped = false;
        return true;
    }

    /// Where the next file cannot begin the full one goes on: too long is better than none.
    void begin_next_file() {
        std::unique_ptr<LiveOutput> full = std::move(fMovie);
        std::string error;
        if (begin_file(error)) {
            fFull = std::move(full);
        } else {
            fMovie = std::move(full);
            fFramesPerFile = kNever;
        }
    }

    void end_full_file() {
        if (!fFull) return;
        fFull->Stop();
        const LiveFigures last = fFull->Figures();
        add(last, fBefore);
        if (last.status != 0) {
            fBefore.status = last.status;
            fBefore.text = last.text;
        }
        fFull.reset();
    }

    static constexpr long long kNever = 0x7FFFFFFFFFFFFFFF;

    const ShowOutput fOutput;
    zRecord fSettings;
    LiveSource& fSource;
    long long fFramesPerFile = kNever;
    int fNumber = 0;      // of the file that is being written
    LiveFigures fBefore;  // of the files that have ended
    std::unique_ptr<LiveOutput> fMovie;
    std::unique_ptr<LiveOutput> fFull;  // the file before, until the one after it has a picture
    bool fStopped = false;
};

}  // namespace

std::unique_ptr<LiveOutput> MakeIsoOutput(const ShowOutput& output, LiveSource& source,
                                          std::string& error) {
    if (!source.AudioFormat() && !output.record.AsBool("video_track_enabled", true)) {
        error = fmt::format("output '{}': source '{}' has no sound; switch video_track_enabled on",
                            output.name, source.Name());
        return nullptr;
    }
    return std::make_unique<IsoOutput>(output, source);
}

bool CheckIsoShowOutput(const ShowOutput& output, const Show& show, std::string& error) {
    zStringID::Default().Add('guid', "guid", false);
    const std::string where = fmt::format("output '{}'", output.name);
    zRecord settings = settings_of(output);
    if (!ReadIsoValues(settings, where, error)) return false;
    zRecord outputs;
    for (const ShowOutput& other : show.outputs) {
        if (other.kind == output.kind) outputs.AddChild(new zRecord(settings_of(other)), -1);
    }
    std::string texts;
    for (const IsoProblem& problem : CheckIsoOutput(outputs, settings, sources_of(show))) {
        texts += (texts.empty() ? "" : "; besides, ") + problem.text;
    }
    if (!texts.empty()) {
        error = fmt::format("{}: {}", where, texts);
        return false;
    }
    return check_quality(settings, where, error) &&
           CheckMovieOutput(movie_of(output, settings, 1, true), show, error);
}
