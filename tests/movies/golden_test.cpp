#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "tests/movies/BoxText.h"
#include "tests/movies/MovieCheck.h"
#include "tests/movies/MovieFolder.h"

using namespace Quillon::Orb;

namespace {

/// Compares with the text that is kept under that name; writes it when TARN_REWRITE_GOLDEN is set,
/// for a change that is wanted. What then differs is read in the commit.
void expect_golden(const std::string& name, const std::string& text) {
    const std::string path = std::string(TARN_GOLDEN) + "/" + name + ".txt";
    if (std::getenv("TARN_REWRITE_GOLDEN")) std::ofstream(path) << text;
    std::ifstream file(path);
    std::stringstream kept;
    kept << file.rdbuf();
    EXPECT_EQ(text, kept.str()) << path;
}

std::vector<unsigned char> bytes_of_box(const BoxFile& file, const ByteReader& bytes,
                                        const char* path) {
    const Box* box = file.Find(path);
    if (!box) return {};
    const std::span<const unsigned char> found = bytes(box->position, box->size);
    return {found.begin(), found.end()};
}

/// Records `clip` and gives the file's ftyp and moov as text.
std::string tree_of(const MediaClip& clip, unsigned int container) {
    const std::string path = MovieFolder() + "/golden.mov";
    WriteOptions options;
    options.container = container;
    const Result result = WriteClipTo(path, clip, options);
    EXPECT_EQ(result, 0) << result.GetMessage();
    const BoxFile file = ParseBoxFile(path);
    EXPECT_EQ(file.Complaints(), "");
    const ByteReader bytes = BytesOf(path);
    const Box* media = file.Find("mdat");
    if (!media) return "no media";
    std::vector<unsigned char> all = bytes_of_box(file, bytes, "ftyp");
    const std::vector<unsigned char> moov = bytes_of_box(file, bytes, "moov");
    all.insert(all.end(), moov.begin(), moov.end());
    return BoxText(all, media->position + media->headSize);
}

const unsigned int kContainers[] = {'mov ', 'mp4 '};

std::string suffix(unsigned int container) {
    return container == 'mov ' ? "_mov" : "_mp4";
}

TEST(Golden, H264WithReorderedPicturesAndAac) {
    ClipShape shape{.seconds = 0.2, .framesPerSecond = 50, .reordered = true, .keyEvery = 6};
    const MediaClip clip = MakeUpClip(shape);
    for (const unsigned int container : kContainers)
        expect_golden("h264_aac" + suffix(container), tree_of(clip, container));
}

TEST(Golden, ProResAnamorphicInterlacedWithTwoTracksOfPcm) {
    MediaClip clip = MakeUpClip(
        {.seconds = 0.2, .keyEvery = 1, .videoFormat = 'apch', .sounds = {'sowt', '23lf'}});
    MovieTrack& video = clip.tracks[0];
    video.width = 1440;
    video.height = 1080;
    video.fieldOrder = 2;
    video.pixelAspectNumerator = 1920;
    video.pixelAspectDenominator = 1440;
    video.cleanWidth = 1416;
    video.cleanHeight = 1062;
    for (const unsigned int container : kContainers)
        expect_golden("prores_pcm" + suffix(container), tree_of(clip, container));
}

struct Described {
    const char* name;
    unsigned int video;
    MovieColour colour;
    int fieldOrder;
    unsigned int sound;
    int rate;
};

// Every format of picture and sound once, with the colours and field orders between them.
const Described kDescribed[] = {
    {"H.264, BT.709", 'avc1', {1, 1, 1, false}, 1, 'mp4a', 48000},
    {"ProRes Proxy, no colour said", 'apco', {}, 1, 'sowt', 48000},
    {"ProRes LT, BT.601 of 525 lines", 'apcs', {6, 1, 6, false}, 3, 'twos', 44100},
    {"ProRes 422, BT.601 of 625 lines", 'apcn', {5, 1, 6, false}, 2, 'in32', 48000},
    {"ProRes HQ", 'apch', {1, 1, 1, false}, 1, '23ni', 48000},
    {"ProRes 4444", 'ap4h', {1, 1, 1, false}, 1, 'fl32', 48000},
    {"Motion JPEG, full range", 'jpeg', {1, 1, 1, true}, 1, '23lf', 48000},
    {"MPEG-2, matrix alone", 'mp2v', {0, 0, 1, false}, 2, '42ni', 48000},
    {"rates beyond 65535", 'apch', {1, 1, 1, false}, 1, '23lf', 96000},
};

TEST(Golden, DescriptionOfEveryFormat) {
    for (const unsigned int container : kContainers) {
        std::string text;
        for (const Described& described : kDescribed) {
            MediaClip clip = MakeUpClip(
                {.seconds = 0.1, .videoFormat = described.video, .sounds = {described.sound}});
            clip.tracks[0].colour = described.colour;
            clip.tracks[0].fieldOrder = described.fieldOrder;
            clip.tracks[1].timescale = clip.tracks[1].sampleRate = described.rate;
            text += std::string("# ") + described.name + "\n";
            std::istringstream tree(tree_of(clip, container));
            bool inside = false;
            for (std::string line; std::getline(tree, line);) {
                const auto depth = line.find_first_not_of(' ');
                if (line.compare(depth, 4, "stsd") == 0) inside = true;
                if (line.compare(depth, 4, "stts") == 0) inside = false;
                if (inside) text += line.substr(10) + "\n";
            }
        }
        expect_golden("descriptions" + suffix(container), text);
    }
}

}  // namespace
