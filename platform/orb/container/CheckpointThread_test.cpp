#include "CheckpointThread.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <new>

namespace Quillon::Orb {
namespace {

constexpr long long kAnHour = 3600LL * 1000000;

class Client final : public CheckpointThread::Client {
public:
    void OnCheckpoint() override {
        if (fCheckpoints++ == 0) fFirst.set_value();
    }
    void OnNudge() override {
        if (fNudges++ == 0) fNudged.set_value();
        if (fHasNoMemory) throw std::bad_alloc();
    }
    void OnException() noexcept override { fThrown.set_value(); }

    std::promise<void> fFirst;
    std::promise<void> fNudged;
    std::promise<void> fThrown;
    std::atomic<bool> fHasNoMemory{false};
    std::atomic<int> fCheckpoints{0};
    std::atomic<int> fNudges{0};
};

TEST(CheckpointThread, FirstCheckpointIsAtOnceAndStopWaitsForNoOther) {
    Client client;
    CheckpointThread thread(client, kAnHour);
    ASSERT_TRUE(thread.Start());
    client.fFirst.get_future().wait();
    thread.Stop();
    EXPECT_EQ(client.fCheckpoints, 1);
    EXPECT_EQ(client.fNudges, 0);
}

TEST(CheckpointThread, NudgeIsHeardBetweenTwoCheckpoints) {
    Client client;
    CheckpointThread thread(client, kAnHour);
    ASSERT_TRUE(thread.Start());
    thread.Nudge();
    client.fNudged.get_future().wait();
    client.fFirst.get_future().wait();
    thread.Stop();
    EXPECT_EQ(client.fCheckpoints, 1);
}

TEST(CheckpointThread, AClientThatThrowsIsToldAndNotCalledAgain) {
    Client client;
    client.fHasNoMemory = true;
    CheckpointThread thread(client, kAnHour);
    ASSERT_TRUE(thread.Start());
    thread.Nudge();
    client.fThrown.get_future().wait();
    thread.Nudge();
    thread.Stop();
    EXPECT_EQ(client.fNudges, 1);
}

TEST(CheckpointThread, StopWithoutStartAndTwiceIsNoHarm) {
    Client client;
    CheckpointThread thread(client, kAnHour);
    thread.Nudge();
    thread.Stop();
    thread.Stop();
    EXPECT_EQ(client.fCheckpoints + client.fNudges, 0);
}

}  // namespace
}  // namespace Quillon::Orb
