#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

class Recorder;

/// Shows a recording's figures from a thread of its own until it is destroyed: a line on a
/// terminal, or a JSON object a second.
class RecordReporter {
public:
    RecordReporter(const Recorder& recorder, bool json);
    ~RecordReporter();
    RecordReporter(const RecordReporter&) = delete;
    RecordReporter& operator=(const RecordReporter&) = delete;

    /// Seconds since it was made; above 0.
    double Elapsed() const;

private:
    void show_until_ended();

    const Recorder& fRecorder;
    const bool fJson;
    const long long fStart;
    std::mutex fMutex;
    std::condition_variable fWake;
    bool fEnded = false;
    std::thread fThread;
};
