// Movie files: a million ready samples beside libavformat, in turns; and what a checkpoint and the
// close cost at the start and at the end of twelve hours.
//
//   movie_file_bench [--rounds N] [--samples N] [--folder PATH] [--hours H]
//
// Each turn runs in a process of its own, on a new file; medians over the rounds are printed. A
// turn that lasts less than a second is soon doubled by what other programs do: "no core" says how
// long the writing thread was kept from running.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
}

#include "orb/container/WholeMovieFile.h"

#include "bench/support/Figures.h"
#include "tests/support/UnsyncedFile.h"

using namespace Quillon::Orb;

namespace {

constexpr int kSoundBytes = 300;
constexpr long long kFrame = 512;
constexpr long long kFrames = 60;  // a second
constexpr unsigned char kAvcConfiguration[] = {1, 100, 0, 13, 255, 225, 0, 0, 0};
constexpr unsigned char kAacConfiguration[] = {0x11, 0x90};

/// What a turn writes.
struct Work {
    std::string path;
    long long samples;
    int videoBytes;
};

struct Figures {
    double wall = 0;  // seconds
    double cpu = 0;
    double close = 0;
    double waited = 0;  // for a core, of the thread that writes: what other programs took
};

/// Samples in the order of time: 60 pictures a second with sizes that vary, and AAC. No byte is
/// 0xff, for which libavformat would complain of AAC.
class ReadySamples {
public:
    explicit ReadySamples(int videoBytes) : fVideoBytes(videoBytes), fBytes(1 << 20) {
        unsigned int seed = 1;
        for (auto& byte : fBytes)
            byte = static_cast<unsigned char>((seed = seed * 1664525 + 1013904223) >> 25);
    }

    /// The next sample and its track.
    int Next(MovieSample& sample) {
        const bool video = fVideo * 48000 <= fSound * kFrames * 1024;
        const int size = size_of(video);
        fAt = (fAt + 4099) % (fBytes.size() - 65536);
        sample = {};
        sample.data = &fBytes[fAt];
        sample.size = static_cast<std::size_t>(size);
        sample.duration = video ? kFrame : 1024;
        sample.decodeTime = video ? fVideo++ * kFrame : fSound++ * 1024;
        sample.key = !video || fVideo % kFrames == 1;
        return video ? 0 : 1;
    }

private:
    int size_of(bool video) {
        const int mean = video ? fVideoBytes : std::min(fVideoBytes, kSoundBytes);
        const long long number = video ? fVideo : fSound;
        return mean / 2 + static_cast<int>(number * 977 % mean);
    }

