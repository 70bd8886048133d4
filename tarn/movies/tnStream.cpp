#include "tarn/movies/tnStream.h"

#include "tarn/movies/tnStreamBuffer.h"

namespace {

constexpr int kNotAvailable = -28;

}  // namespace

long long tnStream::Timescale() const {
    return 0;
}

long long tnStream::Duration() const {
    return 0;
}

long long tnStream::CurrentTime() const {
    return 0;
}

long long tnStream::CurrentSample() const {
    return 0;
}

long long tnStream::SampleForTime(long long) const {
    return 0;
}

unsigned int tnStream::ID() const {
    return 0;
}

int tnStream::SetFormat(const tnMediaRecord&) {
    return kNotAvailable;
}

int tnStream::SeekToTime(long long, unsigned int) {
    return kNotAvailable;
}

void tnStream::Sleep() {}

void tnStream::Wake() {}

int tnStream::GetNextSampleTime(long long, long long*, long long*) {
    return kNotAvailable;
}

int tnStream::ReadSample(void*, unsigned int, unsigned int*, int) {
    return kNotAvailable;
}

int tnStream::InitializeWritingWithGroup(tnStreamBufferGroup&) {
    return 0;
}

int tnStream::WriteSample(void*, unsigned int, long long, unsigned int, long long, zRecord&) {
    return kNotAvailable;
}

int tnStream::WriteSample(tnStreamBuffer& buffer, long long time, zRecord& info, int) {
    const int result = WriteSample(
        buffer.GetPointer(), static_cast<unsigned int>(buffer.GetDataSize()), time,
        static_cast<unsigned int>(buffer.GetNumberOfSamples()), buffer.GetDurationForData(), info);
    buffer.ReleaseWriting();
    return result;
}

int tnStream::GetInFlightWriteBufferCount(int* count) {
    if (count) *count = 1;
    return 0;
}

int tnStream::InsertMetaData(const zRecord&) {
    return kNotAvailable;
}

int tnStream::SetRawSamples(bool) {
    return kNotAvailable;
}

int tnStream::CanOutputFormat(tnMediaRecord&, bool) const {
    return kNotAvailable;
}

int tnStream::GetLastStatistics(tn_perf_stats&) const {
    return kNotAvailable;
}

int tnStream::GetOutputStatistics(tn_output_statistics&) {
    return kNotAvailable;
}

bool tnStream::OutputDoesAutoReconnectOnError(int) const {
    return false;
}

bool tnStream::LastSeekRendered() const {
    return true;
}

int tnStream::GetOutputUniqueID(tn_output type) const {
    switch (type) {
        case TN_OUTPUT_DEFAULT:
            return fUniqueIDType1;
        case TN_OUTPUT_STREAMING:
            return fUniqueIDType2;
        default:
            return 0;
    }
}

void tnStream::SetOutputUniqueID(tn_output type, int id) {
    if (type == TN_OUTPUT_DEFAULT) fUniqueIDType1 = id;
    if (type == TN_OUTPUT_STREAMING) fUniqueIDType2 = id;
}
