// A movie file writer's set-up: which fault is told first, what of the records asks for a track,
// what the container is told, and what a set-up that failed leaves behind.

#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "orb/CContainerWriter.h"
#include "orb/ContainerProperty.h"

#include "tests/support/WriterFixture.h"
#include "tests/support/writerWaits.h"

using namespace writerFixture;
using writerWaits::Waits;

namespace Key = ContainerProperty::Mpeg4ContainerWriter;

namespace {

struct Fault {
    int code;
    std::function<void()> mend;
};

class FaultySetUp : public Writer {
protected:
    /// Every fault is there from the start; each is mended once it was told.
    void expect_in_order(const std::vector<Fault>& faults) {
        int step = 1;
        for (const Fault& fault : faults) {
            EXPECT_EQ(fWriter->CompleteInitialization(), fault.code) << "step " << step;
            fault.mend();
            ++step;
        }
        EXPECT_EQ(fWriter->CompleteInitialization(), 0);
    }
    void encode_video(const tnMediaRecord& encoded) { fWriter->SetEncodedVideoFormat(encoded); }
    void encode_audio(const tnMediaRecord& encoded) { fWriter->SetEncodedAudioFormat(encoded); }

    Waits fWaits;
};

TEST_F(FaultySetUp, OfPicturesTellsTheFirstFault) {
    const tnMediaRecord good = encoded_video("Video Toolbox H.264");
    tnMediaRecord tooLow = good;
    tooLow.fHeight.SetInt32(-1);
    constexpr int kNoSuchRate = -1;
    open('mov ', 0, kNoSuchRate);
    fWriter->SetSourceVideoFormat(raw_video());
    encode_video(tooLow);
    fWriter->SetSourceAudioFormat(pcm());
    encode_audio(encoded_audio(nullptr, 48000, 2, 24));

    fScript.noInputFormats = true;
    fScript.inputFormats = {'NV12'};
    fScript.failInput = true;
    fScript.refused = {"VideoToolboxCompressor::Profile"};
    fScript.failBegin = true;
    Script none;
    std::optional<Registered<CVideoConverter, Converter>> inFront(std::in_place, 'vfc ', none);
    inFront->GiveNull();
    fConverterScript.failInput = true;
    fConverterScript.refused = {"MediaFilter::OutputFormat"};
    fConverterScript.failBegin = true;
    fWaits.fRefuseTracks = true;
    fFile.failBegin = true;

    expect_in_order({
        {-1041, [&] { encode_video(good); }},
        {-1041, [&] { fScript.noInputFormats = false; }},
        {-1042, [&] { fScript.failInput = false; }},
        {-1040, [&] { inFront.reset(); }},
        {-1038, [&] { fConverterScript.failInput = false; }},
        {-1039, [&] { fConverterScript.refused.clear(); }},
        {-1040, [&] { fConverterScript.failBegin = false; }},
        {-1041, [&] { fScript.refused.clear(); }},
        {-1042, [&] { fWaits.fRefuseTracks = false; }},
        {-1041, [&] { open(); }},
        {-1043, [&] { fScript.failBegin = false; }},
        {-1035, [&] { fScript.inHardware = true; }},
        {-1041, [&] { encode_audio(encoded_audio(nullptr)); }},
        {-1006, [&] { fFile.failBegin = false; }},
    });
}

TEST_F(FaultySetUp, OfSoundTellsTheFirstFault) {
    Script script;
    script.inputFormats.clear();
    script.outputFormats = {'mp4a'};
    script.refused = {"AudioCompressor::BitRate"};
    script.failBegin = true;
    const Registered<CAudioCompressor, AudioDouble> aac('caac', script);
    fWaits.fRefuseTracks = true;
    fFile.failBegin = true;
    open();
    fWriter->SetSourceAudioFormat(pcm());
    encode_audio(encoded_audio("MPEG-4 Audio", 48000, 6, 24));

    expect_in_order({
        {-1041, [&] { encode_audio(encoded_audio("MPEG-4 Audio", 48000, 6)); }},
        {-1054, [&] { encode_audio(encoded_audio("MPEG-4 Audio")); }},
        {-1042, [&] { script.inputFormats = {'sowt'}; }},
        {-1057, [&] { script.refused.clear(); }},
        {-1057, [&] { fWaits.fRefuseTracks = false; }},
        {-1056, [&] { script.failBegin = false; }},
        {-1006, [&] { fFile.failBegin = false; }},
    });
}

TEST_F(Writer, ARecordThatIsEmptyOrNotEnabledAsksForNoTrack) {
    const auto without_enabled = [](tnMediaRecord record) {
        record.RemoveID('mena');
        return record;
    };
    const auto disabled = [](tnMediaRecord record) {
        record.SetBool('mena', false);
        return record;
    };
    const tnMediaRecord empty;
    const tnMediaRecord pictures = encoded_video("MJPEG");
    const tnMediaRecord sound = encoded_audio(nullptr);
    struct Case {
        const char* name;
        tnMediaRecord sourceVideo, encodedVideo, sourceAudio, encodedAudio;
    };
    const Case cases[] = {
        {"no source", empty, pictures, empty, sound},
        {"nothing encoded", raw_video(), empty, pcm(), empty},
        {"not told", raw_video(), without_enabled(pictures), pcm(), without_enabled(sound)},
        {"disabled", raw_video(), disabled(pictures), pcm(), disabled(sound)},
    };
    const unsigned char block[400] = {};
    for (const Case& row : cases) {
        open();
        fWriter->SetSourceVideoFormat(row.sourceVideo);
        fWriter->SetEncodedVideoFormat(row.encodedVideo);
        fWriter->SetSourceAudioFormat(row.sourceAudio);
        fWriter->SetEncodedAudioFormat(row.encodedAudio);
        EXPECT_EQ(fWriter->CompleteInitialization(), 0) << row.name;
        EXPECT_TRUE(fFile.tracks.empty()) << row.name;
        Frame frame(0, 1001);
        EXPECT_EQ(fWriter->WriteVideo(frame), -1006) << row.name;
        Packet packet;
        EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), -1006) << row.name;
        fWriter->Close();
    }
}

