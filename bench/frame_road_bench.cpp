// The road of a frame from the host's write to the outputs' buffers, beside what it is made of.
//
//   frame_road_bench [copy] [lock] [encode] [share] [deliver] [rounds=N]
//
// Everything that is compared takes turns within one run, and medians are compared, so that other
// work on the machine hits all alike. Processor time is that of the whole process.

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "orb/BlockPool.h"
#include "orb/CMemoryDataReference.h"
#include "orb/CVideoCompressor.h"
#include "spar/zAsSharedPtr.h"
#include "spar/zObject.h"
#include "spar/zTraceManager.h"
#include "tarn/filters/OrbVideoBuffer.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/filters/tnOrbVideoCompressor.h"
#include "tarn/filters/tnX264VideoCompressor.h"
#include "tarn/movies/tnStreamBufferGroup.h"

#include "bench/support/Figures.h"
#include "tests/support/AvCodecs.h"

using namespace Quillon::Orb;

namespace {

constexpr int kSource = 1;

int gRounds = 0;  // 0: each part's own number

int rounds_or(int usual) {
    return gRounds > 0 ? gRounds : usual;
}

tnMediaRecord video_of(unsigned int raster, int width, int height) {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.fWidth.SetInt32(width);
    record.fHeight.SetInt32(height);
    record.fColourspace.SetInt32(static_cast<int>(raster));
    record.fBytesPerRow.SetInt32(raster == '2vuy' ? width * 2 : width);
    record.SetInt64('tmsc', 30000);
    record.SetUInt64('dura', 1001);
    record.SetFloat('mfps', 29.97f);
    record.SetCString('mcon', "codec");
    return record;
}

std::shared_ptr<tnFilter> held(tnFilter* filter) {
    return {filter, [](tnFilter* one) { one->Release(); }};
}

/// An encoder that takes samples and gives none, or a packet for each, and knows when it gave one.
class Taker final : public CVideoCompressor {
public:
    explicit Taker(bool gives) : CVideoCompressor('take'), fGives(gives) {}

    CValueList<unsigned int>* GetInputFormats() override {
        return new CValueList<unsigned int>{'UYVY', 'I420'};
    }
    CValueList<unsigned int>* GetOutputFormats() override { return nullptr; }
    Result Begin() override { return 0; }
    Result End() override { return 0; }
    Result ProcessSample(CVideoSample*) override {
        fReady = fGives;
        return 0;
    }
    Result ReceiveSample(RObject<CVideoSample>& sample) override {
        sample.Clear();
        if (!fReady) return 0;
        fReady = false;
        sample = new CVideoSample(0, 1001, 0);
        const RObject<CByteArray> bytes(new CByteArray(20000, 1));
        const RObject<CMemoryDataReference> data(new CMemoryDataReference(bytes.Get()));
        sample->SetDataReference(data.Get());
        gGivenNs = bench::NowNs();
        return 0;
    }

    static inline int64_t gGivenNs = 0;

protected:
    Result AcceptProperty(const PropertyName&, const PropertyValue&) override { return 0; }

private:
    const bool fGives;
    bool fReady = false;
};

class TakingCompressor final : public tnOrbVideoCompressor {
public:
    explicit TakingCompressor(bool gives) : fGives(gives) {}

protected:
    int create_orb_compressor(const zRecord&) override {
        fEncoder = new Taker(fGives);
        return 0;
    }

private:
    const bool fGives;
};

/// A compressor that does nothing at all.
class Nothing final : public tnVideoCompressor {
public:
    const tnMediaRecord& InputFormat() const override { return fFormat; }
    const tnMediaRecord& OutputFormat() const override { return fFormat; }
    void SetOutputFormat(const tnMediaRecord& format) override { fFormat = format; }
    int Create(const tnMediaRecord&, const zRecord&, void*) override { return 0; }
    int EncodeFrame(tnStreamBuffer& buffer, const tnMediaRecord&, long long, bool,
                    int (*)(tnVideoCompressor::EncodedBuffer*, void*), const zRecord*) override {
        buffer.ReleaseWriting();
        return 0;
    }
    double GetCTSIncrementInMilliseconds() const override { return 0; }
    int CanOutputFormat(tnMediaRecord&, bool) override { return 0; }

private:
    tnMediaRecord fFormat;
};

/// A source with `outputs` encoders, each heard by `observers`.
class Road {
public:
    using Video = tnFilterManager::VideoFunction;

