#include "tests/movies/MovieCheck.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>

using namespace Quillon::Orb;

namespace {

class Comparison {
public:
    Comparison(const BoxFile& file, const ByteReader& bytes, const MediaClip& clip)
        : fFile(file), fBytes(bytes), fClip(clip) {}

    Kept Run() {
        fKept.complaints = fFile.Complaints();
        if (fFile.tracks.size() != fClip.tracks.size()) {
            complain("number of tracks");
            return fKept;
        }
        for (std::size_t i = 0; i < fClip.tracks.size(); i++) compare_track(i);
        return fKept;
    }

private:
    void complain(const std::string& text) { fKept.complaints += text + "\n"; }

    void compare_track(std::size_t index) {
        const BoxTrack& track = fFile.tracks[index];
        const MovieTrack& described = fClip.tracks[index];
        if (track.timescale != described.timescale) complain("timescale");
        fKept.samples.push_back(static_cast<long long>(track.samples.size()));
        fKept.seconds.push_back(static_cast<double>(track.movieDuration) /
                                static_cast<double>(fFile.movieTimescale));
        if (described.bytesPerPacket > 0)
            compare_plain(track, static_cast<int>(index));
        else
            compare_samples(track, described, static_cast<int>(index));
    }

    void compare_samples(const BoxTrack& track, const MovieTrack& described, int index) {
        const bool video = described.kind == MovieTrack::Kind::Video;
        const long long delay = delay_of(track);
        const std::size_t count = track.samples.size();
        std::size_t i = 0;
        for (const MediaClip::Sample& expected : fClip.samples) {
            if (expected.track != index) continue;
            if (i == count) return;
            const BoxTrack::Sample& found = track.samples[i];
            const std::span<const unsigned char> bytes = fBytes(found.position, found.size);
            if (!std::equal(bytes.begin(), bytes.end(), expected.data.begin(), expected.data.end()))
                return complain("bytes of sample " + std::to_string(i));
            if (video && found.key != expected.described.key)
                return complain("key of sample " + std::to_string(i));
            const long long time = found.time + found.offset + delay;
            if (video && time != display_time(expected))
                return complain("time of sample " + std::to_string(i) + ": " +
                                std::to_string(time) + " for " +
                                std::to_string(display_time(expected)));
            i++;
        }
        if (i < count) complain("more samples than were written");
    }

    static long long display_time(const MediaClip::Sample& sample) {
        return sample.described.decodeTime + sample.described.compositionOffset;
    }

    /// Ticks of the track from a sample's own time to when it is displayed in the movie.
    long long delay_of(const BoxTrack& track) const {
        long long empty = 0;
        long long start = 0;
        for (const BoxTrack::Edit& edit : track.edits) {
            if (edit.mediaTime == -1)
                empty += edit.duration * track.timescale / fFile.movieTimescale;
            else
                start = edit.mediaTime;
        }
        return empty - start;
    }

    void compare_plain(const BoxTrack& track, int index) {
        std::vector<unsigned char> expected;
        for (const MediaClip::Sample& sample : fClip.samples)
            if (sample.track == index)
                expected.insert(expected.end(), sample.data.begin(), sample.data.end());
        // Packets that lie side by side are read at once.
        std::size_t compared = 0;
        for (std::size_t i = 0; i < track.samples.size();) {
            const long long position = track.samples[i].position;
            long long end = position;
            while (i < track.samples.size() && track.samples[i].position == end)
                end += track.samples[i++].size;
            const std::span<const unsigned char> found = fBytes(position, end - position);
            if (compared + found.size() > expected.size() ||
                static_cast<long long>(found.size()) != end - position ||
                !std::equal(found.begin(), found.end(),
                            expected.begin() + static_cast<long long>(compared)))
                return complain("bytes of plain sound");
            compared += found.size();
        }
    }

