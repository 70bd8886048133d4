#include "tests/movies/LongRecording.h"

using namespace Quillon::Orb;

namespace {

/// The clip's times moved on by whole seconds, without a gap in the sound.
class Loop {
public:
    explicit Loop(const MediaClip& clip) : fClip(clip), fTimes(clip.tracks.size()) {}

    /// False for a packet of sound that is left out: a second's packets are a little longer than
    /// it.
    bool Next(MovieSample& sample) {
        if (fNext == fClip.samples.size()) {
            fNext = 0;
            fSecond++;
        }
        sample = fClip.Described(fNext);
        fTrack = fClip.samples[fNext++].track;
        const auto track = static_cast<std::size_t>(fTrack);
        const long long timescale = fClip.tracks[track].timescale;
        if (fClip.tracks[track].kind == MovieTrack::Kind::Video) {
            sample.decodeTime += fSecond * timescale;
            return true;
        }
        if (fTimes[track] >= (fSecond + 1) * timescale) return false;
        sample.decodeTime = fTimes[track];
        sample.duration = 1024;
        fTimes[track] += sample.duration;
        return true;
    }
    int Track() const { return fTrack; }
    double Seconds() const {
        return static_cast<double>(fSecond) +
               static_cast<double>(fNext) / static_cast<double>(fClip.samples.size());
    }

private:
    const MediaClip& fClip;
    std::vector<long long> fTimes;  // of sound
    std::size_t fNext = 0;
    long long fSecond = 0;
    int fTrack = 0;
};

}  // namespace

const MediaClip& TinyClip(bool reordered) {
    const std::string pictures = reordered ? "-bf 2 -b_strategy 0" : "-bf 0";
    return MakeClip(
        "-f lavfi -i color=s=32x32:r=60:d=1 -f lavfi -i anullsrc=r=48000 -t 1 -c:v libx264 " +
        pictures + " -g 60 -pix_fmt yuv420p -threads 1 -c:a aac");
}

Result RecordLong(const std::string& path, const LongShape& shape, std::unique_ptr<FileLayer> layer,
                  const std::function<void(double)>& onCheckpoint) {
    const MediaClip& clip = TinyClip(shape.reordered);
    WholeMovieFile file(path.c_str(),
                        FileOptions({.container = shape.container, .fastStart = shape.fastStart}),
                        std::move(layer), WholeMovieFile::Checkpoints::ByHand);
    for (MovieTrack track : clip.tracks) {
        track.expectedDuration =
            static_cast<long long>(shape.announcedSeconds * static_cast<double>(track.timescale));
        file.AddTrack(track);
    }
    Result result = file.Begin();
    Loop loop(clip);
    double nextCheckpoint = shape.checkpointSeconds;
    while (result.Succeeded() && loop.Seconds() < shape.seconds) {
        MovieSample sample;
        if (loop.Next(sample)) result = file.WriteSample(loop.Track(), sample);
        if (loop.Seconds() < nextCheckpoint) continue;
        nextCheckpoint += shape.checkpointSeconds;
        if (result.Succeeded()) result = file.Checkpoint();
        if (onCheckpoint) onCheckpoint(loop.Seconds());
    }
    const Result finished = file.Finish();
    return result.Failed() ? result : finished;
}
