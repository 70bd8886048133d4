#include "addons/moviefile/FileMovie.h"

#include <mutex>
#include <string>

#include "tarn/filters/tnFilterManager.h"

#include "addons/moviefile/FileOutput.h"
#include "addons/moviefile/RawAudioCompressor.h"
#include "addons/moviefile/RawVideoCompressor.h"

namespace {

/// A filter that ends by its own count.
template <class Filter>
std::shared_ptr<tnFilter> make() {
    return std::shared_ptr<tnFilter>(new Filter(), [](tnFilter* filter) { filter->Release(); });
}

/// The name under which this module makes pass-through filters. Each module has its own, since
/// a frame of another one is of another class.
std::string raw_name(const char* format) {
    return std::string("raw for ") + format;
}

std::mutex gLock;
std::weak_ptr<tnFilterManager> gRegisteredWith;  // under gLock

}  // namespace

FileMovie::FileMovie(unsigned int id, const char* name, unsigned int containerType)
    : OutputMovie(id, name), fContainerType(containerType) {}

void FileMovie::prepare() {
    const std::shared_ptr<tnFilterManager> manager = tnFilterManager::Default();
    const std::lock_guard<std::mutex> lock(gLock);
    if (!manager || gRegisteredWith.lock() == manager) return;
    manager->RegisterFactory(raw_name(FormatName()) + " pictures", make<RawVideoCompressor>);
    manager->RegisterFactory(raw_name(FormatName()) + " sound", make<RawAudioCompressor>);
    gRegisteredWith = manager;
}

// Nothing of the codec: all files of the source share one copy of its frames, whatever they make of
// them.
tnMediaRecord FileMovie::request_for(const tnMediaRecord& track) {
    tnMediaRecord request(track.fType.AsInt32(0) == TN_MEDIA_AUDIO ? TN_MEDIA_AUDIO
                                                                   : TN_MEDIA_VIDEO);
    const bool isSound = track.fType.AsInt32(0) == TN_MEDIA_AUDIO;
    request.SetString('mcon', raw_name(FormatName()) + (isSound ? " sound" : " pictures"));
    if (isSound) {
        request.fSampleRate = track.fSampleRate;
        request.fChannels = track.fChannels;
        request.fBitsPerSample = track.fBitsPerSample;
        return request;
    }
    request.fWidth = track.fWidth;
    request.fHeight = track.fHeight;
    request.fColourspace = track.fColourspace;
    request.fFieldOrder = track.fFieldOrder;
    request.SetFloat('mfps', track.AsFloat('mfps', 0.0f));
    request.SetInt64('tmsc', track.AsInt64('tmsc', 0));
    return request;
}

std::shared_ptr<MovieOutput> FileMovie::make_output(const MovieOutput::Settings& settings) {
    return std::make_shared<FileOutput>(fContainerType, settings, track_of(TN_MEDIA_VIDEO),
                                        track_of(TN_MEDIA_AUDIO));
}

FileFormat::FileFormat(unsigned int id, const char* name, const char* extension)
    : MovieFormat(id, name, extension, false) {}

tnMovie* FileFormat::make_movie() {
    return new FileMovie(FormatID(), FormatName(), FormatID());
}