    const int fVideoBytes;  // on average
    std::vector<unsigned char> fBytes;
    std::size_t fAt = 0;
    long long fVideo = 0;
    long long fSound = 0;
};

MovieTrack video_track(double announced) {
    MovieTrack track;
    track.format = 'avc1';
    track.timescale = kFrames * kFrame;
    track.frameDuration = kFrame;
    track.expectedDuration =
        static_cast<long long>(announced * static_cast<double>(track.timescale));
    track.width = 1920;
    track.height = 1080;
    track.decoderConfiguration.assign(std::begin(kAvcConfiguration), std::end(kAvcConfiguration));
    return track;
}

MovieTrack sound_track(double announced) {
    MovieTrack track;
    track.kind = MovieTrack::Kind::Audio;
    track.format = 'mp4a';
    track.timescale = track.sampleRate = 48000;
    track.expectedDuration = static_cast<long long>(announced * 48000);
    track.channels = 2;
    track.framesPerPacket = 1024;
    track.primingFrames = 1024;
    track.decoderConfiguration.assign(std::begin(kAacConfiguration), std::end(kAacConfiguration));
    return track;
}

void check(bool good, const char* what) {
    if (good) return;
    fprintf(stderr, "movie_file_bench: %s failed\n", what);
    _exit(1);
}

double close_timed(MovieFile& file) {
    const auto start = bench::NowNs();
    check(file.Finish().Succeeded(), "Finish");
    return static_cast<double>(bench::NowNs() - start) / 1e9;
}

Figures write_ours(const Work& work, bool synced) {
    Figures figures;
    std::unique_ptr<FileLayer> layer = MakePosixFile();
    if (!synced) layer = std::make_unique<tests::UnsyncedFile>();
    WholeMovieFile file(work.path.c_str(), {.containerType = 'mp4 '}, std::move(layer),
                        WholeMovieFile::Checkpoints::OnThread);
    file.AddTrack(video_track(46800));
    file.AddTrack(sound_track(46800));
    check(file.Begin().Succeeded(), "Begin");
    ReadySamples ready(work.videoBytes);
    MovieSample sample;
    for (long long i = 0; i < work.samples; i++) {
        const int track = ready.Next(sample);
        check(file.WriteSample(track, sample).Succeeded(), "WriteSample");
    }
    figures.close = close_timed(file);
    return figures;
}

AVStream* add_stream(AVFormatContext* output, const MovieTrack& track) {
    AVStream* stream = avformat_new_stream(output, nullptr);
    AVCodecParameters* codec = stream->codecpar;
    const bool video = track.kind == MovieTrack::Kind::Video;
    codec->codec_type = video ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
    codec->codec_id = video ? AV_CODEC_ID_H264 : AV_CODEC_ID_AAC;
    codec->width = track.width;
    codec->height = track.height;
    codec->sample_rate = track.sampleRate;
    codec->frame_size = track.framesPerPacket;
    if (!video) av_channel_layout_default(&codec->ch_layout, track.channels);
    const std::size_t size = track.decoderConfiguration.size();
    codec->extradata = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    memcpy(codec->extradata, track.decoderConfiguration.data(), size);
    codec->extradata_size = static_cast<int>(size);
    stream->time_base = {1, static_cast<int>(track.timescale)};
    return stream;
}

void sync_file(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY);
    check(file >= 0 && fdatasync(file) == 0, "fdatasync");
    close(file);
}

Figures write_libavformat(const Work& work, const char* flags, bool synced) {
    Figures figures;
    AVFormatContext* output = nullptr;
    avformat_alloc_output_context2(&output, nullptr, "mp4", work.path.c_str());
    AVStream* streams[] = {add_stream(output, video_track(0)), add_stream(output, sound_track(0))};
    check(avio_open(&output->pb, work.path.c_str(), AVIO_FLAG_WRITE) >= 0, "avio_open");
    AVDictionary* options = nullptr;
    if (*flags) av_dict_set(&options, "movflags", flags, 0);
    check(avformat_write_header(output, &options) >= 0, "avformat_write_header");
    ReadySamples ready(work.videoBytes);
    MovieSample sample;
    AVPacket* packet = av_packet_alloc();
    for (long long i = 0; i < work.samples; i++) {
        const int track = ready.Next(sample);
        packet->data = const_cast<unsigned char*>(sample.data);
        packet->size = static_cast<int>(sample.size);
        packet->stream_index = track;
        packet->flags = sample.key ? AV_PKT_FLAG_KEY : 0;
        const AVRational scale =
            track == 0 ? AVRational{1, static_cast<int>(kFrames * kFrame)} : AVRational{1, 48000};
        packet->dts = packet->pts =
            av_rescale_q(sample.decodeTime, scale, streams[track]->time_base);
        packet->duration = av_rescale_q(sample.duration, scale, streams[track]->time_base);
        // The samples come in the order of time: the interleaving queue would only copy them.
        check(av_write_frame(output, packet) >= 0, "av_write_frame");
    }
    const auto start = bench::NowNs();
    check(av_write_trailer(output) >= 0, "av_write_trailer");
    avio_closep(&output->pb);
    if (synced) sync_file(work.path);
    figures.close = static_cast<double>(bench::NowNs() - start) / 1e9;
    packet->data = nullptr;
    av_packet_free(&packet);
    avformat_free_context(output);
    return figures;
}

