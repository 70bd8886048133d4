#pragma once

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "spar/jigManager.h"
#include "spar/zBoot.h"
#include "spar/zRecord.h"
#include "tarn/filters/tnCodecFilters.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/foundation/tnTarn.h"
#include "tarn/movies/tnFiles.h"
#include "tarn/movies/tnMovie.h"
#include "tarn/movies/tnStream.h"
#include "tarn/movies/tnStreamBufferGroup.h"

#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

// A host as small as one can be: cameras that write pictures and tone, and movies of the add-ons.

namespace addonTest {

/// A camera: pictures at one source of the filter manager, its sound at the next number.
class Camera {
public:
    // Sixteen macroblocks wide: x264's widest vector code reads past rows of other widths, and then
    // does not make the same stream twice.
    static constexpr int kWidth = 256;
    static constexpr int kHeight = 144;
    static constexpr long long kScale = 30000;
    static constexpr int kRate = 48000;

    explicit Camera(int source, long long ticks = 1001) : fSource(source), fTicks(ticks) {
        fGroup.reset(tnStreamBufferGroup::CreateForFormat(Picture(nullptr), 2));
    }

    tnMediaRecord Picture(const char* codec) const {
        tnMediaRecord record(TN_MEDIA_VIDEO);
        record.fWidth.SetInt32(kWidth);
        record.fHeight.SetInt32(kHeight);
        record.fColourspace.SetInt32('I420');
        record.fBytesPerRow.SetInt32(kWidth);
        record.SetInt64('tmsc', kScale);
        record.SetUInt64('dura', static_cast<unsigned long long>(fTicks));
        record.SetFloat('mfps', static_cast<float>(kScale) / static_cast<float>(fTicks));
        record.SetInt32("source_id", fSource);
        record.SetBool('mena', true);
        if (codec) record.SetCString('mcon', codec);
        return record;
    }
    /// x264 that looks ahead no further than it must.
    tnMediaRecord H264(int bFrames = 0) const {
        tnMediaRecord record = Picture("x264");
        record.SetInt32("encoder_threads", 1);
        record.SetInt32("b_frames", bFrames);
        record.SetInt32("key_frame_rate", 15);
        return record;
    }
    tnMediaRecord Aac() const { return Sound("MPEG-4 Audio"); }
    tnMediaRecord Sound(const char* codec) const {
        tnMediaRecord record(TN_MEDIA_AUDIO);
        record.MakeDefaultAudioFormat();
        record.SetInt32("source_id", fSource + 1);
        record.SetInt32("audio_output_track_mask", 1);
        record.SetBool('mena', true);
        if (codec) record.SetCString('mcon', codec);
        return record;
    }

    /// Frames from `from` to before `to`, each with its sound.
    void Write(int from, int to) {
        for (int frame = from; frame < to; ++frame) {
            if (frame < fMuteFrom || frame >= fMuteTo) WriteSound(frame);
            WritePicture(frame);
        }
    }
    void WritePicture(int frame) {
        tnStreamBuffer* buffer = nullptr;
        ASSERT_EQ(fGroup->GetBuffer(&buffer, true), 0);
        auto* const pixels = static_cast<unsigned char*>(buffer->GetPointer());
        Paint(frame, pixels);
        if (frame == fFlashAt) std::memset(pixels, 235, kWidth * kHeight);
        // Each time: a source that nobody observed any more has forgotten it.
        fManager->SetInputFormat(fSource, Picture(nullptr));
        write(frame, *buffer, Picture(nullptr));
    }
    /// A grey frame of another shape, under the input format that the source had before.
    void WriteOddPicture(int frame, int width, int height, int raster) {
        tnMediaRecord shape = Picture(nullptr);
        shape.fWidth.SetInt32(width);
        shape.fHeight.SetInt32(height);
        shape.fColourspace.SetInt32(raster);
        shape.fBytesPerRow.SetInt32(raster == 'I420' ? width : 2 * width);
        const std::unique_ptr<tnStreamBufferGroup> group(
            tnStreamBufferGroup::CreateForFormat(shape, 1));
        tnStreamBuffer* buffer = nullptr;
        ASSERT_EQ(group->GetBuffer(&buffer, true), 0);
        std::memset(buffer->GetPointer(), 128, static_cast<std::size_t>(width) * height);
        write(frame, *buffer, shape);
    }
    /// In one block, of one frame or of so many.
    void WriteSound(int frame, int frames = 1) {
        const long long first = PositionOf(frame);
        std::vector<short> samples;
        for (long long i = first; i < PositionOf(frame + frames); ++i) {
            const auto value = static_cast<short>(
                8000 * std::sin(static_cast<double>(i % kRate) * 2 * 3.14159265 * 440 / kRate));
            samples.insert(samples.end(), {value, value});
        }
        if (fFlashAt >= 0) std::fill(samples.begin(), samples.end(), short{0});
        if (frame == fFlashAt) std::fill_n(samples.begin(), 96, short{30000});
        fManager->SetInputFormat(fSource + 1, Sound(nullptr));
        const long long moved = fSoundMove ? fSoundMove(frame) : 0;
        fManager->WriteAudioSamples(fSource + 1, MsOf(frame), samples.data(),
                                    static_cast<unsigned int>(samples.size() * 16),
                                    OriginOf(frame, kRate) + first + moved, 0, 0);
    }

