#pragma once

#include <memory>

#include "spar/zMutex.h"
#include "spar/zThread.h"
#include "spar/zThreadMain.h"

namespace Quillon::Orb {

/// Calls somebody at a steady pace, on a thread of its own, and between when it is nudged.
class CheckpointThread final : private zThreadMain {
public:
    class Client {
    public:
        virtual void OnCheckpoint() = 0;
        virtual void OnNudge() = 0;
        /// One of them threw: there was no memory, and there will be no other call.
        virtual void OnException() noexcept = 0;

    protected:
        ~Client() = default;
    };

    /// What one call prepares is to be done at most `periodUs` microseconds after the call before
    /// it began: the longer a call takes, the sooner it comes, but not sooner than half of that.
    CheckpointThread(Client& client, long long periodUs) : fClient(client), fPeriod(periodUs) {}
    ~CheckpointThread() override { Stop(); }

    /// False when the system has no thread to give.
    bool Start();
    /// Has OnNudge called soon; several nudges may become one call. Any thread.
    void Nudge();
    /// Returns when the call that is under way has returned; there is none after that.
    void Stop();

private:
    int Main(int argumentCount, const char** arguments) override;
    enum class Wake { Time, Nudge, Stop };

    void call_until_stopped();
    Wake wait(long long until);

    Client& fClient;
    const long long fPeriod;
    std::unique_ptr<zThread> fThread;

    zMutex fLock;
    zCondition fWake;
    bool fStopping SPAR_GUARDED_BY(fLock) = false;
    bool fNudged SPAR_GUARDED_BY(fLock) = false;
};

}  // namespace Quillon::Orb
