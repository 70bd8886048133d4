#include "addons/mux/MuxMovie.h"

#include "addons/mux/MuxOutput.h"

MuxMovie::MuxMovie(unsigned int id, const char* name, unsigned int containerType)
    : OutputMovie(id, name), fContainerType(containerType) {}

tnMediaRecord MuxMovie::request_for(const tnMediaRecord& track) {
    return track;
}

std::shared_ptr<MovieOutput> MuxMovie::make_output(const MovieOutput::Settings& settings) {
    return std::make_shared<MuxOutput>(fContainerType, settings);
}

MuxFormat::MuxFormat(unsigned int id, const char* name, const char* extension,
                     unsigned int containerType, bool streams)
    : MovieFormat(id, name, extension, streams), fContainerType(containerType) {}

tnMovie* MuxFormat::make_movie() {
    return new MuxMovie(FormatID(), FormatName(), fContainerType);
}
