#pragma once

#include "addons/replay/ReplayOutput.h"
#include "addons/support/MovieFormat.h"
#include "addons/support/OutputMovie.h"

/// A movie whose output is a folder of segments. The output's record may say "segment_seconds" and
/// "keep_seconds"; numbers out of range count as the nearest that is in it.
class ReplayMovie final : public OutputMovie {
public:
    ReplayMovie(unsigned int id, const char* name) : OutputMovie(id, name) {}

    int BeginOutput(const tnOutputAccessor& output, const zRecord* settings,
                    zRecord& result) override;

protected:
    tnMediaRecord request_for(const tnMediaRecord& track) override { return track; }
    std::shared_ptr<MovieOutput> make_output(const MovieOutput::Settings& settings) override;

private:
    ReplayOutput::Wish fWish;
};