    const BoxFile& fFile;
    const ByteReader& fBytes;
    const MediaClip& fClip;
    Kept fKept;
};

std::vector<unsigned char> noise(std::mt19937& random, std::size_t size) {
    std::vector<unsigned char> bytes(size);
    for (auto& byte : bytes) byte = static_cast<unsigned char>(random());
    return bytes;
}

MovieTrack made_up_video(const ClipShape& shape) {
    MovieTrack track;
    track.format = shape.videoFormat;
    track.timescale = shape.framesPerSecond * 512LL;
    track.frameDuration = 512;
    track.width = 320;
    track.height = 180;
    track.colour = {1, 1, 1, false};
    track.reordered = shape.reordered;
    if (shape.videoFormat == 'avc1') track.decoderConfiguration = {1, 100, 0, 13, 255, 225, 0, 0};
    return track;
}

MovieTrack made_up_sound(unsigned int format) {
    MovieTrack track;
    track.kind = MovieTrack::Kind::Audio;
    track.format = format;
    track.timescale = track.sampleRate = 48000;
    track.channels = 2;
    if (format == 'mp4a') {
        track.framesPerPacket = 1024;
        track.primingFrames = 1024;
        track.decoderConfiguration = {0x11, 0x90};
    } else {
        track.bitsPerSample = format == 'sowt' || format == 'twos'   ? 16
                              : format == 'in24' || format == '42ni' ? 24
                                                                     : 32;
        track.bytesPerPacket = 2 * track.bitsPerSample / 8;
    }
    return track;
}

/// Decode order and offsets of pictures in groups of three: a reference, and two shown before it.
void order_pictures(MediaClip& clip, const ClipShape& shape, std::mt19937& random) {
    constexpr long long kTicks = 512;
    const auto count = static_cast<long long>(shape.seconds * shape.framesPerSecond);
    for (long long i = 0; i < count; i++) {
        MediaClip::Sample sample;
        sample.track = 0;
        sample.data = noise(random, static_cast<std::size_t>(shape.frameBytes) + random() % 100);
        sample.described.decodeTime = i * kTicks;
        sample.described.duration = kTicks;
        sample.described.key = i % shape.keyEvery == 0;
        if (shape.reordered) {
            constexpr long long kShift[] = {1, 3, 0, 0};
            sample.described.decodeTime -= kTicks;
            sample.described.compositionOffset = kTicks * (i == 0 ? 1 : kShift[1 + (i - 1) % 3]);
        }
        clip.samples.push_back(std::move(sample));
    }
}

void add_sound(MediaClip& clip, int index, double seconds, std::mt19937& random) {
    const MovieTrack& track = clip.tracks[static_cast<std::size_t>(index)];
    const auto end = static_cast<long long>(seconds * track.sampleRate);
    for (long long time = 0; time < end; time += 1024) {
        MediaClip::Sample sample;
        sample.track = index;
        sample.described.decodeTime = time;
        sample.described.duration = 1024;
        if (track.bytesPerPacket > 0) sample.described.packets = 1024;
        sample.data = noise(random, track.bytesPerPacket > 0
                                        ? static_cast<std::size_t>(1024 * track.bytesPerPacket)
                                        : 100 + random() % 100);
        clip.samples.push_back(std::move(sample));
    }
}

}  // namespace

ByteReader BytesOf(const std::vector<unsigned char>& image) {
    return [&image](long long position, long long size) {
        const auto length = static_cast<long long>(image.size());
        const long long from = std::clamp(position, 0LL, length);
        const long long to = std::clamp(position + size, from, length);
        return std::span(image.data() + from, static_cast<std::size_t>(to - from));
    };
}

ByteReader BytesOf(const std::string& path) {
    const std::shared_ptr<FILE> file(fopen(path.c_str(), "rb"), [](FILE* open) {
        if (open) fclose(open);
    });
    const auto bytes = std::make_shared<std::vector<unsigned char>>();
    return [file, bytes](long long position, long long size) -> std::span<const unsigned char> {
        if (!file) return {};
        bytes->resize(static_cast<std::size_t>(size));
        fseeko(file.get(), position, SEEK_SET);
        bytes->resize(fread(bytes->data(), 1, bytes->size(), file.get()));
        return *bytes;
    };
}

Kept CompareWithClip(const BoxFile& file, const ByteReader& bytes, const MediaClip& clip) {
    return Comparison(file, bytes, clip).Run();
}

MovieFileOptions FileOptions(const WriteOptions& options) {
    MovieFileOptions result;
    result.containerType = options.container;
    result.fastStart = options.fastStart;
    result.trimAudio = options.trimAudio;
    result.creationTime = options.created;
    return result;
}

Result WriteClip(WholeMovieFile& file, const MediaClip& clip, const WriteOptions& options,
                 const std::function<void()>& onCheckpoint) {
    for (MovieTrack track : clip.tracks) {
        track.expectedDuration =
            static_cast<long long>(options.expectedSeconds * static_cast<double>(track.timescale));
        if (const int index = file.AddTrack(track); index < 0) return Result(index);
    }
    Result result = file.Begin();
    if (result.Failed()) return result;
    for (std::size_t i = 0; i < clip.samples.size() && result.Succeeded(); i++) {
        result = file.WriteSample(clip.samples[i].track, clip.Described(i));
        if (static_cast<int>(i) % options.checkpointEvery != options.checkpointEvery - 1) continue;
        if (result.Succeeded()) result = file.Checkpoint();
        if (result.Succeeded() && onCheckpoint) onCheckpoint();
    }
    if (!options.finish) return result;
    const Result finished = file.Finish();
    return result.Failed() ? result : finished;
}

Result WriteClipTo(const std::string& path, const MediaClip& clip, const WriteOptions& options,
                   const std::function<void()>& onCheckpoint) {
    WholeMovieFile file(path.c_str(), FileOptions(options), MakePosixFile(),
                        WholeMovieFile::Checkpoints::ByHand);
    return WriteClip(file, clip, options, onCheckpoint);
}

MediaClip MakeUpClip(const ClipShape& shape) {
    MediaClip clip;
    std::mt19937 random(7);
    clip.tracks.push_back(made_up_video(shape));
    for (const unsigned int format : shape.sounds) clip.tracks.push_back(made_up_sound(format));
    order_pictures(clip, shape, random);
    for (std::size_t i = 0; i < shape.sounds.size(); i++)
        add_sound(clip, static_cast<int>(i) + 1, shape.seconds, random);
    std::stable_sort(clip.samples.begin(), clip.samples.end(),
                     [&clip](const MediaClip::Sample& a, const MediaClip::Sample& b) {
                         const auto seconds = [&clip](const MediaClip::Sample& sample) {
                             const auto track = static_cast<std::size_t>(sample.track);
                             return static_cast<double>(sample.described.decodeTime) /
                                    static_cast<double>(clip.tracks[track].timescale);
                         };
                         return seconds(a) < seconds(b);
                     });
    return clip;
}
