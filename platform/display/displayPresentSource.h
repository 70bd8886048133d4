#pragma once

#include "display/displayRefreshSource.h"

struct xcb_connection_t;

/// Refreshes by the frame counter of an X server's screen (its Present extension).
class displayPresentSource : public displayRefreshSource {
public:
    /// Of the screen that the environment names; null when no server answers there, or one without
    /// Present. A screen whose mode has no timing, a virtual one, counts as 60 Hz.
    static std::unique_ptr<displayRefreshSource> ForDefaultScreen();

    ~displayPresentSource() override;

    displayRefreshRate Rate() const override;
    void Begin() override;
    bool WaitForRefresh(displayRefresh& refresh) override;
    void Interrupt() override;

private:
    struct Complete {
        long long realTime;
        long long count;
    };

    displayPresentSource() = default;
    bool open();
    void read_rate();
    void ask(long long count);
    bool next(Complete& complete);
    bool wait_readable();

    // fixed after open
    xcb_connection_t* fConnection = nullptr;
    unsigned int fWindow = 0;
    int fInterrupt = -1;
    displayRefreshRate fRate;

    // waiting thread only
    unsigned int fSerial = 0;
    long long fCount = 0;
};