    long long MsOf(int frame) const { return frame * fTicks * 1000 / kScale; }
    long long PositionOf(int frame) const { return frame * fTicks * kRate / kScale; }
    /// Where the lines' origin lies at that frame, in units of a second's `scale`th.
    long long OriginOf(int frame, int scale) const {
        return fOrigin * scale + (frame >= fJumpAt ? std::llround(fJump * scale) : 0);
    }
    double SecondsOf(int frame) const { return static_cast<double>(frame * fTicks) / kScale; }

    /// Lets this frame be white with a click at its very start, and the rest silent.
    void FlashAt(int frame) { fFlashAt = frame; }
    /// Lets the sound of these frames never be written.
    void LoseSound(int from, int to) {
        fMuteFrom = from;
        fMuteTo = to;
    }
    /// Lets times of pictures and positions of sound count from so many seconds.
    void BeginAt(long long seconds) { fOrigin = seconds; }
    /// Lets both jump by so many seconds from this frame on; the host's own line runs on.
    void JumpAt(int frame, double seconds) {
        fJumpAt = frame;
        fJump = seconds;
    }
    /// Moves the positions of the sound, alone, by so many samples, frame by frame.
    void MoveSound(std::function<long long(int frame)> by) { fSoundMove = std::move(by); }

    /// A picture that no other frame has: a moving ramp with a block that walks over it.
    static void Paint(int frame, unsigned char* out) {
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const bool inBlock = (x / 16 == frame % 20) && (y / 16 == frame / 20 % 11);
                *out++ = static_cast<unsigned char>(inBlock ? 235 : 40 + (x + y + 2 * frame) % 128);
            }
        }
        std::memset(out, 100 + frame % 50, kWidth * kHeight / 4);
        std::memset(out + kWidth * kHeight / 4, 150 - frame % 50, kWidth * kHeight / 4);
    }

private:
    /// Gives the frame back.
    void write(int frame, tnStreamBuffer& buffer, const tnMediaRecord& shape) {
        buffer.AddWritingRef();
        fManager->WriteVideoSample(fSource, MsOf(frame), OriginOf(frame, kScale) + frame * fTicks,
                                   buffer, shape);
        buffer.ReleaseWriting();
    }

    const int fSource;
    const long long fTicks;
    int fFlashAt = -1;
    int fMuteFrom = 0;
    int fMuteTo = 0;
    long long fOrigin = 0;
    int fJumpAt = 0;
    double fJump = 0;  // seconds
    std::function<long long(int)> fSoundMove;
    std::shared_ptr<tnFilterManager> fManager = tnFilterManager::Default();
    std::unique_ptr<tnStreamBufferGroup> fGroup;
};

inline zRecord TracksOf(const std::vector<tnMediaRecord>& tracks) {
    zRecord list;
    for (const tnMediaRecord& track : tracks) list.AddChild(new tnMediaRecord(track), 0x7FFFFFFF);
    return list;
}

/// A movie of an add-on, and its one output.
class Show {
public:
    Show(const char* format, const std::vector<tnMediaRecord>& tracks,
         tn_output type = TN_OUTPUT_DEFAULT)
        : fType(type) {
        EXPECT_EQ(tnFiles::CreateMovieWithName(&fMovie, format, type), 0) << format;
        if (!fMovie) return;
        EXPECT_EQ(fMovie->CreateStreams(TracksOf(tracks), 0, 0), 0);
    }
    ~Show() { End(); }
    Show(const Show&) = delete;
    Show& operator=(const Show&) = delete;

