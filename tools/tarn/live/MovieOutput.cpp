#include "MovieOutput.h"

#include <filesystem>
#include <fmt/format.h>

#include "spar/zString.h"
#include "tarn/foundation/tnOutputAccessor.h"
#include "tarn/movies/tnFiles.h"
#include "tarn/movies/tnFormatsIterator.h"
#include "tarn/movies/tnMovie.h"
#include "tarn/movies/tnStream.h"
#include "tarn/movies/tnXIMovieFile.h"
#include "tarn/writers/writerErrors.h"

#include "../bytesOnDisk.h"
#include "../codeText.h"
#include "../folderTrouble.h"
#include "LiveSource.h"
#include "LiveTrace.h"
#include "livePlaces.h"

namespace {

constexpr tnMediaType kTypes[] = {TN_MEDIA_VIDEO, TN_MEDIA_AUDIO};

struct ReleaseObject {
    template <typename Interface>
    void operator()(Interface* object) const {
        object->Release();
    }
};
using MovieHandle = std::unique_ptr<tnMovie, ReleaseObject>;
using StreamHandle = std::unique_ptr<tnStream, ReleaseObject>;

/// Whether an output with that status is without something and yet no failure.
bool goes_on(int status) {
    return status == kOutputLeavesOut || status == kOutputGetsNothing;
}

/// What the show says, else what the location looks like.
tn_output type_of(const ShowOutput& output) {
    const tn_output type = tnOutputAccessor(output.record).OutputType();
    if (type != 0) return type;
    return IsAddress(output.Location()) ? TN_OUTPUT_STREAMING : TN_OUTPUT_DEFAULT;
}

class MovieOutput final : public LiveOutput {
public:
    MovieOutput(const ShowOutput& output, LiveSource& source)
        : fOutput(output), fSource(source), fRecord(output.record), fPath(output.Location()) {
        tnOutputAccessor accessor(fRecord);
        accessor.SetOutputType(type_of(output));
    }
    ~MovieOutput() override { drop_movie(); }

    bool Start(std::string& error) override;
    void Stop() override;
    LiveFigures Figures() override;
    std::string Location() const override { return fPath; }

private:
    bool make_movie(std::string& error);
    bool begin(std::string& error);
    int switch_to(bool on);
    void collect(LiveFigures& figures);
    void drop_movie();
    std::string reason(int code) const;