    Road(const tnMediaRecord& format, int outputs, int observers,
         const std::function<tnFilter*()>& make, const Video& hear = {})
        : fFormat(format), fHear(hear) {
        fManager->RegisterFactory("codec", [make] { return held(make()); });
        for (int output = 0; output < outputs; ++output) {
            tnMediaRecord request(fFormat);
            request.SetInt32('mtbr', 1000 + output);  // so that none is equal to another
            for (int observer = 0; observer < observers; ++observer) {
                if (observer == 1) request.RemoveID('mcon');  // those that follow share
                fOwners.push_back(std::make_shared<zObject>());
                fManager->ObserveVideoFilter(kSource, fOwners.back(), request, {}, hear);
            }
        }
        fManager->SetInputFormat(kSource, fFormat);
        fGroup.CreateBuffers(1, fFormat.CalculateBufferSize(1), true);
        fGroup.GetBuffer(&fFrame, false);
        fFrame->AddWritingRef();
    }

    void Write() {
        fManager->WriteVideoSample(kSource, fTime / 30, fTime, *fFrame, fFormat);
        fTime += 1001;
    }
    unsigned char* Pixels() { return static_cast<unsigned char*>(fFrame->GetPointer()); }
    void Join() {
        fOwners.push_back(std::make_shared<zObject>());
        tnMediaRecord request(fFormat);
        request.SetInt32('mtbr', 1000);
        request.RemoveID('mcon');
        fManager->ObserveVideoFilter(kSource, fOwners.back(), request, {}, fHear);
    }
    void Leave() {
        fManager->StopObservingFilter(kSource, fOwners.back());
        fOwners.pop_back();
    }

private:
    std::shared_ptr<tnFilterManager> fManager = std::make_shared<tnFilterManager>();
    std::vector<std::shared_ptr<zObject>> fOwners;
    tnMediaRecord fFormat;
    Video fHear;
    tnStreamBufferGroup fGroup;
    tnStreamBuffer* fFrame = nullptr;
    long long fTime = 0;
};

double microseconds(const std::function<void()>& work) {
    const int64_t start = bench::NowNs();
    work();
    return static_cast<double>(bench::NowNs() - start) / 1000.0;
}

long page_faults() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    return used.ru_minflt;
}

// WriteVideoSample over one plain copy of the frame into warm memory.
void time_copies() {
    std::printf("\n1080p, a compressor that only takes the sample, median microseconds a frame\n");
    std::printf("%-8s %-22s %9s %9s %7s %12s %13s\n", "pixels", "outputs", "copy", "write", "ratio",
                "faults/frame", "blocks/frame");
    const struct {
        unsigned int raster;
        int outputs;
        int observers;
        const char* what;
    } rows[] = {
        {'2vuy', 1, 1, "1"}, {'2vuy', 1, 8, "8 that share"}, {'2vuy', 8, 1, "8 of their own"},
        {'I420', 1, 1, "1"}, {'I420', 1, 8, "8 that share"}, {'I420', 8, 1, "8 of their own"}};
    for (const auto& row : rows) {
        const tnMediaRecord format = video_of(row.raster, 1920, 1080);
        const std::size_t size = row.raster == '2vuy' ? 1920 * 1080 * 2 : 1920 * 1080 * 3 / 2;
        Road road(format, row.outputs, row.observers, [] { return new TakingCompressor(false); });
        std::vector<unsigned char> warm(size, 1);
        std::memset(road.Pixels(), 7, size);
        bench::Samples copies;
        bench::Samples writes;
        long faults = 0;
        long long fresh = 0;
        const int rounds = rounds_or(600);
        for (int i = -20; i < rounds; ++i) {
            const double copy =
                microseconds([&] { std::memcpy(warm.data(), road.Pixels(), size); });
            const long faultsBefore = page_faults();
            const long long freshBefore = BlockPool::Shared().GetCounts().fresh;
            const double write = microseconds([&] { road.Write(); });
            if (i < 0) continue;
            faults += page_faults() - faultsBefore;
            fresh += BlockPool::Shared().GetCounts().fresh - freshBefore;
            copies.Add(copy);
            writes.Add(write);
        }
        std::printf("%-8s %-22s %9.1f %9.1f %7.3f %12.3f %13.3f\n",
                    row.raster == '2vuy' ? "UYVY" : "I420", row.what, copies.At(0.5),
                    writes.At(0.5), writes.At(0.5) / copies.At(0.5),
                    static_cast<double>(faults) / rounds, static_cast<double>(fresh) / rounds);
    }
}

