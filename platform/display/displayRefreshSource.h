#pragma once

#include <memory>

/// One refresh of a display. Time and period count units of a second divided by `timeScale`.
struct displayRefresh {
    long long period;
    int timeScale;
    /// Since the display's own epoch: refresh n stands at n periods.
    long long videoTime;
    /// When it took place, by zTime::MicroNow.
    long long realTime;
};

/// How long a refresh lasts by the display's mode: `period / timeScale` seconds, in lowest terms.
struct displayRefreshRate {
    long long period = 1;
    int timeScale = 60;

    /// The rate of `pixelsPerSecond` that fill frames of `pixels`. `fallback` where a mode does not
    /// say, as those of virtual displays do not.
    static displayRefreshRate OfMode(long long pixelsPerSecond, long long pixels,
                                     displayRefreshRate fallback);
    static displayRefreshRate OfMode(long long pixelsPerSecond, long long pixels);

    displayRefresh At(long long count, long long realTime) const;

    bool operator==(const displayRefreshRate&) const = default;
};

/// Tells a display link when the display refreshes. One thread waits; any thread may interrupt.
class displayRefreshSource {
public:
    virtual ~displayRefreshSource() = default;

    /// Does not change in a source's life.
    virtual displayRefreshRate Rate() const = 0;

    /// Called before the first wait of each start; what an interrupt left behind is forgotten.
    virtual void Begin() {}

    /// Blocks until the next refresh. False when interrupted, or when the source has nothing to say
    /// any more: the display is dark, its server has gone.
    virtual bool WaitForRefresh(displayRefresh& refresh) = 0;

    /// A wait that is under way or comes next ends soon, after a refresh at the latest.
    virtual void Interrupt() {}

    /// The best that this machine has: vertical blanks of a graphics card, else those of an X
    /// server, else a timer. Never null.
    static std::unique_ptr<displayRefreshSource> ForMainDisplay();
};
