#pragma once

#include <string>
#include <vector>

// What ffprobe, mediainfo and ffmpeg say of a file. "v:0" and "a:0" name its first tracks.

namespace tests {

/// One entry of a stream, such as "codec_name"; empty when the stream or the entry is missing.
std::string ProbeStream(const std::string& path, const std::string& stream,
                        const std::string& entry);

struct PacketTime {
    double time = 0;      ///< seconds, display time
    double duration = 0;  ///< seconds
};

/// The packets of a stream in the order of the file.
std::vector<PacketTime> ProbePackets(const std::string& path, const std::string& stream);

/// Display times in seconds of the pictures that decode, in order.
std::vector<double> ProbePictureTimes(const std::string& path);

/// Sum of the packets' durations of a stream, in seconds.
double ProbeSeconds(const std::string& path, const std::string& stream);

/// Pictures that decode.
int CountFrames(const std::string& path);

/// Average PSNR in dB of the decoded pictures of `path` against those of `reference`, by position.
double Psnr(const std::string& path, const std::string& reference);

/// Hash of the decoded sound as 16-bit PCM, at most `seconds` of it (0 for all).
std::string SoundHash(const std::string& path, double seconds);

/// One entry of mediainfo's General, Video or Audio section.
std::string MediaInfo(const std::string& path, const std::string& section,
                      const std::string& entry);

/// Whether GStreamer finds its way through the file.
bool GstreamerReads(const std::string& path);

}  // namespace tests
