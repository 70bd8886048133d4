#include "addons/support/MovieFormat.h"

#include <cstring>

#include "spar/zRecord.h"
#include "tarn/movies/tnMovie.h"

namespace {

constexpr int kNullArgument = -22;
constexpr int kNoInterface = -31;
constexpr int kDoesNotRead = -1254;
constexpr int kVersion = 1;

}  // namespace

MovieFormat::MovieFormat(unsigned int id, const char* name, const char* extension, bool streams)
    : fID(id), fName(name), fExtension(extension), fStreams(streams) {}

MovieFormat::~MovieFormat() = default;

int MovieFormat::QueryInterface(const char* name, void** out) {
    if (!out) return kNullArgument;
    *out = nullptr;
    if (!name || std::strcmp(name, "tnXIMovieFile") != 0) return kNoInterface;
    AddRef();
    *out = static_cast<tnXIMovieFile*>(this);
    return 0;
}

int MovieFormat::AddRef() {
    return fRefCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

int MovieFormat::Release() {
    const int left = fRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
}

void MovieFormat::DeleteInterface() {
    Release();
}

int MovieFormat::GetVersion() {
    return kVersion;
}

int MovieFormat::LoadFile(const char*, tnMovie**, const zRecord&, tnAppFunctions&) {
    return kDoesNotRead;
}

int MovieFormat::CreateMovie(tnMovie** movie) {
    if (!movie) return kNullArgument;
    *movie = make_movie();
    return 0;
}

bool MovieFormat::FormatFlag() {
    return false;
}

bool MovieFormat::IsOutputSupported(const zRecord& output) {
    const tnOutputAccessor accessor(output);
    return SupportsOutput(accessor.OutputType()) && !accessor.URL().empty();
}

int MovieFormat::GetCapabilities(zRecord& capabilities) {
    capabilities.SetBool("writes_files", SupportsOutput(TN_OUTPUT_DEFAULT));
    capabilities.SetBool("writes_streams", fStreams);
    return 0;
}

int MovieFormat::ConfigureInterface(const zRecord&) {
    return 0;
}

bool MovieFormat::SupportsOutput(tn_output output) {
    return output == TN_OUTPUT_DEFAULT || (fStreams && output == TN_OUTPUT_STREAMING);
}
