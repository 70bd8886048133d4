// The smallest host: one camera, one output.
//
//   hello_host ADDONS_FOLDER FORMAT PATH_OR_ADDRESS [SECONDS]
//   hello_host /usr/local/lib/tarn/addons "Shared MPEG-4" hello.mp4
//
// It renders a moving picture with a tone and writes both to the filter manager, which encodes them
// for whatever output of an add-on asked for them.

#include <cmath>
#include <cstdio>
#include <cstdlib>
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

namespace {

// A source of the filter manager has one input format, so pictures and sound are two sources.
constexpr int kPictures = 1;
constexpr int kSound = 2;
constexpr int kWidth = 640;
constexpr int kHeight = 360;
constexpr int kFps = 30;
constexpr int kRate = 48000;

tnMediaRecord picture_format() {
    tnMediaRecord format(TN_MEDIA_VIDEO);
    format.SetBool('mena', true);
    format.SetInt32("source_id", kPictures);
    format.fWidth.SetInt32(kWidth);
    format.fHeight.SetInt32(kHeight);
    format.fColourspace.SetInt32('2vuy');  // packed 4:2:2
    format.SetBytesPerRowBasedOnFormat();
    format.SetInt64('tmsc', kFps);  // a frame is one tick
    format.SetFloat('mfps', kFps);
    format.SetCString('mcon', "x264");  // what the output shall carry
    return format;
}

tnMediaRecord sound_format() {
    tnMediaRecord format(TN_MEDIA_AUDIO);
    format.SetBool('mena', true);
    format.SetInt32("source_id", kSound);
    format.SetInt32("audio_output_track_mask", 1);
    format.MakeDefaultAudioFormat();  // 48 kHz, stereo, 16 bits
    format.SetCString('mcon', "MPEG-4 Audio");
    return format;
}

void paint(int frame, unsigned char* row, int pitch) {
    for (int y = 0; y < kHeight; ++y, row += pitch) {
        for (int x = 0; x < kWidth; ++x) {
            row[2 * x] = x % 2 == 0 ? 90 : 160;  // colour, then brightness
            row[2 * x + 1] = static_cast<unsigned char>(40 + (x + y + 3 * frame) % 160);
        }
    }
}

void write_picture(tnFilterManager& manager, tnStreamBufferGroup& group, int frame) {
    static const tnMediaRecord format = picture_format();
    tnStreamBuffer* buffer = nullptr;
    if (group.GetBuffer(&buffer, true) != 0) return;
    paint(frame, static_cast<unsigned char*>(buffer->GetPointer()), format.fBytesPerRow.AsInt32(0));
    buffer->AddWritingRef();  // ours; each output takes one of its own
    manager.WriteVideoSample(kPictures, frame * 1000LL / kFps, frame, *buffer, format);
    buffer->ReleaseWriting();  // at the last release it is free again
}

// A thirtieth of a second at a time, at any frame rate: outputs of plain PCM take nothing else.
void write_sound(tnFilterManager& manager, int frame) {
    std::vector<short> block(kRate / kFps * 2);
    const long long first = static_cast<long long>(frame) * kRate / kFps;
    for (std::size_t i = 0; i < block.size(); ++i) {
        const double second = static_cast<double>(first + static_cast<long long>(i / 2)) / kRate;
        block[i] = static_cast<short>(6000 * std::sin(second * 2 * 3.14159265 * 440));
    }
    const auto bits = static_cast<unsigned int>(block.size() * sizeof(short) * 8);
    manager.WriteAudioSamples(kSound, frame * 1000LL / kFps, block.data(), bits, first, 0, 0);
}

int run(tnMovie& movie, const char* place, int seconds) {
    zRecord tracks;  // owns its children
    tracks.AddChild(new tnMediaRecord(picture_format()), -1);
    tracks.AddChild(new tnMediaRecord(sound_format()), -1);
    int code = movie.CreateStreams(tracks, 0, 0);
    if (code != 0) return code;

    zRecord record;
    tnOutputAccessor output(record);
    const bool isAddress = std::string(place).find("://") != std::string::npos;
    output.SetOutputType(isAddress ? TN_OUTPUT_STREAMING : TN_OUTPUT_DEFAULT);
    output.SetOutputEnabled(true);
    output.SetURL(place);
    zRecord result;
    code = movie.UpdateOutput(output, nullptr, result, TN_OUTPUT_UPDATE_ADD);
    if (code != 0) return code;

    const std::shared_ptr<tnFilterManager> manager = tnFilterManager::Default();
    const std::unique_ptr<tnStreamBufferGroup> group(
        tnStreamBufferGroup::CreateForFormat(picture_format(), 2));
    manager->SetInputFormat(kPictures, picture_format());
    manager->SetInputFormat(kSound, sound_format());
    for (int frame = 0; frame < seconds * kFps; ++frame) {  // a real host writes on a clock's ticks
        write_sound(*manager, frame);
        write_picture(*manager, *group, frame);
    }
    code = movie.UpdateOutput(output, nullptr, result, TN_OUTPUT_UPDATE_REMOVE);

    tnStream* stream = nullptr;
    if (code != 0 || movie.GetWriteStreamForType(TN_MEDIA_AUDIO, &stream) != 0) return code;
    tn_output_statistics statistics;
    stream->GetOutputStatistics(statistics);
    stream->Release();
    return statistics.fStatus;
}

}  // namespace

int main(int count, char** words) {
    if (count < 4) {
        std::fprintf(stderr, "hello_host ADDONS_FOLDER FORMAT PATH_OR_ADDRESS [SECONDS]\n");
        return 2;
    }
    zBoot::Depends('tarn', tnTarn::boot_Module);
    if (zBoot::StartAll() != 0) return 1;
    jigManager addons;
    addons.LoadFolder(words[1]);
    tnFiles::LoadAddons(addons);
    tnCodecFilters::Register(*tnFilterManager::Default());

    tnMovie* movie = nullptr;
    int code = tnFiles::CreateMovieWithName(&movie, words[2], TN_OUTPUT_DEFAULT);
    if (code == 0) code = run(*movie, words[3], count > 4 ? std::atoi(words[4]) : 5);
    if (movie) movie->Release();
    zBoot::StopAll();
    if (code != 0) std::fprintf(stderr, "hello_host: '%s': error %d\n", words[3], code);
    return code == 0 ? 0 : 1;
}
