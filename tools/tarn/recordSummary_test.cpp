#include "recordSummary.h"

#include <gtest/gtest.h>
#include <string>

#include "Recorder.h"

namespace {

class SummaryOfARecording : public testing::Test {
protected:
    SummaryOfARecording() {
        fOptions.output = "a.mov";
        fFigures.frames = 50;
        fFigures.audioFrames = 96000;
        fFigures.seconds = 2;
    }

    std::string Summary(bool stopped = false) const {
        return RecordSummary(fOptions, fFigures, 1'200'000, 0.5, stopped);
    }

    RecordOptions fOptions;
    RecordFigures fFigures;
};

TEST_F(SummaryOfARecording, TellsWhatStandsInTheFile) {
    EXPECT_EQ(Summary(),
              "a.mov: 0:02.0 of x264 video (50 frames) and aac audio, 1.2 MB, written in 0.5 s\n");
    EXPECT_EQ(Summary(true),
              "a.mov: 0:02.0 of x264 video (50 frames) and aac audio, 1.2 MB, written in 0.5 s; "
              "stopped on request\n");
    fFigures.audioFrames = 0;
    EXPECT_EQ(Summary(),
              "a.mov: 0:02.0 of x264 video (50 frames) and no audio, 1.2 MB, written in 0.5 s\n");
}

TEST_F(SummaryOfARecording, SpeaksOfNoVideoThatNobodyWanted) {
    fOptions.video = "none";
    fFigures.frames = 0;
    EXPECT_EQ(Summary(), "a.mov: 0:02.0 of aac audio, 1.2 MB, written in 0.5 s\n");
}

TEST_F(SummaryOfARecording, OneFrameIsOneAndNotOfNoLength) {
    fFigures.frames = 1;
    fFigures.seconds = 0.04;
    EXPECT_EQ(Summary(),
              "a.mov: 0:00.04 of x264 video (1 frame) and aac audio, 1.2 MB, written in 0.5 s\n");
}

TEST_F(SummaryOfARecording, AStopBeforeTheFirstPictureIsToldAsThat) {
    fFigures.frames = fFigures.audioFrames = 0;
    fFigures.seconds = 0;
    EXPECT_EQ(Summary(true), "a.mov: stopped before anything was recorded\n");
}

// A sleep that ends a few milliseconds late is no encoder that fell behind.
TEST_F(SummaryOfARecording, LatenessIsToldFromAFramesLengthOn) {
    struct Case {
        double late;
        bool live;
        bool told;
    };
    const Case cases[] = {
        {0, true, false},     {0.002, true, false}, {0.0399, true, false},
        {0.0401, true, true}, {3, true, true},      {3, false, false},
    };
    for (const bool pictures : {true, false}) {
        if (!pictures) fFigures.frames = 0;
        for (const Case& c : cases) {
            fFigures.lateSeconds = c.late;
            fOptions.live = c.live;
            EXPECT_EQ(Summary().find("fell behind") != std::string::npos, c.told) << c.late;
        }
    }
    fFigures.lateSeconds = 0.25;
    fOptions.live = true;
    EXPECT_NE(Summary().find("\nthe encoder fell behind the clip's pace by up to 250 ms\n"),
              std::string::npos);
}

}  // namespace