    const ShowOutput fOutput;
    LiveSource& fSource;
    zRecord fRecord;
    MovieHandle fMovie;
    std::string fPath;  // or address, of this time
    LiveFigures fFigures;
    bool fBegun = false;    // the movie knows the output
    bool fRunning = false;  // it uses the source
};

std::string MovieOutput::reason(int code) const {
    const std::string text = MovieErrorText(code, fPath);
    const std::vector<std::string> traced = LiveTrace::About(fPath);
    return traced.empty() ? text : text + "; " + traced.front();
}

bool MovieOutput::make_movie(std::string& error) {
    tnMovie* made = nullptr;
    int code = tnFiles::CreateMovieWithName(&made, fOutput.format, type_of(fOutput));
    fMovie.reset(made);
    if (code != 0) {
        error = fmt::format("output '{}': no movie of format '{}' (code {})", fOutput.name,
                            fOutput.format, code);
        return false;
    }
    zRecord tracks;
    for (const tnMediaRecord& track : fOutput.tracks) {
        const bool video = track.fType.AsInt32(0) == TN_MEDIA_VIDEO;
        if (!video && !fSource.AudioFormat()) {
            error = fmt::format(
                "output '{}': source '{}' has no sound; take its <audio> out, or give generated "
                "pictures a tone",
                fOutput.name, fSource.Name());
            return false;
        }
        tracks.AddChild(
            new tnMediaRecord(video ? fSource.VideoTrack(track) : fSource.AudioTrack(track)), -1);
    }
    code = fMovie->CreateStreams(tracks, 0, 0);
    if (code != 0) {
        error = fmt::format("output '{}': {}", fOutput.name, reason(code));
        return false;
    }
    return true;
}

bool MovieOutput::begin(std::string& error) {
    tnOutputAccessor(fRecord).SetOutputEnabled(true);
    zRecord outputs;
    outputs.AddChild(new zRecord(fRecord), -1);
    zRecord result;
    const int code = fMovie->BeginWritingFromDestination(outputs, &fRecord, result);
    if (code != 0) {
        error = fmt::format("output '{}': {}", fOutput.name, reason(code));
        return false;
    }
    fPath = result.AsString("path", fPath);
    fBegun = true;
    return true;
}

// Switched on again, a movie goes on in a file beside the one from before.
int MovieOutput::switch_to(bool on) {
    tnOutputAccessor accessor(fRecord);
    accessor.SetOutputEnabled(on);
    zRecord result;
    const int code = fMovie->UpdateOutput(accessor, &fRecord, result, TN_OUTPUT_UPDATE_ENABLE);
    fPath = result.AsString("path", fPath);
    return code;
}

bool MovieOutput::Start(std::string& error) {
    LiveTrace::Forget(fPath);
    fFigures = {};
    if (!fBegun) {
        if (!make_movie(error) || !begin(error)) {
            drop_movie();
            return false;
        }
    } else if (const int code = switch_to(true); code != 0) {
        error = fmt::format("output '{}': {}", fOutput.name, reason(code));
        return false;
    }
    fSource.BeginUse(fOutput.Track(TN_MEDIA_VIDEO), fOutput.Track(TN_MEDIA_AUDIO));
    fRunning = true;
    return true;
}

void MovieOutput::Stop() {
    if (!fRunning) return;
    fSource.EndUse(fOutput.Track(TN_MEDIA_VIDEO), fOutput.Track(TN_MEDIA_AUDIO));
    fRunning = false;
    switch_to(false);
    collect(fFigures);
}

void MovieOutput::drop_movie() {
    Stop();
    if (fMovie && fBegun) {
        zRecord result;
        fMovie->UpdateOutput(tnOutputAccessor(fRecord), nullptr, result, TN_OUTPUT_UPDATE_REMOVE);
    }
    fBegun = false;
    fMovie.reset();
}

void MovieOutput::collect(LiveFigures& figures) {
    if (!fMovie) return;
    zRecord request;
    zRecord answer;
    fMovie->StatisticsControl(request, answer);
    figures.frames = answer.AsInt64("frames", figures.frames);
    figures.bytes = answer.AsInt64("bytes", figures.bytes);
    // Until the movie begins, what stands there is an older one.
    const bool hasBegun = figures.frames > 0 || figures.bytes > 0;
    // Of a folder of movies the bytes that went into them are told as well as any.
    if (hasBegun && !IsAddress(fPath)) figures.bytes = BytesOnDisk(fPath, figures.bytes);
    figures.text.clear();
    for (const tnMediaType type : kTypes) {
        tnStream* found = nullptr;
        if (fMovie->GetWriteStreamForType(type, &found) != 0) continue;
        const StreamHandle stream(found);
        tn_output_statistics statistics;
        if (stream->GetOutputStatistics(statistics) != 0 || statistics.fStatus == 0) continue;
        figures.text = reason(statistics.fStatus);
        if (goes_on(statistics.fStatus)) continue;
        figures.status = statistics.fStatus;
        figures.statusValue = statistics.fStatusValue;
        return;
    }
}

LiveFigures MovieOutput::Figures() {
    if (fRunning) collect(fFigures);
    return fFigures;
}

std::string known_formats() {
    std::string names;
    tnFormatsIterator* const formats = tnFiles::CreateFormatIterator();
    for (formats->Init(); !formats->Done(); formats->Next()) {
        tnFormatsIterator::tn_format format;
        formats->Current(format);
        if (!format.name) continue;
        if (!names.empty()) names += ", ";
        names += format.name;
    }
    formats->Delete();
    return names.empty() ? "none; are the add-ons installed, or is --addons right?" : names;
}

bool is_same_file(const std::string& a, const std::string& b) {
    std::error_code failed;
    const auto first = std::filesystem::weakly_canonical(a, failed);
    return !failed && first == std::filesystem::weakly_canonical(b, failed) && !failed;
}

/// A file of its own, in a folder that is there.
bool check_path(const ShowOutput& output, const Show& show, std::string& error) {
    const std::string path = PathOf(output.Location());
    const std::string trouble = FolderTrouble(std::filesystem::path(path).parent_path());
    if (!trouble.empty()) {
        error = fmt::format("output '{}': {}", output.name, trouble);
        return false;
    }
    for (const ShowSource& source : show.sources) {
        if (source.clip.empty() || !is_same_file(source.clip, path)) continue;
        error = fmt::format("output '{}': '{}' is the clip of source '{}'; choose another file",
                            output.name, path, source.name);
        return false;
    }
    for (const ShowOutput& other : show.outputs) {
        if (other.name == output.name || !is_same_file(PathOf(other.Location()), path)) continue;
        error = fmt::format("output '{}': output '{}' writes to '{}' already; choose another file",
                            output.name, other.name, path);
        return false;
    }
    return true;
}

}  // namespace

bool CheckMovieOutput(const ShowOutput& output, const Show& show, std::string& error) {
    tnXIMovieFile* found = nullptr;
    if (tnFiles::GetMovieFileInterface(output.format, &found) != 0) {
        error = fmt::format("output '{}': unknown format_name '{}'; there are: {}", output.name,
                            output.format, known_formats());
        return false;
    }
    const std::unique_ptr<tnXIMovieFile, ReleaseObject> format(found);
    const std::string location = output.Location();
    if (location.empty()) {
        error = fmt::format("output '{}': has no output_url; say where it goes", output.name);
        return false;
    }
    if (!HasGoodPort(location)) {
        error = fmt::format("output '{}': '{}' has no port from 1 to 65535; write udp://HOST:PORT",
                            output.name, location);
        return false;
    }
    if (!format->SupportsOutput(type_of(output))) {
        error = fmt::format("output '{}': '{}' does not write to '{}'; use another format_name",
                            output.name, output.format, location);
        return false;
    }
    return type_of(output) != TN_OUTPUT_DEFAULT || check_path(output, show, error);
}

std::unique_ptr<LiveOutput> MakeMovieOutput(const ShowOutput& output, LiveSource& source,
                                            std::string&) {
    return std::make_unique<MovieOutput>(output, source);
}