// A whole write through compressors that do nothing: it holds the lock for a part of that time.
void time_the_lock() {
    std::printf("\nwrites through 8 outputs of 4 observers that do nothing, microseconds\n");
    std::printf("%-44s %9s %9s\n", "", "median", "99 %");
    // As large as what a stream observes with, so that copies of it allocate.
    const auto life = std::make_shared<int>(0);
    const auto hear = [life, stream = &life](const auto&) { (void)stream; };
    Road road(
        video_of('2vuy', 64, 48), 8, 4, [] { return new Nothing; }, hear);
    bench::Samples steady;
    bench::Samples first;
    const int rounds = rounds_or(20000);
    for (int i = 0; i < rounds; ++i) {
        steady.Add(microseconds([&] { road.Write(); }));
    }
    for (int i = 0; i < rounds / 10; ++i) {
        road.Join();
        first.Add(microseconds([&] { road.Write(); }));
        road.Leave();
        first.Add(microseconds([&] { road.Write(); }));
    }
    std::printf("%-44s %9.3f %9.3f\n", "all of a write, lock included", steady.At(0.5),
                steady.At(0.99));
    std::printf("%-44s %9.3f %9.3f\n", "the first write after somebody joined or left",
                first.At(0.5), first.At(0.99));
}

using Pictures = std::vector<std::vector<unsigned char>>;

Pictures pictures_of(int width, int height, int count) {
    Pictures pictures;
    for (int i = 0; i < count; ++i) pictures.push_back(avCodecs::MovingI420(width, height, i));
    return pictures;
}

struct Spent {
    double wall;  ///< microseconds a frame
    double cpu;
};

Spent spend(int frames, const std::function<void()>& work) {
    const int64_t cpu = bench::CpuNs();
    const double wall = microseconds(work);
    return {wall / frames, static_cast<double>(bench::CpuNs() - cpu) / 1000.0 / frames};
}

tnMediaRecord x264_request(int width, int height) {
    tnMediaRecord request = video_of('I420', width, height);
    request.SetInt32("encoder_threads", 1);
    request.SetInt32("b_frames", 0);
    request.SetInt32("key_frame_rate", 60);
    return request;
}

Spent encode_straight(const Pictures& pictures, int width, int height, long long& bytes) {
    avCodecs::X264 settings;
    settings.width = width;
    settings.height = height;
    settings.keyFrameInterval = 60;
    const avCodecs::Context context = avCodecs::OpenX264(settings);
    const avCodecs::Packet packet(av_packet_alloc());
    return spend(static_cast<int>(pictures.size()), [&] {
        long long number = 0;
        const auto fetch = [&] {
            while (avcodec_receive_packet(context.get(), packet.get()) >= 0) {
                bytes += packet->size;
                av_packet_unref(packet.get());
            }
        };
        for (const auto& picture : pictures) {
            const avCodecs::Frame frame =
                avCodecs::WrapI420(picture.data(), width, height, number++);
            avcodec_send_frame(context.get(), frame.get());
            fetch();
        }
        avcodec_send_frame(context.get(), nullptr);
        fetch();
    });
}

