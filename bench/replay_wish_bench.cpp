// From the wish for the last ten seconds to the first decoded picture of the cut, while two sources
// record. Beside it what a user would do without us: ffmpeg's concat demuxer over the same
// segments, copying.
//
//     replay_wish_bench [ROUNDS] [WIDTHxHEIGHT]

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "bench/support/Figures.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"
#include "tools/tarn/ClipVideo.h"
#include "tools/tarn/avHandles.h"
#include "tools/tarn/replay/ReplayCut.h"

namespace {

constexpr long long kWish = 10 * kReplayUnitsPerSecond;
constexpr double kNsPerMs = 1e6;

struct Size {
    int width = 1280;
    int height = 720;
};

/// The show refuses a size that is none, and what it takes is what it draws.
std::string write_show(const tests::TestFolder& folder, const Size& size) {
    const std::string path = folder.File("show.xml");
    std::ofstream show(path);
    show << "<show>\n";
    for (const char* name : {"a", "b"}) {
        show << "<source name=\"" << name << "\" picture=\"bars\" tn_width=\"" << size.width
             << "\" tn_height=\"" << size.height << "\" fps=\"25\" tone=\"440\"/>\n"
             << "<output source=\"" << name << "\" output_display_name=\"" << name
             << "\" kind=\"replay\" output_url=\"" << folder.File(name)
             << "\" segment_seconds=\"1\" keep_seconds=\"60\" output_enabled=\"true\">\n"
             << "<video codecname=\"x264\" target_bit_rate=\"8000\"/>\n"
             << "<audio codecname=\"MPEG-4 Audio\"/>\n</output>\n";
    }
    show << "</show>\n";
    return path;
}

/// `size` becomes the picture's own.
bool decode_first(const std::string& path, Size& size) {
    std::string error;
    const auto clip = ClipVideo::Open(path, 0, 0, error);
    ClipFrame frame;
    if (!clip || !clip->Next(frame)) return false;
    size = {clip->Format().fWidth.AsInt32(0), clip->Format().fHeight.AsInt32(0)};
    return true;
}

struct Ours {
    bench::Samples read, cut, whole;
    Size size;  // of the pictures that were cut
};

bool cut_once(const std::string& folder, const std::string& movie, Ours& samples) {
    const int64_t begin = bench::NowNs();
    ReplayRecording recording;
    ReplayCutWish wish;
    ReplayCutResult result;
    std::string error;
    if (!ReadReplay(folder, recording, error)) return false;
    const int64_t read = bench::NowNs();
    wish.output = movie;
    wish.out = recording.Stop();
    wish.in = wish.out - kWish;
    if (!CutReplay(
            recording, wish, false, [](double) {}, result, error))
        return false;
    const int64_t cut = bench::NowNs();
    if (!decode_first(movie, samples.size)) return false;
    const int64_t end = bench::NowNs();
    samples.read.Add(static_cast<double>(read - begin) / kNsPerMs);
    samples.cut.Add(static_cast<double>(cut - read) / kNsPerMs);
    samples.whole.Add(static_cast<double>(end - begin) / kNsPerMs);
    return true;
}

/// The segments of the stretch are looked up beforehand: its time is that of ffmpeg alone.
bool concat_once(const std::string& folder, const std::string& list, const std::string& movie,
                 bench::Samples& samples) {
    ReplayRecording recording;
    std::string error;
    if (!ReadReplay(folder, recording, error)) return false;
    {
        std::ofstream names(list);
        for (const ReplayPiece& piece : recording.pieces) {
            if (piece.stop > recording.Stop() - kWish) names << "file '" << piece.path << "'\n";
        }
    }
    const int64_t begin = bench::NowNs();
    const auto ran = tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "concat", "-safe",
                                 "0", "-i", list, "-c", "copy", "-movflags", "+faststart", movie});
    Size size;
    if (ran.exitCode != 0 || !decode_first(movie, size)) return false;
    samples.Add(static_cast<double>(bench::NowNs() - begin) / kNsPerMs);
    return true;
}

void print(const char* name, bench::Samples& samples) {
    std::printf("%-34s %8.1f %8.1f  (%zu)\n", name, samples.At(0.5), samples.At(0.99),
                samples.Count());
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 50;
    Size size;
    if (argc > 2 && std::sscanf(argv[2], "%dx%d", &size.width, &size.height) != 2) {
        std::fprintf(stderr, "replay_wish_bench [ROUNDS] [WIDTHxHEIGHT]\n");
        return 1;
    }
    QuietenAv();
    const tests::TestFolder folder;
    const tests::BackgroundProcess recorder({TARN_TOOL, "live", write_show(folder, size)});
    const ReplayLibrary library;
    // The encoder looks ahead; twelve seconds are there for every wish.
    ReplayRecording recording;
    std::string error;
    const int64_t patience = bench::NowNs() + INT64_C(60'000'000'000);
    while (!ReadReplay(folder.File("b"), recording, error) ||
           recording.Stop() - recording.Start() < kWish + 2 * kReplayUnitsPerSecond) {
        if (bench::NowNs() > patience) {
            std::fprintf(stderr, "nothing is recorded: %s\n", error.c_str());
            return 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    Ours ours;
    bench::Samples concat;
    for (int round = 0; round < rounds; ++round) {
        const std::string source = folder.File(round % 2 == 0 ? "a" : "b");
        if (!cut_once(source, folder.File("cut.mov"), ours)) return 1;
        if (!concat_once(source, folder.File("list.txt"), folder.File("concat.mov"), concat)) {
            return 1;
        }
    }
    recorder.Signal(SIGINT);
    std::printf("%-34s %8s %8s   ms, two sources of %dx%d record\n", "", "p50", "p99",
                ours.size.width, ours.size.height);
    print("wish to list of segments", ours.read);
    print("list to movie", ours.cut);
    print("wish to first decoded picture", ours.whole);
    print("ffmpeg concat copy, and a picture", concat);
    return 0;
}
