#pragma once

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
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
    static constexpr int kWidth = 320;
    static constexpr int kHeight = 180;
    static constexpr long long kScale = 30000;
    static constexpr long long kTicks = 1001;
    static constexpr int kRate = 48000;

    explicit Camera(int source) : fSource(source) {
        fGroup.reset(tnStreamBufferGroup::CreateForFormat(Picture(nullptr), 2));
        fManager->SetInputFormat(fSource, Picture(nullptr));
        fManager->SetInputFormat(fSource + 1, Sound(nullptr));
    }

    tnMediaRecord Picture(const char* codec) const {
        tnMediaRecord record(TN_MEDIA_VIDEO);
        record.fWidth.SetInt32(kWidth);
        record.fHeight.SetInt32(kHeight);
        record.fColourspace.SetInt32('I420');
        record.fBytesPerRow.SetInt32(kWidth);
        record.SetInt64('tmsc', kScale);
        record.SetUInt64('dura', kTicks);
        record.SetFloat('mfps', 29.97f);
        record.SetInt32("source_id", fSource);
        record.SetBool('mena', true);
        if (codec) record.SetCString('mcon', codec);
        return record;
    }
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
            WriteSound(frame);
            WritePicture(frame);
        }
    }
    void WritePicture(int frame) {
        tnStreamBuffer* buffer = nullptr;
        ASSERT_EQ(fGroup->GetBuffer(&buffer, true), 0);
        Paint(frame, static_cast<unsigned char*>(buffer->GetPointer()));
        buffer->AddWritingRef();
        fManager->WriteVideoSample(fSource, MsOf(frame), frame * kTicks, *buffer, Picture(nullptr));
        buffer->ReleaseWriting();
    }
    void WriteSound(int frame) {
        const long long first = PositionOf(frame);
        std::vector<short> samples;
        for (long long i = first; i < PositionOf(frame + 1); ++i) {
            const auto value = static_cast<short>(
                8000 * std::sin(static_cast<double>(i % kRate) * 2 * 3.14159265 * 440 / kRate));
            samples.insert(samples.end(), {value, value});
        }
        fManager->WriteAudioSamples(fSource + 1, MsOf(frame), samples.data(),
                                    static_cast<unsigned int>(samples.size() * 16), first, 0, 0);
    }

    static long long MsOf(int frame) { return frame * kTicks * 1000 / kScale; }
    static long long PositionOf(int frame) { return frame * kTicks * kRate / kScale; }

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
    const int fSource;
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
        EXPECT_EQ(count, 5);
        tnFiles::LoadAddons(addons);
        tnFilterManager::Startup();
        tnCodecFilters::Register(*tnFilterManager::Default());
    }

    tests::TestFolder fFolder;
};

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