/// The same through EncodeFrame, the pictures already in stream buffers.
Spent encode_by_the_road(const std::vector<tnStreamBuffer*>& frames, int width, int height,
                         long long& bytes) {
    const tnMediaRecord format = x264_request(width, height);
    auto compressor = std::make_unique<tnX264VideoCompressor>();
    compressor->SetOutputFormat(format);
    compressor->CreateFilter(format);
    compressor->fOnEncodedBuffer = [&](const auto& buffer) {
        if (buffer->Data()) bytes += buffer->DataSize();
    };
    return spend(static_cast<int>(frames.size()), [&] {
        long long time = 0;
        for (tnStreamBuffer* frame : frames) {
            frame->AddWritingRef();
            compressor->EncodeFrame(*frame, format, time, false, nullptr, nullptr);
            time += 1001;
        }
        compressor.reset();  // what is inside the encoder is encoded here, as a drain does
    });
}

void time_encoding() {
    constexpr int kWidth = 1280;
    constexpr int kHeight = 720;
    constexpr int kPictures = 60;
    const Pictures pictures = pictures_of(kWidth, kHeight, kPictures);
    tnStreamBufferGroup group;
    group.CreateBuffers(kPictures, static_cast<int>(pictures[0].size()), true);
    std::vector<tnStreamBuffer*> frames(kPictures);
    for (std::size_t i = 0; i < kPictures; ++i) {
        group.GetBuffer(&frames[i], false);
        frames[i]->AddWritingRef();
        std::memcpy(frames[i]->GetPointer(), pictures[i].data(), pictures[i].size());
    }
    bench::Samples straightWall;
    bench::Samples straightCpu;
    bench::Samples roadWall;
    bench::Samples roadCpu;
    bench::Samples ratioWall;
    bench::Samples ratioCpu;
    long long bytes[2] = {};
    const int rounds = rounds_or(12);
    for (int i = 0; i < rounds; ++i) {
        const Spent straight = encode_straight(pictures, kWidth, kHeight, bytes[0]);
        const Spent road = encode_by_the_road(frames, kWidth, kHeight, bytes[1]);
        straightWall.Add(straight.wall);
        straightCpu.Add(straight.cpu);
        roadWall.Add(road.wall);
        roadCpu.Add(road.cpu);
        ratioWall.Add(straight.wall / road.wall);
        ratioCpu.Add(straight.cpu / road.cpu);
    }
    std::printf("\n720p, x264 veryfast, one thread, median microseconds a frame\n");
    std::printf("%-22s %9s %9s\n", "", "wall", "cpu");
    std::printf("%-22s %9.0f %9.0f\n", "libavcodec straight", straightWall.At(0.5),
                straightCpu.At(0.5));
    std::printf("%-22s %9.0f %9.0f\n", "EncodeFrame", roadWall.At(0.5), roadCpu.At(0.5));
    std::printf("%-22s %9.3f %9.3f   median of the rounds' own ratios\n", "frames a second, ratio",
                ratioWall.At(0.5), ratioCpu.At(0.5));
}

// Sharing: what an output more costs.

Spent share(const Pictures& pictures, int width, int height, int outputs) {
    std::FILE* const nowhere = std::fopen("/dev/null", "w");
    Road road(
        x264_request(width, height), 1, outputs, [] { return new tnX264VideoCompressor; },
        [nowhere](const auto& buffer) {
            std::fwrite(buffer->Data(), 1, buffer->DataSize(), nowhere);
        });
    const Spent spent = spend(static_cast<int>(pictures.size()), [&] {
        for (const auto& picture : pictures) {
            std::memcpy(road.Pixels(), picture.data(), picture.size());
            road.Write();
        }
    });
    std::fclose(nowhere);
    return spent;
}

