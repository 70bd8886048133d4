#include "addons/replay/ReplayMovie.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kShortestSeconds = 0.2;
constexpr double kLongestSeconds = 86400;

/// A number from a host's record, as near to it as the range allows; `otherwise` for no number.
double within(double value, double least, double most, double otherwise) {
    return std::isnan(value) ? otherwise : std::clamp(value, least, most);
}

}  // namespace

int ReplayMovie::BeginOutput(const tnOutputAccessor& output, const zRecord* settings,
                             zRecord& result) {
    const zRecord& record = *output.Record();
    const ReplayOutput::Wish defaults;
    fWish.segmentSeconds = within(record.AsDouble("segment_seconds", defaults.segmentSeconds),
                                  kShortestSeconds, kLongestSeconds, defaults.segmentSeconds);
    fWish.keepSeconds = within(record.AsDouble("keep_seconds", defaults.keepSeconds), 0,
                               ReplayOutput::kLongestKeptSeconds, defaults.keepSeconds);
    return OutputMovie::BeginOutput(output, settings, result);
}

std::shared_ptr<MovieOutput> ReplayMovie::make_output(const MovieOutput::Settings& settings) {
    return std::make_shared<ReplayOutput>(settings, fWish);
}