    int Add(const std::string& url, const zRecord* settings = nullptr) {
        return update(url, true, settings, TN_OUTPUT_UPDATE_ADD);
    }
    int Remove() { return update("", true, nullptr, TN_OUTPUT_UPDATE_REMOVE); }
    int Enable(bool on) { return update("", on, nullptr, TN_OUTPUT_UPDATE_ENABLE); }
    void End() {
        if (fMovie) fMovie->Release();
        fMovie = nullptr;
    }
    tn_output_statistics Statistics(tnMediaType type) {
        tn_output_statistics statistics;
        tnStream* stream = nullptr;
        if (fMovie->GetWriteStreamForType(type, &stream) == 0) {
            stream->GetOutputStatistics(statistics);
            stream->Release();
        }
        return statistics;
    }
    tnMovie& Movie() { return *fMovie; }
    zRecord fResult;

private:
    int update(const std::string& url, bool on, const zRecord* settings, tn_output_update what) {
        zRecord record;
        tnOutputAccessor output(record);
        record.SetInt32('mOyp', fType);
        output.SetURL(url.c_str());
        output.SetOutputEnabled(on);
        return fMovie->UpdateOutput(output, settings, fResult, what);
    }

    const tn_output fType;
    tnMovie* fMovie = nullptr;
};

/// A filter manager of its own for each test, and the modules as a host loads them.
class AddonTest : public testing::Test {
protected:
    AddonTest() {
        static const bool booted = zBoot::StartAll() == 0;
        EXPECT_TRUE(booted);
        static jigManager addons;
        static const int count = addons.LoadFolder(TARN_ADDONS);
        EXPECT_EQ(count, 6);
        tnFiles::LoadAddons(addons);
        tnFilterManager::Startup();
        tnCodecFilters::Register(*tnFilterManager::Default());
    }

    tests::TestFolder fFolder;
};

struct Packet {
    double decode = 0;  ///< seconds
    double shown = 0;
    double duration = 0;
    int size = 0;
    bool key = false;
};

/// The packets of a stream in the order of the file.
inline std::vector<Packet> PacketsOf(const std::string& path, const char* stream) {
    std::istringstream lines(
        tests::Run({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
                    "packet=pts_time,dts_time,duration_time,size,flags", "-of", "csv=p=0", path})
            .out);
    std::vector<Packet> packets;
    for (std::string line; std::getline(lines, line);) {
        Packet packet;
        char flags[8] = {};
        if (std::sscanf(line.c_str(), "%lf,%lf,%lf,%d,%7s", &packet.shown, &packet.decode,
                        &packet.duration, &packet.size, flags) != 5) {
            continue;
        }
        packet.key = flags[0] == 'K';
        packets.push_back(packet);
    }
    return packets;
}

/// Every frame once and in its place: shown times that lie `step` seconds apart, from `first` on.
inline void ExpectEveryFrame(const std::string& path, double first, double step, std::size_t least,
                             double tolerance = 0.0006) {
    std::vector<Packet> packets = PacketsOf(path, "v:0");
    ASSERT_GE(packets.size(), least) << path;
    EXPECT_TRUE(packets.front().key) << path;
    std::vector<double> shown;
    for (const Packet& packet : packets) shown.push_back(packet.shown);
    std::sort(shown.begin(), shown.end());
    for (std::size_t i = 0; i < shown.size(); ++i) {
        // Pictures that wait for one inside the encoder are missing at the end.
        if (i + 4 > shown.size()) break;
        ASSERT_NEAR(shown[i], first + static_cast<double>(i) * step, tolerance) << path << " " << i;
    }
}

/// Whether a decoder reads the file without a complaint.
inline void ExpectClean(const std::string& path) {
    const tests::ProcessResult result =
        tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-err_detect", "explode", "-i", path, "-f",
                    "null", "-"});
    EXPECT_EQ(result.exitCode, 0) << path;
    EXPECT_EQ(result.err, "") << path;
}

/// Hashes of the decoded pictures, one a line.
inline std::vector<std::string> PictureHashes(const std::string& path) {
    const std::string text =
        tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-i", path, "-map", "0:v:0", "-fps_mode",
                    "passthrough", "-f", "framemd5", "-"})
            .out;
    std::vector<std::string> hashes;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t end = text.find('\n', at);
        const std::string line = text.substr(at, end - at);
        if (!line.empty() && line[0] != '#') hashes.push_back(line.substr(line.rfind(' ') + 1));
        if (end == std::string::npos) break;
        at = end + 1;
    }
    return hashes;
}

}  // namespace addonTest