/// Seconds that this thread was ready to run and had no core; 0 where the system does not tell.
double waited_for_a_core() {
    long long ran = 0, waited = 0;
    if (FILE* statistics = fopen("/proc/thread-self/schedstat", "r")) {
        if (fscanf(statistics, "%lld %lld", &ran, &waited) != 2) waited = 0;
        fclose(statistics);
    }
    return static_cast<double>(waited) / 1e9;
}

/// Runs `work` in a process of its own and gives its figures.
Figures run_apart(const std::function<Figures()>& turn) {
    int ends[2];
    check(pipe(ends) == 0, "pipe");
    const pid_t child = fork();
    if (child == 0) {
        const auto wall = bench::NowNs();
        const auto cpu = bench::CpuNs();
        const double waited = waited_for_a_core();
        Figures figures = turn();
        figures.wall = static_cast<double>(bench::NowNs() - wall) / 1e9;
        figures.cpu = static_cast<double>(bench::CpuNs() - cpu) / 1e9;
        figures.waited = waited_for_a_core() - waited;
        check(write(ends[1], &figures, sizeof figures) == sizeof figures, "write");
        _exit(0);
    }
    close(ends[1]);
    Figures figures;
    check(read(ends[0], &figures, sizeof figures) == sizeof figures, "a turn");
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return figures;
}

struct Contender {
    const char* name;
    std::function<Figures(const Work& work)> write;
    bench::Samples wall{}, cpu{}, close{}, waited{};
};

void compare(const Work& work, int rounds) {
    const auto ours = [](bool synced) {
        return [synced](const Work& turn) { return write_ours(turn, synced); };
    };
    const auto theirs = [](const char* flags, bool synced = false) {
        return [=](const Work& turn) { return write_libavformat(turn, flags, synced); };
    };
    Contender contenders[] = {
        {"libavformat, plain", theirs("")},
        {"ours, no sync", ours(false)},
        {"ours, a checkpoint a second", ours(true)},
        {"libavformat, plain, then sync", theirs("", true)},
        {"libavformat, fast start", theirs("faststart")},
        {"libavformat, fragmented", theirs("frag_keyframe+empty_moov")},
    };
    for (int round = 0; round < rounds; round++) {
        for (Contender& contender : contenders) {
            unlink(work.path.c_str());
            sync();  // what the turn before left behind is not this one's work
            const Figures figures = run_apart([&] { return contender.write(work); });
            contender.wall.Add(figures.wall);
            contender.cpu.Add(figures.cpu);
            contender.close.Add(figures.close);
            contender.waited.Add(figures.waited);
        }
    }
    unlink(work.path.c_str());
    const double plainWall = contenders[0].wall.At(0.5);
    const double plainCpu = contenders[0].cpu.At(0.5);
    printf("\n%lld ready samples, pictures of %d bytes on average; %d rounds, medians\n",
           work.samples, work.videoBytes, rounds);
    printf("%-30s %9s %7s %9s %7s %9s %10s\n", "", "wall s", "ratio", "cpu s", "ratio", "close ms",
           "no core s");
    for (Contender& contender : contenders)
        printf("%-30s %9.3f %7.2f %9.3f %7.2f %9.1f %10.2f\n", contender.name,
               contender.wall.At(0.5), contender.wall.At(0.5) / plainWall, contender.cpu.At(0.5),
               contender.cpu.At(0.5) / plainCpu, contender.close.At(0.5) * 1e3,
               contender.waited.At(0.5));
}

long long resident_kilobytes() {
    long long pages = 0, resident = 0;
    if (FILE* statm = fopen("/proc/self/statm", "r")) {
        if (fscanf(statm, "%lld %lld", &pages, &resident) != 2) resident = 0;
        fclose(statm);
    }
    return resident * sysconf(_SC_PAGESIZE) / 1024;
}

