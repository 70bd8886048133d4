#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

#include "display/displayRefreshSource.h"
#include "display/displayTwin.h"

/// A display whose refreshes a test writes down: links that are made while one lives get theirs
/// from it, one at a time, and wait when there are none.
class ScriptedDisplay {
public:
    explicit ScriptedDisplay(displayRefreshRate rate) : fRate(rate) {
        gCurrent = this;
        displayTwin::SetSourceFactory(
            [] { return std::unique_ptr<displayRefreshSource>(new Source(*gCurrent)); });
    }
    ~ScriptedDisplay() {
        displayTwin::SetSourceFactory(nullptr);
        gCurrent = nullptr;
    }
    ScriptedDisplay(const ScriptedDisplay&) = delete;
    ScriptedDisplay& operator=(const ScriptedDisplay&) = delete;

    void Refresh(const displayRefresh& refresh) {
        std::lock_guard lock(fMutex);
        fRefreshes.push_back(refresh);
        fChanged.notify_all();
    }
    void Refresh(long long count) { Refresh(fRate.At(count, 0)); }

    /// Waits until the link asks for a refresh that is not written: all before it are delivered.
    void AwaitIdle() {
        std::unique_lock lock(fMutex);
        fChanged.wait(lock, [this] { return fRefreshes.empty() && fWaiting; });
    }

    /// Whether a link asks for a refresh now.
    bool IsAskedFor() {
        std::lock_guard lock(fMutex);
        return fWaiting;
    }

    /// The display gives nothing any more.
    void GoDark() {
        std::lock_guard lock(fMutex);
        fDark = true;
        fChanged.notify_all();
    }

private:
    class Source : public displayRefreshSource {
    public:
        explicit Source(ScriptedDisplay& display) : fDisplay(display) {}
        displayRefreshRate Rate() const override { return fDisplay.fRate; }
        void Begin() override {
            std::lock_guard lock(fDisplay.fMutex);
            fDisplay.fInterrupted = false;
        }
        bool WaitForRefresh(displayRefresh& refresh) override {
            std::unique_lock lock(fDisplay.fMutex);
            fDisplay.fWaiting = true;
            fDisplay.fChanged.notify_all();
            fDisplay.fChanged.wait(lock, [this] {
                return fDisplay.fInterrupted || fDisplay.fDark || !fDisplay.fRefreshes.empty();
            });
            fDisplay.fWaiting = false;
            if (fDisplay.fInterrupted || fDisplay.fRefreshes.empty()) return false;
            refresh = fDisplay.fRefreshes.front();
            fDisplay.fRefreshes.pop_front();
            return true;
        }
        void Interrupt() override {
            std::lock_guard lock(fDisplay.fMutex);
            fDisplay.fInterrupted = true;
            fDisplay.fChanged.notify_all();
        }

    private:
        ScriptedDisplay& fDisplay;
    };

    static inline ScriptedDisplay* gCurrent = nullptr;

    const displayRefreshRate fRate;
    std::mutex fMutex;
    std::condition_variable fChanged;
    std::deque<displayRefresh> fRefreshes;
    bool fWaiting = false;
    bool fInterrupted = false;
    bool fDark = false;
};