// Every record here asks for a bit rate.
TEST_F(Writer, CodecsThatHaveNoBitRateAreNotToldOfOne) {
    const struct {
        const char* codec;
        std::vector<std::string> settings;
    } rows[] = {{"ProRes", {}}, {"MJPEG", {"JpegCompressor::Quality"}}};
    for (const auto& row : rows) {
        fScript.order.clear();
        ASSERT_EQ(set_up(encoded_video(row.codec)), 0);
        EXPECT_EQ(settings(), row.settings) << row.codec;
        fWriter->Close();
    }
}

/// Reaches what only a container itself declares.
struct Declaring : CContainerWriter {
    static void Refuse(CContainerWriter& container, const PropertyName& name) {
        (container.*(&Declaring::DeclareReadOnlyFlag))(name, false);
    }
};

class TunedContainer : public Writer {
protected:
    /// The container of the next set-up; `spoil` sees it before it is tuned.
    RObject<CContainerWriter> tuned(const std::function<void(CContainerWriter&)>& spoil) {
        RObject<CContainerWriter> container;
        Waits waits;
        waits.fOnVideoTrack = [&](CAssetWriter& asset) {
            container = asset.GetContainerWriter();
            spoil(*container);
        };
        open('mov ', 0, kMoovRate);
        fWriter->SetSourceVideoFormat(raw_video());
        fWriter->SetEncodedVideoFormat(encoded_video("MJPEG"));
        fCode = fWriter->CompleteInitialization();
        return container;
    }
    static bool flag(const CContainerWriter& container, const PropertyName& name) {
        bool value = false;
        EXPECT_EQ(container.GetProperty(name, value), 0);
        return value;
    }
    static int moov_rate(const CContainerWriter& container) {
        int value = 0;
        EXPECT_EQ(container.GetProperty(Key::MoovRate, value), 0);
        return value;
    }

