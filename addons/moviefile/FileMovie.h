#pragma once

#include "addons/support/MovieFormat.h"
#include "addons/support/OutputMovie.h"

/// A movie file that is encoded for itself, from raw frames that all such movies of a source share.
class FileMovie final : public OutputMovie {
public:
    FileMovie(unsigned int id, const char* name, unsigned int containerType);

protected:
    tnMediaRecord request_for(const tnMediaRecord& track) override;
    void prepare() override;
    std::shared_ptr<MovieOutput> make_output(const MovieOutput::Settings& settings) override;

private:
    const unsigned int fContainerType;
};

/// The format of such movies; its id is the container's.
class FileFormat : public MovieFormat {
protected:
    FileFormat(unsigned int id, const char* name, const char* extension);
    tnMovie* make_movie() override;
};
