#include "addons/replay/ReplayMovie.h"

#include <algorithm>

namespace {

constexpr double kShortestSeconds = 0.2;

}  // namespace

int ReplayMovie::BeginOutput(const tnOutputAccessor& output, const zRecord* settings,
                             zRecord& result) {
    const zRecord& record = *output.Record();
    const ReplayOutput::Wish defaults;
    fWish.segmentSeconds =
        std::max(record.AsDouble("segment_seconds", defaults.segmentSeconds), kShortestSeconds);
    fWish.keepSeconds = record.AsDouble("keep_seconds", defaults.keepSeconds);
    return OutputMovie::BeginOutput(output, settings, result);
}

std::shared_ptr<MovieOutput> ReplayMovie::make_output(const MovieOutput::Settings& settings) {
    return std::make_shared<ReplayOutput>(settings, fWish);
}
