#include "addons/support/OutputMovie.h"

#include <limits>
#include <utility>

#include "spar/zFileStream.h"
#include "tarn/filters/tnAacAudioCompressor.h"
#include "tarn/filters/tnOrbVideoCompressor.h"
#include "tarn/filters/tnPcmAudioFilter.h"
#include "tarn/movies/tnSharedEncoders.h"

#include "addons/support/AnsweringFilter.h"

namespace {

constexpr int kNullArgument = -22;
constexpr int kNotAvailable = -28;
constexpr int kNoSuchStream = -1009;
constexpr int kNoSuchIndex = -1010;
constexpr int kRunsAlready = -1011;
constexpr int kNoPlace = -1006;
constexpr int kProblem = 2;

bool is_address(const std::string& where) {
    return where.find("://") != std::string::npos;
}

std::string without_scheme(const std::string& url) {
    static const std::string kFile = "file://";
    return url.rfind(kFile, 0) == 0 ? url.substr(kFile.size()) : url;
}

/// "folder/name.mov" and 2 give "folder/name 2.mov".
std::string numbered(const std::string& path, int number) {
    const std::size_t slash = path.rfind('/');
    const std::size_t dot = path.rfind('.');
    const bool hasExtension =
        dot != std::string::npos && (slash == std::string::npos || dot > slash + 1);
    const std::size_t end = hasExtension ? dot : path.size();
    return path.substr(0, end) + " " + std::to_string(number) + path.substr(end);
}

/// Lets everything through from the first buffer on: a start that was decided before all times.
///
/// Left to itself it would hold back, without a bound, what one track gives while another gives
/// nothing, and what is earlier than the start. Where its tracks begin together each output finds
/// for itself, with bounds for both.
std::shared_ptr<tnOutputStreamSync> make_open_sync() {
    auto sync = std::make_shared<tnOutputStreamSync>();
    sync->AddStream(nullptr);
    sync->CanSendFrame(nullptr, std::numeric_limits<long long>::min(), true);
    return sync;
}

/// What keeps a filter from encoding; 0 for nothing, and for kinds that cannot be asked.
int error_of(const tnFilter* filter) {
    if (const auto* own = dynamic_cast<const AnsweringFilter*>(filter)) {
        return own->ConfigurationError();
    }
    if (const auto* video = dynamic_cast<const tnOrbVideoCompressor*>(filter)) {
        const int error = video->ConfigurationError();
        return error != 0 ? error : video->FrameError();
    }
    if (const auto* aac = dynamic_cast<const tnAacAudioCompressor*>(filter)) {
        return aac->ConfigurationError();
    }
    const auto* pcm = dynamic_cast<const tnPcmAudioFilter*>(filter);
    return pcm ? pcm->ConfigurationError() : 0;
}

}  // namespace

OutputMovieStream::OutputMovieStream(int source, const tnMediaRecord& request,
                                     const tnMediaRecord& track,
                                     std::shared_ptr<tnOutputStreamSync> sync,
                                     std::shared_ptr<OutputFan> fan)
    : tnOutputStream(source, request, std::move(sync)), fTrack(track), fFan(std::move(fan)) {
    SetFormat(track);
    SetSink(fFan);
}

int OutputMovieStream::GetOutputStatistics(tn_output_statistics& statistics) {
    const int code = tnOutputStream::GetOutputStatistics(statistics);
    if (statistics.fState != 0) return code;
    if (const auto failed = fFan->FindFailed()) {
        statistics.fStatus = failed->Failure();
        statistics.fStatusValue = failed->BytesWritten(HasPictures());
    } else if (const int error = error_of(std::atomic_load(&fFilter).get()); error != 0) {
        statistics.fStatus = error;
    } else if (const auto output = fFan->FindInTrouble(HasPictures())) {
        statistics.fStatus = output->Trouble(HasPictures());
        statistics.fStatusValue = output->BytesWritten(HasPictures());
    }
    statistics.fState = statistics.fStatus != 0 ? kProblem : 0;
    return code;
}

void OutputMovieStream::Begin() {
    SetStatus(0, 0);
    std::atomic_store(&fFilter, {});
}

void OutputMovieStream::LetEncoderGo() {
    const std::shared_ptr<tnFilter> filter = std::atomic_exchange(&fFilter, {});
    SetStatus(error_of(filter.get()), 0);
}

void OutputMovieStream::Keep(MovieOutput& output) {
    tn_output_statistics kept;
    tnOutputStream::GetOutputStatistics(kept);
    int code = output.Failure();
    if (code == 0) code = kept.fStatus;
    if (code == 0) code = output.Trouble(HasPictures());
    SetStatus(code, code != 0 ? output.BytesWritten(HasPictures()) : 0);
}

OutputMovie::OutputMovie(unsigned int id, const char* name)
    : fID(id), fName(name), fSync(make_open_sync()) {}

OutputMovie::~OutputMovie() {
    while (!fRunning.empty()) end_output(fRunning.begin()->first);
}

OutputMovieStream* OutputMovie::stream_of(tnMediaType type) const {
    for (tnStream* stream : fStreams) {
        if (stream->EncodedFormat().fType.AsInt32(0) == static_cast<int>(type)) {
            return static_cast<OutputMovieStream*>(stream);
        }
    }
    return nullptr;
}

tnMediaRecord OutputMovie::track_of(tnMediaType type) const {
    const OutputMovieStream* stream = stream_of(type);
    return stream ? stream->EncodedFormat() : tnMediaRecord();
}

