#pragma once

#include <memory>

/// The mode that a display runs in, as the card tells it.
struct displayDrmMode {
    int pixelClockKhz;
    int horizontalTotal;
    int verticalTotal;
    /// Scan-outs of a line per frame, 1 unless the card repeats lines.
    int verticalScan;
    bool interlaced;
    bool doubleScan;
};

/// What vertical blanks take of a graphics card; a test brings its own.
class displayDrmCard {
public:
    virtual ~displayDrmCard() = default;

    /// The mode of display controller `pipe`, counted from 0. False when it shows nothing.
    virtual bool ActiveMode(int pipe, displayDrmMode& mode) = 0;

    virtual int PipeCount() = 0;

    /// Waits for `ahead` vertical blanks, 0 to ask for the last; `sequence` wraps at 32 bits and
    /// `realTime` is on the scale of zTime::MicroNow. False when none comes.
    virtual bool WaitForVblank(int pipe, unsigned int ahead, unsigned int& sequence,
                               long long& realTime) = 0;

    /// The card at a path such as /dev/dri/card0; null when it is not there or not ours to open.
    static std::unique_ptr<displayDrmCard> Open(const char* path);
};
