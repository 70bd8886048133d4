#pragma once

#include <string>
#include <vector>

/// What programs that we did not write say of a movie.
struct ReaderOpinion {
    std::string complaints;  // empty when the program was content
    double seconds = -1;     // the movie's duration
    std::vector<std::string> lines;
};

/// A movie without pictures leaves open what they would be like, and ffprobe says so: `empty`
/// movies may be warned of for that.
ReaderOpinion Ffprobe(const std::string& path, bool empty = false);
ReaderOpinion Mediainfo(const std::string& path);
ReaderOpinion GstDiscoverer(const std::string& path);
/// Has GStreamer demultiplex and decode everything: `streams` tracks, exactly.
ReaderOpinion GstDecode(const std::string& path, int streams = 2);

/// A line for every decoded frame of a stream, such as "v:0": its time in the stream's ticks and a
/// hash of what was decoded. Complaints of the decoder are lines too.
std::vector<std::string> DecodedFrames(const std::string& path, const std::string& stream);
/// One hash over all decoded samples of a stream of sound.
std::string DecodedSound(const std::string& path, const std::string& stream);
