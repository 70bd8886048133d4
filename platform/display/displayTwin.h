#pragma once

#include <cstdint>
#include <memory>

// The display-link calls on Linux. Names, argument order and result codes are CoreVideo's own, so
// that one source serves both. What stands behind a link is a displayRefreshSource.

using CGDirectDisplayID = uint32_t;
using CVReturn = int32_t;
using CVOptionFlags = uint64_t;

enum : CVReturn {
    kCVReturnSuccess = 0,
    kCVReturnError = -6660,
    kCVReturnInvalidArgument = -6661,
    kCVReturnInvalidDisplay = -6670,
    kCVReturnDisplayLinkAlreadyRunning = -6671,
    kCVReturnDisplayLinkNotRunning = -6672,
    kCVReturnDisplayLinkCallbacksNotSet = -6673,
};

enum : int32_t { kCVTimeIsIndefinite = 1 << 0 };

enum : uint64_t {
    kCVTimeStampVideoTimeValid = 1 << 0,
    kCVTimeStampHostTimeValid = 1 << 1,
    kCVTimeStampVideoRefreshPeriodValid = 1 << 3,
    kCVTimeStampRateScalarValid = 1 << 4,
};

/// `timeValue / timeScale` seconds.
struct CVTime {
    int64_t timeValue;
    int32_t timeScale;
    int32_t flags;
};

/// Video time and period in units of a second divided by `videoTimeScale`.
struct CVTimeStamp {
    uint32_t version;
    int32_t videoTimeScale;
    int64_t videoTime;
    uint64_t hostTime;
    double rateScalar;
    int64_t videoRefreshPeriod;
    uint64_t flags;
};

struct __CVDisplayLink;
using CVDisplayLinkRef = __CVDisplayLink*;

using CVDisplayLinkOutputCallback = CVReturn (*)(CVDisplayLinkRef displayLink,
                                                 const CVTimeStamp* inNow,
                                                 const CVTimeStamp* inOutputTime,
                                                 CVOptionFlags flagsIn, CVOptionFlags* flagsOut,
                                                 void* displayLinkContext);

/// The only display that a link can be made for here.
CGDirectDisplayID CGMainDisplayID();

/// A stopped link that the caller owns and gives back by CVDisplayLinkRelease. Null in
/// `displayLinkOut`, and kCVReturnInvalidDisplay or kCVReturnError, when there is none to have.
CVReturn CVDisplayLinkCreateWithCGDisplay(CGDirectDisplayID displayID,
                                          CVDisplayLinkRef* displayLinkOut);

/// Set while the link is stopped.
CVReturn CVDisplayLinkSetOutputCallback(CVDisplayLinkRef displayLink,
                                        CVDisplayLinkOutputCallback callback, void* userInfo);

/// The callback runs from now on, at each refresh, on the link's thread. Waits for a callback that
/// has stopped the link and is still under way. From the callback itself it changes nothing:
/// kCVReturnDisplayLinkAlreadyRunning, also after its own stop.
CVReturn CVDisplayLinkStart(CVDisplayLinkRef displayLink);

/// No callback runs once this has returned; waits for one that is under way, unless it is the
/// callback that stops.
CVReturn CVDisplayLinkStop(CVDisplayLinkRef displayLink);

/// Ends the link, and stops it when it runs. Null is allowed. Not from the callback.
void CVDisplayLinkRelease(CVDisplayLinkRef displayLink);

/// Indefinite for a null link.
CVTime CVDisplayLinkGetNominalOutputVideoRefreshPeriod(CVDisplayLinkRef displayLink);

class displayRefreshSource;

/// What a test may put in the place of the machine's display. Set it while no link is made.
class displayTwin {
public:
    using SourceFactory = std::unique_ptr<displayRefreshSource> (*)();

    /// Where new links get their refreshes from; null gives the machine's display back. A factory
    /// that gives null makes the creation of a link fail.
    static void SetSourceFactory(SourceFactory factory);
};
