#include "tarn/movies/tnBaseWriteMovie.h"

#include "tarn/movies/tnStream.h"

namespace {

constexpr int kNullArgument = -22;
constexpr int kNoSuchStream = -1009;
constexpr int kNoSuchIndex = -1010;
constexpr int kUnknownUpdate = -1011;

tn_output type_of(const tnOutputAccessor& output) {
    return output.OutputType();  // the default kind for an output without a record
}

}  // namespace

tnBaseWriteMovie::tnBaseWriteMovie() : fWriteLock(new zCriticalRW()) {}

tnBaseWriteMovie::~tnBaseWriteMovie() {
    fStreams.RemoveAndReleaseAll();
    delete fWriteLock;
}

int tnBaseWriteMovie::CreateStreams(const zRecord& tracks, int videoFlags, int audioFlags) {
    for (const zRecord* track : tracks.Children()) {
        if (!track) continue;
        tnMediaRecord format(*track);
        const int type = format.fType.AsInt32(0);
        const bool isAudio = type == TN_MEDIA_AUDIO;
        if (!format.AsBool('mena', false)) continue;
        if (isAudio && format.AsUInt32("audio_output_track_mask", 0) == 0) continue;

        const int flags = isAudio ? audioFlags : type == TN_MEDIA_VIDEO ? videoFlags : 0;
        tnStream* stream = nullptr;
        const int code = CreateWriteStream(format, &stream, flags);
        if (code != 0) return code;
        if (stream) fStreams.Append(stream);
    }
    return 0;
}

int tnBaseWriteMovie::GetWriteStreamForType(tnMediaType type, tnStream** stream) {
    if (!stream) return kNullArgument;
    for (tnStream* candidate : fStreams) {
        if (candidate->EncodedFormat().fType.AsInt32(0) != static_cast<int>(type)) continue;
        candidate->AddRef();
        *stream = candidate;
        return 0;
    }
    return kNoSuchStream;
}

int tnBaseWriteMovie::BeginWritingFromDestination(const zRecord& outputs, const zRecord* settings,
                                                  zRecord& result) {
    int code = 0;
    for (const zRecord* output : outputs.Children()) {
        if (!output || !output->AsBool('mOen', false)) continue;
        code = BeginOutput(tnOutputAccessor(*output), settings, result);
        if (code != 0) break;
    }
    fOutputs.Copy(outputs, true, true, {});
    return code;
}

int tnBaseWriteMovie::UpdateOutput(const tnOutputAccessor& output, const zRecord* settings,
                                   zRecord& result, tn_output_update update) {
    const tn_output type = type_of(output);
    switch (update) {
        case TN_OUTPUT_UPDATE_ADD:
            return add_output(output, type, settings, result);
        case TN_OUTPUT_UPDATE_REMOVE:
            return remove_output(output, type, result);
        case TN_OUTPUT_UPDATE_ENABLE:
            return enable_output(output, type);
        default:
            return kUnknownUpdate;
    }
}

int tnBaseWriteMovie::add_output(const tnOutputAccessor& output, tn_output type,
                                 const zRecord* settings, zRecord& result) {
    const zWriteLock lock(*fWriteLock);
    int code = BeginOutput(output, settings, result);
    if (code != 0) return code;
    tnOutputAccessor entry;
    code = tnOutputAccessor::FindOutputForType(fOutputs, entry, type, true);
    entry = output;
    return code;
}

int tnBaseWriteMovie::remove_output(const tnOutputAccessor& output, tn_output type,
                                    zRecord& result) {
    const zWriteLock lock(*fWriteLock);
    tnOutputAccessor active;
    int code = tnOutputAccessor::FindOutputForType(fOutputs, active, type, false);
    if (code != 0) return code;
    code = EndOutput(output, active, result);
    // Forgotten even if it did not stop well: it cannot be stopped twice.
    if (zRecord* record = active.Record()) {
        fOutputs.RemoveChildPtr(record);
        delete record;
    }
    return code;
}

int tnBaseWriteMovie::enable_output(const tnOutputAccessor& output, tn_output type) {
    const zWriteLock lock(*fWriteLock);
    tnOutputAccessor active;
    const int code = tnOutputAccessor::FindOutputForType(fOutputs, active, type, false);
    if (code != 0) return code;
    active.SetOutputEnabled(output.OutputEnabled());
    return 0;
}

bool tnBaseWriteMovie::IsOutputActive(tn_output type) {
    const zReadLock lock(*fWriteLock);
    return IsWritingType(type);
}

bool tnBaseWriteMovie::IsWritingType(tn_output type) {
    tnOutputAccessor active;
    return tnOutputAccessor::FindOutputForType(fOutputs, active, type, false) == 0 &&
           active.OutputEnabled();
}

void tnBaseWriteMovie::BeginStreamWrite() {
    fWriteLock->LockRead(false);
}

void tnBaseWriteMovie::EndStreamWrite() {
    fWriteLock->UnlockRead();
}

int tnBaseWriteMovie::get_output_at(int index, tnOutputAccessor& output) {
    const zReadLock lock(*fWriteLock);
    const zRecord* found = index < 0 ? nullptr : fOutputs.Child(static_cast<unsigned int>(index));
    if (!found) return kNoSuchIndex;
    output = *found;
    return 0;
}