/// Processor microseconds a frame of the ffmpeg program with its tee muxer; 0 without it.
double tee(const std::string& raw, int width, int height, int frames, int outputs) {
    std::string targets;
    for (int i = 0; i < outputs; ++i) {
        targets += std::string(i > 0 ? "|" : "") + "[f=h264]/dev/null";
    }
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    return bench::ChildCpuUs("ffmpeg -v error -nostdin -f rawvideo -pix_fmt yuv420p -s " + size +
                             " -r 30000/1001 -i " + raw +
                             " -map 0 -c:v libx264 -preset veryfast -crf 23 -bf 0 -g 60 -threads 1"
                             " -f tee " +
                             targets) /
           frames;
}

void time_sharing() {
    constexpr int kWidth = 1280;
    constexpr int kHeight = 720;
    constexpr int kPictures = 60;
    constexpr int kOutputs[] = {1, 2, 4, 8, 16};
    const Pictures pictures = pictures_of(kWidth, kHeight, kPictures);
    char raw[] = "/tmp/frame_road_XXXXXX";
    const int file = mkstemp(raw);
    for (const auto& picture : pictures) {
        if (write(file, picture.data(), picture.size()) < 0) std::perror(raw);
    }
    close(file);
    bench::Samples ours[5];
    bench::Samples theirs[5];
    bench::Samples ourRatio[5];
    bench::Samples theirRatio[5];
    const int rounds = rounds_or(9);
    for (int round = 0; round < rounds; ++round) {
        double cpu[5] = {};
        double teeCpu[5] = {};
        for (int turn = 0; turn < 5; ++turn) {
            const int i = (round + turn) % 5;  // nobody always comes first
            cpu[i] = share(pictures, kWidth, kHeight, kOutputs[i]).cpu;
            teeCpu[i] = tee(raw, kWidth, kHeight, kPictures, kOutputs[i]);
        }
        for (int i = 0; i < 5; ++i) {
            ours[i].Add(cpu[i]);
            theirs[i].Add(teeCpu[i]);
            ourRatio[i].Add(cpu[i] / cpu[0]);
            theirRatio[i].Add(teeCpu[0] > 0 ? teeCpu[i] / teeCpu[0] : 0);
        }
    }
    unlink(raw);
    std::printf("\n720p, one x264 encoder, its outputs to /dev/null, cpu microseconds a frame\n");
    std::printf("%8s %9s %9s    %9s %9s\n", "outputs", "ours", "over 1", "tee", "over 1");
    for (int i = 0; i < 5; ++i) {
        std::printf("%8d %9.0f %9.3f    %9.0f %9.3f\n", kOutputs[i], ours[i].At(0.5),
                    ourRatio[i].At(0.5), theirs[i].At(0.5), theirRatio[i].At(0.5));
    }
}

// From the moment at which the encoder gave a sample to the observer's call, which brings the
// buffer before it.
void time_delivery() {
    std::printf("\nfrom the encoder's output to the sink, microseconds\n");
    std::printf("%10s %9s %9s\n", "observers", "median", "99 %");
    for (const int observers : {1, 8}) {
        bench::Samples samples;
        Road road(
            video_of('2vuy', 64, 48), 1, observers, [] { return new TakingCompressor(true); },
            [&](const auto&) {
                samples.Add(static_cast<double>(bench::NowNs() - Taker::gGivenNs) / 1000.0);
            });
        const int rounds = rounds_or(20000);
        for (int i = 0; i < rounds; ++i) road.Write();
        std::printf("%10d %9.2f %9.2f\n", observers, samples.At(0.5), samples.At(0.99));
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    std::set<std::string> wanted;
    for (int i = 1; i < argumentCount; ++i) {
        if (std::strncmp(arguments[i], "rounds=", 7) == 0) {
            gRounds = std::atoi(arguments[i] + 7);
        } else {
            wanted.insert(arguments[i]);
        }
    }
    zTraceManager::SetDefault(nullptr);
    const auto run = [&](const char* name, void (*part)()) {
        if (wanted.empty() || wanted.count(name)) part();
    };
    run("copy", time_copies);
    run("lock", time_the_lock);
    run("deliver", time_delivery);
    run("encode", time_encoding);
    run("share", time_sharing);
    return 0;
}
