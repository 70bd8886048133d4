#include "tarn/movies/tnMovie.h"

#include "spar/zObject.h"

namespace {

constexpr int kNotAvailable = -28;
constexpr int kNoTracks = -1022;
constexpr int kAppend = 0x7FFFFFFF;

}  // namespace

tnMovie::tnMovie() : fObserverToken(std::make_shared<zObject>()) {}

tnMovie::~tnMovie() = default;

int tnMovie::CreateStreams(const zRecord&, int, int) {
    return kNotAvailable;
}

int tnMovie::GetWriteStreamForType(tnMediaType, tnStream**) {
    return kNotAvailable;
}

int tnMovie::CreateWriteStream(tnMediaRecord&, tnStream**, int) {
    return kNotAvailable;
}

int tnMovie::CreateReadStream(unsigned int, tnStream**) {
    return kNotAvailable;
}

void tnMovie::WaitForIndexingToComplete() {}

int tnMovie::CreateDiskFile(const char*) {
    return kNotAvailable;
}

int tnMovie::ExecuteRPC(zRecord&, zRecord&) {
    return 0;
}

int tnMovie::SendRtmpDataMessage(zRecord&) {
    return 0;
}

int tnMovie::StatisticsControl(zRecord&, zRecord&) {
    return 0;
}

int tnMovie::BeginWritingFromDestination(const zRecord&, const zRecord*, zRecord&) {
    return kNotAvailable;
}

int tnMovie::UpdateOutput(const tnOutputAccessor&, const zRecord*, zRecord&, tn_output_update) {
    return kNotAvailable;
}

bool tnMovie::IsOutputActive(tn_output) {
    return false;
}

int tnMovie::BeginWriting(const zRecord*) {
    fWriting = true;
    return kNotAvailable;
}

int tnMovie::FinishWriting() {
    fWriting = false;
    return kNotAvailable;
}

int tnMovie::ArchiveTracksToRecord(zRecord& record) {
    const unsigned int count = TrackCount();
    if (count == 0) return kNoTracks;
    record.SetCString('xTag', "movie");
    record.SetCString("format_name", FormatName());
    record.SetInt32("format_id", static_cast<int>(FormatID()));
    for (unsigned int index = 0; index < count; ++index) {
        auto track = std::make_unique<tnMediaRecord>();
        track->SetCString('xTag', "track");
        GetTrackFormat(index, track.get());
        record.AddChild(track.release(), kAppend);
    }
    return 0;
}
