#pragma once

#include "addons/support/MovieFormat.h"
#include "addons/support/OutputMovie.h"

/// A movie of encoded buffers that its streams get from encoders which other movies may share.
class MuxMovie final : public OutputMovie {
public:
    MuxMovie(unsigned int id, const char* name, unsigned int containerType);

protected:
    tnMediaRecord request_for(const tnMediaRecord& track) override;
    std::shared_ptr<MovieOutput> make_output(const MovieOutput::Settings& settings) override;

private:
    const unsigned int fContainerType;
};

/// The format of such movies.
class MuxFormat : public MovieFormat {
protected:
    MuxFormat(unsigned int id, const char* name, const char* extension, unsigned int containerType,
              bool streams);
    tnMovie* make_movie() override;

private:
    const unsigned int fContainerType;
};
