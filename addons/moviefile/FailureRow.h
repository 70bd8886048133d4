#pragma once

/// Tells single failures of a track, which leave a hole, from a row of them, which is its end.
///
/// Encoders work behind the writes: a write that succeeds says nothing of its own sample, and one
/// failure may stand for as many as waited together. So a row ends when the track has grown.
class FailureRow {
public:
    /// How many bytes of the track the file has by now.
    void GrowTo(long long bytes) {
        if (bytes <= fBytes) return;
        fBytes = bytes;
        fFailures = 0;
        fLast = 0;
    }
    /// Whether one more with that code may be borne.
    bool Bear(int code) {
        ++fFailures;
        fLast = code;
        return fFailures <= kMostInARow;
    }
    bool HasBegun() const { return fFailures > 0; }
    /// The code of the last failure, 0 when the track has grown since.
    int Last() const { return fLast; }

private:
    static constexpr int kMostInARow = 30;

    long long fBytes = 0;
    int fFailures = 0;
    int fLast = 0;
};