int OutputMovie::CreateWriteStream(tnMediaRecord& format, tnStream** stream, int) {
    if (!stream) return kNullArgument;
    *stream = nullptr;
    const int type = format.fType.AsInt32(0);
    if (type != TN_MEDIA_VIDEO && type != TN_MEDIA_AUDIO) return kNoSuchStream;
    if (stream_of(static_cast<tnMediaType>(type))) return kNoSuchStream;
    auto* const made = new OutputMovieStream(format.AsInt32("source_id", 0), request_for(format),
                                             format, fSync, fFan);
    *stream = made;
    return 0;
}

int OutputMovie::UpdateOutput(const tnOutputAccessor& output, const zRecord* settings,
                              zRecord& result, tn_output_update update) {
    const int code = tnBaseWriteMovie::UpdateOutput(output, settings, result, update);
    if (code != 0 || update != TN_OUTPUT_UPDATE_ENABLE) return code;
    const tn_output type = output.OutputType();
    if (!output.OutputEnabled()) {
        end_output(type);
        return 0;
    }
    if (fRunning.count(type) > 0) return 0;
    tnOutputAccessor remembered;
    const int found = tnOutputAccessor::FindOutputForType(fOutputs, remembered, type, false);
    return found != 0 ? found : BeginOutput(remembered, settings, result);
}

int OutputMovie::BeginOutput(const tnOutputAccessor& output, const zRecord* settings,
                             zRecord& result) {
    if (!output.OutputEnabled()) return 0;
    const tn_output type = output.OutputType();
    if (fRunning.count(type) > 0) return kRunsAlready;
    MovieOutput::Settings wish;
    wish.hasPictures = stream_of(TN_MEDIA_VIDEO) != nullptr;
    wish.hasSound = stream_of(TN_MEDIA_AUDIO) != nullptr;
    if (!wish.hasPictures && !wish.hasSound) return kNoSuchStream;
    wish.where = place_for(output);
    if (wish.where.empty()) return kNoPlace;
    if (settings) {
        wish.expectedSeconds = settings->AsDouble("expected_seconds", 0);
        wish.moovRate = settings->AsInt32("moov_rate", 0);
        wish.stopSeconds = settings->AsDouble("stop_seconds", wish.stopSeconds);
    }
    const std::shared_ptr<MovieOutput> made = make_output(wish);
    int code = made->Open();
    if (code != 0) return code;
    code = made->Start();
    if (code != 0) return code;
    fFan->Add(made);
    fRunning[type] = made;
    ++fStarts[without_scheme(output.URL())];
    result.SetString("path", wish.where);
    code = join_encoders();
    if (code != 0) end_output(type);
    return code;
}

int OutputMovie::EndOutput(const tnOutputAccessor&, const tnOutputAccessor& active, zRecord&) {
    end_output(active.OutputType());
    return 0;
}

void OutputMovie::end_output(tn_output type) {
    const auto found = fRunning.find(type);
    if (found == fRunning.end()) return;
    const std::shared_ptr<MovieOutput> output = found->second;
    fRunning.erase(found);
    const bool isLast = fRunning.empty();
    fFan->Remove(output);
    // Before the end: a torn-down encoder frees the processor for what is still to be written.
    if (isLast) leave_encoders();
    output->Stop();
    fLast = output;
    if (!isLast) return;  // what it had to tell goes with it
    for (tnStream* stream : fStreams) static_cast<OutputMovieStream&>(*stream).Keep(*output);
}

int OutputMovie::join_encoders() {
    if (fRunning.size() > 1) return 0;  // they observe already
    prepare();
    for (tnStream* stream : fStreams) {
        auto& observer = static_cast<OutputMovieStream&>(*stream);
        observer.Begin();
        const int code = tnSharedEncoders::Join(observer);
        if (code != 0) return code;
    }
    return 0;
}

void OutputMovie::leave_encoders() {
    for (tnStream* stream : fStreams) {
        auto& observer = static_cast<OutputMovieStream&>(*stream);
        tnSharedEncoders::Leave(observer);
        observer.LetEncoderGo();
    }
}

std::string OutputMovie::place_for(const tnOutputAccessor& output) {
    const std::string place = without_scheme(output.URL());
    if (place.empty() || is_address(place)) return place;
    int number = fStarts[place] + 1;
    std::string path = number > 1 ? numbered(place, number) : place;
    const bool findsFree = output.AutoIncrementFileName() || number > 1;
    while (findsFree && zFileStream::Exists(path.c_str())) path = numbered(place, ++number);
    return path;
}

int OutputMovie::StatisticsControl(zRecord&, zRecord& answer) {
    long long frames = 0;
    long long bytes = 0;
    const auto add = [&](const MovieOutput& output) {
        frames += output.PicturesWritten();
        bytes += output.BytesWritten(true) + output.BytesWritten(false);
    };
    for (const auto& [type, output] : fRunning) add(*output);
    if (fRunning.empty() && fLast) add(*fLast);
    answer.SetInt64("frames", frames);
    answer.SetInt64("bytes", bytes);
    return 0;
}

unsigned int OutputMovie::TrackCount() {
    return fStreams.Count();
}

int OutputMovie::GetTrackFormat(unsigned int index, tnMediaRecord* format) {
    if (!format) return kNullArgument;
    for (tnStream* stream : fStreams) {
        if (index-- > 0) continue;
        const std::string name = format->AsString('xTag', "");
        *format = stream->EncodedFormat();
        if (!name.empty()) format->SetString('xTag', name);
        return 0;
    }
    return kNoSuchIndex;
}

int OutputMovie::GetMovieSetting(const char*, zRecord&) {
    return kNotAvailable;
}

int OutputMovie::SetMovieSetting(const char*, const zRecord&) {
    return kNotAvailable;
}