    static constexpr int kMoovRate = 5;
    static constexpr int kOwnMoovRate = 1;
    int fCode = 0;
};

TEST_F(TunedContainer, StartsFastAndTrimsItsSoundWhateverItsOwnChoice) {
    const auto container = tuned([](CContainerWriter& fresh) {
        EXPECT_EQ(fresh.SetProperty(Key::FastStart, false), 0);
        EXPECT_EQ(fresh.SetProperty(Key::TrimAudio, false), 0);
    });
    EXPECT_EQ(fCode, 0);
    EXPECT_TRUE(fFile.options.fastStart);
    EXPECT_TRUE(fFile.options.trimAudio);
    EXPECT_EQ(fFile.options.checkpointSeconds, kMoovRate);
}

TEST_F(TunedContainer, IsTunedNoFurtherThanItsFirstRefusal) {
    auto container = tuned([](CContainerWriter& fresh) {
        EXPECT_EQ(fresh.SetProperty(Key::TrimAudio, false), 0);
        Declaring::Refuse(fresh, Key::FastStart);
    });
    EXPECT_EQ(fCode, -1041);
    EXPECT_FALSE(flag(*container, Key::TrimAudio));
    EXPECT_EQ(moov_rate(*container), kOwnMoovRate);

    container = tuned([](CContainerWriter& fresh) { Declaring::Refuse(fresh, Key::TrimAudio); });
    EXPECT_EQ(fCode, -1041);
    EXPECT_EQ(moov_rate(*container), kOwnMoovRate);
}

TEST_F(Writer, ATracksQueueInTheFileIsLong) {
    open();
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    fFile.stuck = true;
    const unsigned char block[400] = {};
    Packet packet;
    ASSERT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), 0);
    while (!fFile.entered) std::this_thread::yield();  // with the first block in its hands
    int queued = 0;
    for (; fWriter->IsAudioReady() && queued < 1000; ++queued) {
        ASSERT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), 0);
    }
    EXPECT_EQ(queued, 128);
    fFile.stuck = false;
    fWriter->Close();
}

/// A track of which nobody knows what it is.
class NamelessTrack final : public CAssetAudioWriter {
public:
    NamelessTrack() : CAssetAudioWriter(nullptr) {}
    CAudioProperties* GetProperties() override { return nullptr; }
};

TEST_F(Writer, ASoundTrackWithoutPropertiesFails) {
    for (const unsigned int container : {'mov ', 'mp4 '}) {
        open(container);
        tnWriteORB2TestPeer::PutSoundTrack(*fWriter, new NamelessTrack);
        EXPECT_EQ(fWriter->CompleteInitialization(), -1041);
    }
    const RegisteredFile other(fFile, {'xtra'});
    open('xtra');
    EXPECT_EQ(fWriter->CompleteInitialization(), 0) << "nobody asks";
}

// AAC is kept once it is set up, PCM at once: it stays behind, and belongs to no file.
TEST_F(Writer, ASoundTrackThatFailedIsKeptAsFarAsItCame) {
    const unsigned char block[400] = {};
    Packet packet;
    Script script;
    script.inputFormats = {'sowt'};
    script.outputFormats = {'mp4a'};
    script.refused = {"AudioCompressor::BitRate"};
    const Registered<CAudioCompressor, AudioDouble> aac('caac', script);
    open();
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio("MPEG-4 Audio"));
    EXPECT_EQ(fWriter->CompleteInitialization(), -1057);
    fWriter->SetEncodedAudioFormat(tnMediaRecord());
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), -1006);
    fWriter->Close();

    open();
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    {
        Waits waits;
        waits.fRefuseTracks = true;
        EXPECT_EQ(fWriter->CompleteInitialization(), -1057);
    }
    fWriter->SetEncodedAudioFormat(tnMediaRecord());
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), -1059);
}

}  // namespace
