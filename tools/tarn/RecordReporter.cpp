#include "RecordReporter.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <string>

#include "spar/zTime.h"

#include "ProgressLine.h"
#include "Recorder.h"
#include "Say.h"
#include "TextUnits.h"

namespace {

constexpr double kMicro = 1e6;

std::string progress_text(const Recorder& recorder, double elapsed) {
    const RecordFigures& figures = recorder.Figures();
    const double expected = recorder.ExpectedSeconds();
    const double fps = static_cast<double>(figures.frames) / elapsed;
    std::string text = fmt::format("{} {} frames  {:.1f} fps  {:.2f}x  {}  queue {}",
                                   TextOfSeconds(figures.seconds), figures.frames.load(), fps,
                                   figures.seconds / elapsed, TextOfBytes(recorder.FileBytes()),
                                   figures.queued.load());
    if (expected > 0) text = ProgressBar(figures.seconds / expected) + " " + text;
    return text;
}

std::string progress_json(const Recorder& recorder, double elapsed) {
    const RecordFigures& figures = recorder.Figures();
    return fmt::format(
        R"({{"event":"progress","seconds":{:.3f},"frames":{},"fps":{:.2f},"speed":{:.3f},"bytes":{},"queue":{}}})",
        figures.seconds.load(), figures.frames.load(),
        static_cast<double>(figures.frames) / elapsed, figures.seconds / elapsed,
        recorder.FileBytes(), figures.queued.load());
}

}  // namespace

RecordReporter::RecordReporter(const Recorder& recorder, bool json)
    : fRecorder(recorder),
      fJson(json),
      fStart(zTime::MicroNow()),
      fThread([this] { show_until_ended(); }) {}

RecordReporter::~RecordReporter() {
    {
        const std::lock_guard<std::mutex> lock(fMutex);
        fEnded = true;
    }
    fWake.notify_all();
    fThread.join();
}

double RecordReporter::Elapsed() const {
    return std::max(1e-6, static_cast<double>(zTime::MicroNow() - fStart) / kMicro);
}

void RecordReporter::show_until_ended() {
    ProgressLine line;
    const auto pause = std::chrono::milliseconds(fJson ? 1000 : 200);
    std::unique_lock<std::mutex> lock(fMutex);
    while (!fWake.wait_for(lock, pause, [this] { return fEnded; })) {
        if (fJson) {
            Say("{}\n", progress_json(fRecorder, Elapsed()));
        } else {
            line.Show(progress_text(fRecorder, Elapsed()));
        }
    }
}
