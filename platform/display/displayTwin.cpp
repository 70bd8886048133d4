#if !defined(__APPLE__)

#include "display/displayTwin.h"

#include <atomic>
#include <thread>
#include <utility>

#include "display/displayRefreshSource.h"
#include "display/displayTimerSource.h"
#include "spar/trace.h"
#include "spar/zThread.h"
#include "spar/zThreadMain.h"
#include "spar/zTime.h"

namespace {

constexpr CGDirectDisplayID kMainDisplay = 1;
constexpr char kThreadClass = 4;
constexpr char kRealTime = 8;  // the callback paces what people see

std::atomic<displayTwin::SourceFactory> gSourceFactory{&displayRefreshSource::ForMainDisplay};

CVTimeStamp stamp(const displayRefresh& refresh, long long realTime) {
    CVTimeStamp stamp{};
    stamp.videoTimeScale = refresh.timeScale;
    stamp.videoTime = refresh.videoTime;
    stamp.hostTime = static_cast<uint64_t>(realTime) * 1000;
    stamp.rateScalar = 1;
    stamp.videoRefreshPeriod = refresh.period;
    stamp.flags = kCVTimeStampVideoTimeValid | kCVTimeStampHostTimeValid |
                  kCVTimeStampVideoRefreshPeriodValid | kCVTimeStampRateScalarValid;
    return stamp;
}

}  // namespace

/// A link: a source of refreshes, and the thread that passes them on.
///
/// Started, stopped and released by one thread at a time. Its own callback may stop it too, but not
/// start it again: the thread that it would wait for is its own.
struct __CVDisplayLink : public zThreadMain {
public:
    explicit __CVDisplayLink(std::unique_ptr<displayRefreshSource> source)
        : fSource(std::move(source)), fTimer(fSource->Rate()) {}
    ~__CVDisplayLink() override { Stop(); }
    __CVDisplayLink(const __CVDisplayLink&) = delete;
    __CVDisplayLink& operator=(const __CVDisplayLink&) = delete;

    CVReturn SetOutputCallback(CVDisplayLinkOutputCallback callback, void* context) {
        fCallback = callback;
        fContext = context;
        return kCVReturnSuccess;
    }

    CVReturn Start() {
        if (!fCallback) return kCVReturnDisplayLinkCallbacksNotSet;
        if (fRunning || on_link_thread()) return kCVReturnDisplayLinkAlreadyRunning;
        // A callback that has stopped its link may still be at it: its thread has to have gone
        // before anything says that the link runs, or it would go on.
        end_thread();
        fRunning = true;
        fSource->Begin();
        fThread.reset(zThread::Factory("display link", this, kThreadClass, kRealTime));
        if (fThread) return kCVReturnSuccess;
        fRunning = false;
        return kCVReturnError;
    }

    CVReturn Stop() {
        const bool ran = fRunning.exchange(false);
        // From the callback there is nothing to wait for: its thread ends when it returns.
        if (on_link_thread()) return kCVReturnSuccess;
        fSource->Interrupt();
        end_thread();
        return ran ? kCVReturnSuccess : kCVReturnDisplayLinkNotRunning;
    }

    CVTime NominalPeriod() const {
        const displayRefreshRate rate = fSource->Rate();
        return {rate.period, rate.timeScale, 0};
    }

    int Main(int, const char**) override {
        fLinkThread = std::this_thread::get_id();
        bool sourceSpeaks = true;
        while (fRunning) {
            displayRefresh refresh{};
            if (sourceSpeaks && !fSource->WaitForRefresh(refresh)) {
                if (!fRunning) break;
                sourceSpeaks = false;
                hand_over_to_timer();
            }
            if (!sourceSpeaks) wait_for_timer(refresh);
            if (fRunning) deliver(refresh);
        }
        fLinkThread = std::thread::id();
        return 0;
    }

private:
    bool on_link_thread() const { return fLinkThread.load() == std::this_thread::get_id(); }

    void end_thread() {
        if (!fThread) return;
        fThread->Join();
        fThread.reset();
    }

    // A display that goes dark stops blanking; a show goes on all the same, at its rate and from
    // its count.
    void hand_over_to_timer() {
        zTrace("display link: the display gives no refreshes; a timer stands in for it\n");
        const long long timerCount = fTimer.CountAt(zTime::MicroNow());
        fTimerLead = fLastCount == kNone ? 0 : fLastCount - timerCount;
    }

    void wait_for_timer(displayRefresh& refresh) {
        fTimer.WaitForRefresh(refresh);
        refresh.videoTime += fTimerLead * refresh.period;
    }

    void deliver(const displayRefresh& refresh) {
        fLastCount = refresh.videoTime / refresh.period;
        const CVTimeStamp now = stamp(refresh, zTime::MicroNow());
        const CVTimeStamp output = stamp(refresh, refresh.realTime);
        CVOptionFlags flagsOut = 0;
        fCallback(this, &now, &output, 0, &flagsOut, fContext);
    }

    // fixed
    const std::unique_ptr<displayRefreshSource> fSource;
    displayTimerSource fTimer;

    // set while stopped
    CVDisplayLinkOutputCallback fCallback = nullptr;
    void* fContext = nullptr;
    std::unique_ptr<zThread> fThread;

    // link's thread only
    static constexpr long long kNone = -1;
    long long fLastCount = kNone;
    long long fTimerLead = 0;

    // any thread
    std::atomic<std::thread::id> fLinkThread{};
    std::atomic<bool> fRunning{false};
};

void displayTwin::SetSourceFactory(SourceFactory factory) {
    gSourceFactory = factory ? factory : &displayRefreshSource::ForMainDisplay;
}

CGDirectDisplayID CGMainDisplayID() {
    return kMainDisplay;
}

CVReturn CVDisplayLinkCreateWithCGDisplay(CGDirectDisplayID displayID,
                                          CVDisplayLinkRef* displayLinkOut) {
    if (!displayLinkOut) return kCVReturnInvalidArgument;
    *displayLinkOut = nullptr;
    if (displayID != kMainDisplay) return kCVReturnInvalidDisplay;
    auto source = gSourceFactory.load()();
    if (!source) return kCVReturnError;
    *displayLinkOut = new __CVDisplayLink(std::move(source));
    return kCVReturnSuccess;
}

CVReturn CVDisplayLinkSetOutputCallback(CVDisplayLinkRef displayLink,
                                        CVDisplayLinkOutputCallback callback, void* userInfo) {
    if (!displayLink) return kCVReturnInvalidArgument;
    return displayLink->SetOutputCallback(callback, userInfo);
}

CVReturn CVDisplayLinkStart(CVDisplayLinkRef displayLink) {
    return displayLink ? displayLink->Start() : kCVReturnInvalidArgument;
}

CVReturn CVDisplayLinkStop(CVDisplayLinkRef displayLink) {
    return displayLink ? displayLink->Stop() : kCVReturnInvalidArgument;
}

void CVDisplayLinkRelease(CVDisplayLinkRef displayLink) {
    delete displayLink;
}

CVTime CVDisplayLinkGetNominalOutputVideoRefreshPeriod(CVDisplayLinkRef displayLink) {
    if (!displayLink) return {0, 0, kCVTimeIsIndefinite};
    return displayLink->NominalPeriod();
}

#endif
