// What an output more costs when the muxing add-ons share one encoder: real movie files, their
// threads and all, beside the ffmpeg program with its tee muxer on the same pictures.
//
//   mux_share_bench [ADDONS_FOLDER] [rounds=N] [size=1280x720]
//
// Everything takes turns within one run; ratios are those of a round, and their medians count.
// Processor time is that of the whole process. An encoder's own time swings by more than all
// outputs together cost, so these are timed alone as well, on the recorded buffers of one encode.

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "spar/jigManager.h"
#include "spar/zAsSharedPtr.h"
#include "spar/zBoot.h"
#include "spar/zBuffer.h"
#include "spar/zRecord.h"
#include "spar/zTraceManager.h"
#include "tarn/filters/tnCodecFilters.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/filters/tnX264VideoCompressor.h"
#include "tarn/foundation/tnTarn.h"
#include "tarn/movies/tnFiles.h"
#include "tarn/movies/tnMovie.h"
#include "tarn/movies/tnStreamBufferGroup.h"

#include "bench/support/Figures.h"
#include "tests/support/AvCodecs.h"

namespace {

constexpr int kSource = 1;
constexpr int kPictures = 90;
constexpr int kOutputs[] = {1, 2, 4, 8, 16};
constexpr int kKinds = 5;

int gWidth = 1280;
int gHeight = 720;
int gRounds = 7;
std::string gFolder;

using Pictures = std::vector<std::vector<unsigned char>>;

tnMediaRecord track() {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.SetBool('mena', true);
    record.SetInt32("source_id", kSource);
    record.fWidth.SetInt32(gWidth);
    record.fHeight.SetInt32(gHeight);
    record.fColourspace.SetInt32('I420');
    record.fBytesPerRow.SetInt32(gWidth);
    record.SetInt64('tmsc', 30000);
    record.SetFloat('mfps', 30.0f);
    record.SetCString('mcon', tnCodecFilters::kX264);
    record.SetInt32("encoder_threads", 1);
    record.SetInt32("key_frame_rate", 60);
    record.SetInt32('mtbr', 6000);
    return record;
}

/// What an encoder gave once.
struct Recorded {
    struct One {
        std::vector<unsigned char> bytes;
        bool isKey;
    };
    std::vector<One> pictures;
    std::vector<unsigned char> description;
};
Recorded gRecorded;

class RecordedBuffer final : public tnVideoCompressor::EncodedBuffer {
public:
    RecordedBuffer(const Recorded::One& one, long long time) : fOne(one), fTime(time) {}
    const unsigned char* Data() override { return fOne.bytes.data(); }
    unsigned int DataSize() override { return static_cast<unsigned int>(fOne.bytes.size()); }
    bool IsKeyFrame() const override { return fOne.isKey; }
    bool CanDropBuffer() const override { return false; }
    unsigned int Duration() const override { return 1000; }
    double BufferTimeInMilliseconds() const override { return static_cast<double>(fTime) / 30; }
    int GetDecoderDescription(zBuffer&) override { return -1; }
    int VideoCodecFormat() const override { return 7; }
    zRecord* FrameMetaData() const override { return nullptr; }
    int DisplayOffsetRelativeToDuration() const override { return 0; }
    void Print() override {}
    int DisplayOffsetInMilliseconds() const override { return 0; }

private:
    const Recorded::One& fOne;
    const long long fTime;
};

/// Gives what was recorded, and costs nothing.
class RecordedEncoder final : public tnVideoCompressor {
public:
    const tnMediaRecord& InputFormat() const override { return fFormat; }
    const tnMediaRecord& OutputFormat() const override { return fFormat; }
    void SetOutputFormat(const tnMediaRecord& format) override { fFormat = format; }
    int Create(const tnMediaRecord&, const zRecord&, void*) override { return 0; }
    int EncodeFrame(tnStreamBuffer& buffer, const tnMediaRecord&, long long time, bool,
                    int (*)(tnVideoCompressor::EncodedBuffer*, void*), const zRecord*) override {
        buffer.ReleaseWriting();
        const auto& pictures = gRecorded.pictures;
        auto* const one = new RecordedBuffer(pictures[fNext++ % pictures.size()], time);
        if (fOnEncodedBuffer) fOnEncodedBuffer(zAsSharedPtr<EncodedBuffer>(one));
        one->Release();
        return 0;
    }
    double GetCTSIncrementInMilliseconds() const override { return 0; }
    int CanOutputFormat(tnMediaRecord&, bool) override { return 0; }
    int GetDecoderDescription(zBuffer& out) override {
        out.SetAndCopyData(gRecorded.description.data(),
                           static_cast<unsigned int>(gRecorded.description.size()), 0);
        return 0;
    }

private:
    tnMediaRecord fFormat;
    std::size_t fNext = 0;
};

void record(const Pictures& pictures) {
    auto encoder = std::make_unique<tnX264VideoCompressor>();
    encoder->SetOutputFormat(track());
    encoder->CreateFilter(track());
    encoder->fOnEncodedBuffer = [](const auto& buffer) {
        const unsigned char* data = buffer->Data();
        gRecorded.pictures.push_back({{data, data + buffer->DataSize()}, buffer->IsKeyFrame()});
    };
    const std::unique_ptr<tnStreamBufferGroup> group(
        tnStreamBufferGroup::CreateForFormat(track(), 2));
    long long time = 0;
    for (const auto& picture : pictures) {
        tnStreamBuffer* buffer = nullptr;
        group->GetBuffer(&buffer, true);
        std::memcpy(buffer->GetPointer(), picture.data(), picture.size());
        buffer->AddWritingRef();
        encoder->EncodeFrame(*buffer, track(), time, false, nullptr, nullptr);
        time += 1000;
    }
    const auto description = encoder->DecoderInfo();
    if (description) gRecorded.description = *description;
}

std::vector<tnMovie*> begin_outputs(int count, const char* codec) {
    std::vector<tnMovie*> movies;
    zRecord tracks;
    auto* const wanted = new tnMediaRecord(track());
    wanted->SetCString('mcon', codec);
    tracks.AddChild(wanted, -1);
    for (int i = 0; i < count; ++i) {
        tnMovie* movie = nullptr;
        zRecord record;
        zRecord result;
        tnOutputAccessor output(record);
        output.SetOutputType(TN_OUTPUT_DEFAULT);
        output.SetOutputEnabled(true);
        output.SetURL((gFolder + "/ours" + std::to_string(i) + ".mp4").c_str());
        if (tnFiles::CreateMovieWithName(&movie, "Shared MPEG-4", TN_OUTPUT_DEFAULT) != 0 ||
            movie->CreateStreams(tracks, 0, 0) != 0 ||
            movie->UpdateOutput(output, nullptr, result, TN_OUTPUT_UPDATE_ADD) != 0) {
            std::fprintf(stderr, "no output: is the add-ons' folder right?\n");
            std::exit(1);
        }
        movies.push_back(movie);
    }
    return movies;
}

/// Processor microseconds a frame, from the first write to the last file's close.
double share(const Pictures& pictures, int outputs, const char* codec) {
    const std::shared_ptr<tnFilterManager> manager = tnFilterManager::Default();
    const std::unique_ptr<tnStreamBufferGroup> group(
        tnStreamBufferGroup::CreateForFormat(track(), 2));
    const std::vector<tnMovie*> movies = begin_outputs(outputs, codec);
    const tnMediaRecord format = track();
    manager->SetInputFormat(kSource, format);
    const int64_t start = bench::CpuNs();
    long long time = 0;
    for (const auto& picture : pictures) {
        tnStreamBuffer* buffer = nullptr;
        if (group->GetBuffer(&buffer, true) != 0) continue;
        if (codec == tnCodecFilters::kX264) {
            std::memcpy(buffer->GetPointer(), picture.data(), picture.size());
        }
        buffer->AddWritingRef();
        manager->WriteVideoSample(kSource, time / 30, time, *buffer, format);
        buffer->ReleaseWriting();
        time += 1000;
    }
    for (tnMovie* movie : movies) movie->Release();
    return static_cast<double>(bench::CpuNs() - start) / 1000.0 /
           static_cast<double>(pictures.size());
}

/// The same of the ffmpeg program; 0 without it.
double tee(const std::string& raw, int outputs) {
    std::string targets;
    for (int i = 0; i < outputs; ++i) {
        targets += (i > 0 ? "|" : "") + gFolder + "/theirs" + std::to_string(i) + ".mp4";
    }
    const std::string size = std::to_string(gWidth) + "x" + std::to_string(gHeight);
    return bench::ChildCpuUs("ffmpeg -v error -nostdin -y -f rawvideo -pix_fmt yuv420p -s " + size +
                             " -r 30 -i " + raw +
                             " -map 0 -c:v libx264 -preset veryfast -b:v 6000k -maxrate 6000k"
                             " -bufsize 6000k -bf 0 -g 60 -threads 1 -flags +global_header"
                             " -f tee " +
                             targets) /
           kPictures;
}

void run(const Pictures& pictures, const std::string& raw) {
    bench::Samples ours[kKinds];
    bench::Samples theirs[kKinds];
    bench::Samples ourRatio[kKinds];
    bench::Samples theirRatio[kKinds];
    bench::Samples alone[kKinds];
    share(pictures, 1, tnCodecFilters::kX264);
    for (int round = 0; round < gRounds; ++round) {
        double cpu[kKinds] = {};
        double teeCpu[kKinds] = {};
        for (int turn = 0; turn < kKinds; ++turn) {
            const int i = (round + turn) % kKinds;  // nobody always comes first
            cpu[i] = share(pictures, kOutputs[i], tnCodecFilters::kX264);
            for (int again = 0; again < 5; ++again) {
                alone[i].Add(share(pictures, kOutputs[i], "recorded"));
            }
            teeCpu[i] = tee(raw, kOutputs[i]);
        }
        for (int i = 0; i < kKinds; ++i) {
            ours[i].Add(cpu[i]);
            theirs[i].Add(teeCpu[i]);
            ourRatio[i].Add(cpu[i] / cpu[0]);
            theirRatio[i].Add(teeCpu[0] > 0 ? teeCpu[i] / teeCpu[0] : 0);
        }
    }
    std::printf("\n%dx%d, one x264 encoder at 6 Mbit/s, mp4 files, cpu microseconds a frame\n",
                gWidth, gHeight);
    std::printf("%8s %9s %9s    %9s %9s   %14s %9s\n", "outputs", "ours", "over 1", "tee", "over 1",
                "outputs alone", "over 1");
    const double one = ours[0].At(0.5);
    const double oneAlone = alone[0].At(0.5);
    for (int i = 0; i < kKinds; ++i) {
        std::printf("%8d %9.0f %9.3f    %9.0f %9.3f   %14.1f %9.3f\n", kOutputs[i], ours[i].At(0.5),
                    ourRatio[i].At(0.5), theirs[i].At(0.5), theirRatio[i].At(0.5), alone[i].At(0.5),
                    (one + alone[i].At(0.5) - oneAlone) / one);
    }
    std::printf("the last column: the median of one output, and what the others alone cost more\n");
}

}  // namespace