/// A recording of small samples with a checkpoint a second.
class SmallRecording {
public:
    SmallRecording(std::string path, int hours)
        : fPath(std::move(path)),
          fFile(fPath.c_str(), {.containerType = 'mp4 '}, MakePosixFile(),
                WholeMovieFile::Checkpoints::ByHand) {
        fFile.AddTrack(video_track(hours * 3600.0 * 1.1));
        fFile.AddTrack(sound_track(hours * 3600.0 * 1.1));
        check(fFile.Begin().Succeeded(), "Begin");
    }
    ~SmallRecording() { unlink(fPath.c_str()); }

    /// Records a second and gives the milliseconds of its checkpoint.
    double Second() {
        fSecond++;
        MovieSample sample;
        for (bool done = false; !done;) {
            const int track = fReady.Next(sample);
            check(fFile.WriteSample(track, sample).Succeeded(), "WriteSample");
            done = track == 0 && sample.decodeTime + kFrame >= fSecond * kFrames * kFrame;
        }
        const auto start = bench::NowNs();
        check(fFile.Checkpoint().Succeeded(), "Checkpoint");
        return static_cast<double>(bench::NowNs() - start) / 1e6;
    }
    /// Milliseconds.
    double Close() { return close_timed(fFile) * 1e3; }

private:
    const std::string fPath;
    WholeMovieFile fFile;
    ReadySamples fReady{40};
    long long fSecond = 0;
};

/// The last five minutes of a long recording, in turns with minutes two to six of a new one: what
/// else the machine does hits both.
void long_recording(const std::string& folder, int hours) {
    constexpr long long kCompared = 300;
    SmallRecording old(folder + "/movie_file_bench_old.mp4", hours);
    const long long before = resident_kilobytes();
    const long long last = hours * 3600LL;
    bench::Samples early, late, all;
    for (long long second = 0; second < last - kCompared; second++) all.Add(old.Second());
    const long long grown = resident_kilobytes() - before;
    SmallRecording young(folder + "/movie_file_bench_young.mp4", hours);
    for (int second = 0; second < 60; second++) young.Second();
    for (long long second = 0; second < kCompared; second++) {
        early.Add(young.Second());
        late.Add(old.Second());
    }
    const double youngClosed = young.Close();
    const double closed = old.Close();
    printf("\n%d hours, 60 pictures and 47 packets of sound a second, a checkpoint a second\n",
           hours);
    printf("checkpoint after minute 1: median %.3f ms, 99%% %.3f ms\n", early.At(0.5),
           early.At(0.99));
    printf("checkpoint at the end:     median %.3f ms, 99%% %.3f ms, ratio of medians %.2f\n",
           late.At(0.5), late.At(0.99), late.At(0.5) / early.At(0.5));
    printf("longest of all %.1f ms; close %.1f ms, of a recording of six minutes %.1f ms\n",
           all.At(1), closed, youngClosed);
    printf("memory grew by %lld KiB for %lld samples\n", grown, last * (kFrames + 47));
}

}  // namespace

int main(int argc, char** argv) {
    int rounds = 5;
    int hours = 12;
    long long samples = 1000000;
    std::string folder = ".";
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--rounds") rounds = std::atoi(argv[i + 1]);
        if (name == "--samples") samples = std::atoll(argv[i + 1]);
        if (name == "--folder") folder = argv[i + 1];
        if (name == "--hours") hours = std::atoi(argv[i + 1]);
    }
    av_log_set_level(AV_LOG_QUIET);
    const std::string path = folder + "/movie_file_bench.mp4";
    for (const int videoBytes : {200, 4000})
        if (rounds > 0) compare({path, samples, videoBytes}, rounds);
    if (hours > 0) long_recording(folder, hours);
    return 0;
}
