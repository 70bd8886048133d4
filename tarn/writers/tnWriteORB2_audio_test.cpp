// The sound side of a movie file writer.

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "orb/testSupport.h"

#include "tests/support/WriterFixture.h"
#include "tests/support/writerWaits.h"

using namespace writerFixture;
using writerWaits::Waits;

namespace {

TEST_F(Writer, StoresPcmPacketForPacket) {
    open();
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    const unsigned char block[401] = {};
    Packet packet;
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), 0);
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 401), 0)
        << "all bytes, a truncated length";
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 0), 0);
    EXPECT_GE(packet.written, 0);
    fWriter->Close();
    ASSERT_GE(fFile.samples.size(), 2u);
    EXPECT_EQ(fFile.samples[0].packets, 100);
    EXPECT_EQ(fFile.samples[0].size, 400u);
    EXPECT_EQ(fFile.samples[1].time, 100);
}

TEST_F(Writer, ConvertsSoundToTheFilesRate) {
    open();
    fWriter->SetSourceAudioFormat(pcm(44100));
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr, 48000));
    const std::vector<unsigned char> block(4410 * 4, 0);
    Packet packet;
    int written = 0;
    for (int i = 0; i < 20; ++i) {
        written += fWriter->WriteAudioPacket(&packet, 0, 0, block.data(),
                                             static_cast<int>(block.size())) == 0
                       ? 1
                       : 0;
    }
    EXPECT_GE(written, 18) << "a rate converter may swallow its first blocks";
    // Half a second of the file's format is what one converted block may fill: 96000 bytes.
    const std::vector<unsigned char> huge(44100 * 4, 0);
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, huge.data(), static_cast<int>(huge.size())),
              -1058);
    fWriter->Close();
}

TEST_F(Writer, ABlockMayFillHalfASecondOfTheFilesFormatToTheByte) {
    open();
    fWriter->SetSourceAudioFormat(pcm(48000, 2));
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr, 48000, 1));
    const std::vector<unsigned char> frames(24001 * 4, 0);
    Packet packet;
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, frames.data(), 24001 * 4), -1058);
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, frames.data(), 24000 * 4), 0);
    fWriter->Close();
    ASSERT_EQ(fFile.samples.size(), 1u);
    EXPECT_EQ(fFile.samples[0].packets, 24000);
}

TEST_F(Writer, SoundAloneLeavesTheContainerAsItIs) {
    open('mov ', 0, 5);
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    ASSERT_EQ(fWriter->CompleteInitialization(), 0);
    EXPECT_EQ(fFile.options.checkpointSeconds, 1);
}

TEST_F(Writer, HasACodeForEveryStepOfTheAudioSetUp) {
    const auto code_of = [this](const tnMediaRecord& source, const tnMediaRecord& encoded) {
        open();
        fWriter->SetSourceAudioFormat(source);
        fWriter->SetEncodedAudioFormat(encoded);
        const int code = fWriter->CompleteInitialization();
        fWriter->Close();
        return code;
    };
    EXPECT_EQ(code_of(pcm(), encoded_audio("MPEG-4 Audio", 48000, 2, 24)), -1041);
    EXPECT_EQ(code_of(pcm(), encoded_audio(nullptr, 48000, 0)), -1041) << "no channels";
    EXPECT_EQ(code_of(pcm(48000, 2), encoded_audio(nullptr, 48000, 6)), -1054);
    {
        Script script;
        script.inputFormats.clear();
        Registered<CAudioCompressor, AudioDouble> aac('caac', script);
        EXPECT_EQ(code_of(pcm(), encoded_audio("MPEG-4 Audio")), -1042);
        script.inputFormats = {'sowt'};
        script.outputFormats = {'mp4a'};
        script.refused = {"AudioCompressor::BitRate"};
        EXPECT_EQ(code_of(pcm(), encoded_audio("MPEG-4 Audio")), -1057);
        script.refused = {"CoreAudioCompressor::RateControlMethod"};
        EXPECT_EQ(code_of(pcm(), encoded_audio("MPEG-4 Audio")), -1057);
        script.refused.clear();
        script.failBegin = true;
        EXPECT_EQ(code_of(pcm(), encoded_audio("MPEG-4 Audio")), -1056);
        script.failBegin = false;
        tnMediaRecord rated = encoded_audio("MPEG-4 Audio");
        rated.SetInt32('mtbr', 320);
        EXPECT_EQ(code_of(pcm(), rated), 0);
        EXPECT_EQ(script.numbers["AudioCompressor::BitRate"], 128000) << "whatever the record says";
        EXPECT_EQ(script.numbers["CoreAudioCompressor::RateControlMethod"], 0);
    }
    Waits waits;
    waits.fRefuseTracks = true;
    EXPECT_EQ(code_of(pcm(), encoded_audio(nullptr)), -1057);
}

TEST_F(Writer, ASoundTrackThatTakesNoMoreSaysSo) {
    fFile.failAtSample = 1;
    open();
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    const unsigned char block[400] = {};
    Packet packet;
    int code = 0;
    for (int i = 0; i < 5000 && code == 0; ++i)
        code = fWriter->WriteAudioPacket(&packet, 0, 0, block, 400);
    EXPECT_EQ(code, -1059);
}

TEST_F(Writer, ASoundEncoderThatFailsOnceSaysSoOnceAndGoesOn) {
    Script script;
    script.inputFormats = {'sowt'};
    script.outputFormats = {'mp4a'};
    const Registered<CAudioCompressor, AudioDouble> aac('caac', script);
    open();
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio("MPEG-4 Audio"));
    const unsigned char block[400] = {};
    Packet packet;
    TraceCatcher trace;
    script.failSample = true;
    ASSERT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), 0);
    while (!trace.HasLineWith({"encoder failed"})) std::this_thread::yield();
    script.failSample = false;
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), -1059);
    EXPECT_EQ(fWriter->WriteAudioPacket(&packet, 0, 0, block, 400), 0);
    fWriter->Close();
}

TEST_F(Writer, PictureAndSoundComeFromTwoThreads) {
    open();
    fWriter->SetSourceVideoFormat(raw_video());
    fWriter->SetEncodedVideoFormat(encoded_video("MJPEG"));
    fWriter->SetSourceAudioFormat(pcm());
    fWriter->SetEncodedAudioFormat(encoded_audio(nullptr));
    std::atomic<int> failures{0};
    std::thread video([&] {
        for (int i = 0; i < 300; ++i) {
            Frame frame(i * 1001, 1001);
            if (fWriter->WriteVideo(frame) != 0) ++failures;
        }
    });
    std::thread audio([&] {
        const unsigned char block[1600 * 4] = {};
        Packet packet;
        for (int i = 0; i < 300; ++i) {
            if (fWriter->WriteAudioPacket(&packet, 0, 0, block, sizeof block) != 0) ++failures;
            fWriter->IsAllMediaReady();
        }
    });
    video.join();
    audio.join();
    fWriter->Close();
    EXPECT_EQ(failures, 0);
    int frames = 0;
    long long packets = 0;
    for (const FileScript::Sample& sample : fFile.samples) {
        if (sample.track == 0) ++frames;
        if (sample.track == 1) packets += sample.packets;
    }
    EXPECT_EQ(frames, 300);
    EXPECT_EQ(packets, 300 * 1600);
}

}  // namespace