int main(int count, char** words) {
    const std::string self = words[0];
    std::string addonsFolder = self.substr(0, self.rfind('/') + 1) + "addons";
    for (int i = 1; i < count; ++i) {
        if (std::strncmp(words[i], "rounds=", 7) == 0) {
            gRounds = std::atoi(words[i] + 7);
        } else if (std::sscanf(words[i], "size=%dx%d", &gWidth, &gHeight) != 2) {
            addonsFolder = words[i];
        }
    }
    zTraceManager::SetDefault(nullptr);
    zBoot::Depends('tarn', tnTarn::boot_Module);
    zBoot::StartAll();
    jigManager addons;
    addons.LoadFolder(addonsFolder);
    tnFiles::LoadAddons(addons);
    tnCodecFilters::Register(*tnFilterManager::Default());

    char folder[] = "/dev/shm/mux_share_XXXXXX";
    if (!mkdtemp(folder)) return 1;
    gFolder = folder;
    Pictures pictures;
    for (int i = 0; i < kPictures; ++i) {
        pictures.push_back(avCodecs::MovingI420(gWidth, gHeight, i));
    }
    const std::string raw = gFolder + "/raw";
    std::FILE* const file = std::fopen(raw.c_str(), "wb");
    for (const auto& picture : pictures) std::fwrite(picture.data(), 1, picture.size(), file);
    std::fclose(file);
    record(pictures);
    tnFilterManager::Default()->RegisterFactory("recorded", [] {
        return std::shared_ptr<tnFilter>(new RecordedEncoder,
                                         [](tnFilter* filter) { filter->Release(); });
    });
    run(pictures, raw);
    for (int i = 0; i < kOutputs[kKinds - 1]; ++i) {
        unlink((gFolder + "/ours" + std::to_string(i) + ".mp4").c_str());
        unlink((gFolder + "/theirs" + std::to_string(i) + ".mp4").c_str());
    }
    unlink(raw.c_str());
    rmdir(folder);
    zBoot::StopAll();
    return 0;
}
