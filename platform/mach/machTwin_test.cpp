#include "mach/machTwin.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <limits>
#include <sched.h>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <vector>

#include "spar/zTime.h"
#include "spar/zTraceManager.h"

namespace {

/// A machine whose clock stands where the test puts it, and which notes what it is asked to wait
/// for.
class FakeMachine : public machTwin::Source {
public:
    FakeMachine() { machTwin::SetSource(this); }
    ~FakeMachine() override {
        machTwin::SetSource(nullptr);
        machTwin::SetTimebase(1, 1);
    }
    uint64_t NowNs() override { return fNow; }
    void WaitUntilNs(uint64_t deadline) override { fNow = deadline; }

    uint64_t fNow = 0;
};

class CountingTrace : public zTraceManager {
public:
    CountingTrace() : fBefore(SetDefault(this)) {}
    ~CountingTrace() override { SetDefault(fBefore); }
    void TraceMessage(int, const std::string& text) override { fLines.push_back(text); }

    std::vector<std::string> fLines;

private:
    zTraceManager* fBefore;
};

thread_time_constraint_policy_data_t sensible_policy() {
    return {16'666'667, 1'000'000, 5'000'000, 0};
}

kern_return_t set_policy(mach_port_t thread, thread_time_constraint_policy_data_t& policy,
                         thread_policy_flavor_t flavor, mach_msg_type_number_t count) {
    return thread_policy_set(thread, flavor, reinterpret_cast<thread_policy_t>(&policy), count);
}

}  // namespace

TEST(MachTwin, UnitsFollowTheTimebase) {
    struct Case {
        uint32_t numer, denom;
        uint64_t ns, units;
    };
    const Case cases[] = {
        {1, 1, 123'456'789, 123'456'789},
        {125, 3, 125, 3},
        {125, 3, 1'000'000'000, 24'000'000},
        {125, 3, 41, 0},
        {125, 3, 42, 1},
        // Past the point where a product of the two would leave 64 bits.
        {125, 3, 9'000'000'000'000'000'000U, 216'000'000'000'000'000U},
    };
    FakeMachine machine;
    for (const Case& c : cases) {
        machTwin::SetTimebase(c.numer, c.denom);
        machine.fNow = c.ns;
        EXPECT_EQ(mach_absolute_time(), c.units) << c.numer << "/" << c.denom << " " << c.ns;
        mach_timebase_info_data_t base{};
        EXPECT_EQ(mach_timebase_info(&base), KERN_SUCCESS);
        EXPECT_EQ(base.numer, c.numer);
        EXPECT_EQ(base.denom, c.denom);
    }
}

TEST(MachTwin, TimebaseNeedsAPlaceToGo) {
    EXPECT_EQ(mach_timebase_info(nullptr), KERN_INVALID_ARGUMENT);
}

TEST(MachTwin, AWaitNeverEndsBeforeItsDeadline) {
    FakeMachine machine;
    machTwin::SetTimebase(125, 3);
    for (uint64_t deadline : {uint64_t{1}, uint64_t{2}, uint64_t{3}, uint64_t{24'000'001},
                              uint64_t{1} << 50, (uint64_t{1} << 50) + 1}) {
        EXPECT_EQ(mach_wait_until(deadline), KERN_SUCCESS);
        EXPECT_GE(mach_absolute_time(), deadline);
        // And no later than the unit is long.
        EXPECT_LE(mach_absolute_time(), deadline + 1);
    }
}

TEST(MachTwin, ADeadlineBeyondTheClockStopsAtItsEnd) {
    FakeMachine machine;
    machTwin::SetTimebase(125, 3);
    mach_wait_until(UINT64_MAX);
    EXPECT_EQ(machine.fNow, static_cast<uint64_t>(std::numeric_limits<int64_t>::max()));
}

// Waits for real time, three milliseconds of it; the upper bound is not looked at.
TEST(MachTwin, TheMachinesOwnClockIsThatOfTheBaseLibrary) {
    const long long before = zTime::MicroNow();
    const uint64_t units = mach_absolute_time();
    const long long after = zTime::MicroNow();
    EXPECT_LE(before, static_cast<long long>(units / 1000));
    EXPECT_GE(after, static_cast<long long>(units / 1000));

    mach_wait_until(units + 3'000'000);
    EXPECT_GE(mach_absolute_time(), units + 3'000'000);
    mach_wait_until(units);  // long gone: returns at once
    mach_wait_until(0);
}

TEST(MachTwin, PortsAreCounted) {
    const int before = machTwin::LivePorts();
    const mach_port_t host = mach_host_self();
    const mach_port_t thread = mach_thread_self();
    EXPECT_NE(host, MACH_PORT_NULL);
    EXPECT_NE(thread, MACH_PORT_NULL);
    EXPECT_NE(host, thread);
    EXPECT_EQ(machTwin::LivePorts(), before + 2);
    EXPECT_EQ(mach_port_deallocate(mach_task_self(), thread), KERN_SUCCESS);
    EXPECT_EQ(mach_port_deallocate(mach_task_self(), host), KERN_SUCCESS);
    EXPECT_EQ(machTwin::LivePorts(), before);
}

TEST(MachTwin, APortThatWasNeverHandedOutCannotBeGivenBack) {
    const int before = machTwin::LivePorts();
    EXPECT_EQ(mach_port_deallocate(mach_task_self(), MACH_PORT_NULL), KERN_INVALID_NAME);
    EXPECT_EQ(mach_port_deallocate(MACH_PORT_NULL, mach_port_t{99}), KERN_INVALID_NAME);
    if (before == 0) {
        EXPECT_EQ(mach_port_deallocate(mach_task_self(), mach_port_t{99}), KERN_INVALID_RIGHT);
    }
    EXPECT_EQ(machTwin::LivePorts(), before);
}

TEST(MachTwin, EachThreadHasAPortOfItsOwn) {
    const mach_port_t mine = mach_thread_self();
    mach_port_t other = MACH_PORT_NULL;
    std::thread([&other] {
        other = mach_thread_self();
        mach_port_deallocate(mach_task_self(), other);
    }).join();
    EXPECT_NE(mine, other);
    EXPECT_EQ(mach_thread_self(), mine);
    mach_port_deallocate(mach_task_self(), mine);
    mach_port_deallocate(mach_task_self(), mine);
}

TEST(MachTwin, PolicyArgumentsAreChecked) {
    static int asked;
    asked = 0;
    machTwin::SetScheduler([](mach_port_t, int) { return ++asked, 0; });
    thread_time_constraint_policy_data_t good = sensible_policy();
    thread_time_constraint_policy_data_t backwards = {100, 50, 40, 0};
    const mach_port_t thread = mach_thread_self();
    EXPECT_EQ(set_policy(thread, good, 1, THREAD_TIME_CONSTRAINT_POLICY_COUNT),
              KERN_INVALID_ARGUMENT);
    EXPECT_EQ(set_policy(thread, good, THREAD_TIME_CONSTRAINT_POLICY,
                         THREAD_TIME_CONSTRAINT_POLICY_COUNT - 1),
              KERN_INVALID_ARGUMENT);
    EXPECT_EQ(set_policy(thread, backwards, THREAD_TIME_CONSTRAINT_POLICY,
                         THREAD_TIME_CONSTRAINT_POLICY_COUNT),
              KERN_INVALID_ARGUMENT);
    EXPECT_EQ(thread_policy_set(thread, THREAD_TIME_CONSTRAINT_POLICY, nullptr,
                                THREAD_TIME_CONSTRAINT_POLICY_COUNT),
              KERN_INVALID_ARGUMENT);
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(set_policy(thread, good, THREAD_TIME_CONSTRAINT_POLICY,
                         THREAD_TIME_CONSTRAINT_POLICY_COUNT),
              KERN_SUCCESS);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(machTwin::LastWish().period, good.period);
    EXPECT_EQ(machTwin::LastWish().constraint, good.constraint) << "not that of the bad ones";
    mach_port_deallocate(mach_task_self(), thread);
    machTwin::SetScheduler(nullptr);
}

TEST(MachTwin, ARefusalIsTracedOnceAndCostsNothingElse) {
    CountingTrace trace;
    machTwin::SetScheduler([](mach_port_t, int) { return EPERM; });
    const mach_port_t thread = mach_thread_self();
    thread_time_constraint_policy_data_t policy = sensible_policy();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(set_policy(thread, policy, THREAD_TIME_CONSTRAINT_POLICY,
                             THREAD_TIME_CONSTRAINT_POLICY_COUNT),
                  KERN_NO_ACCESS);
    }
    EXPECT_EQ(trace.fLines.size(), 1u);
    EXPECT_EQ(trace.fLines.at(0).back(), '\n');
    mach_port_deallocate(mach_task_self(), thread);
    machTwin::SetScheduler(nullptr);
}

TEST(MachTwin, ThePolicyReachesTheThreadThatItNames) {
    // On a thread of its own: the class and the slack end with it.
    std::thread([] {
        const mach_port_t thread = mach_thread_self();
        thread_time_constraint_policy_data_t policy = sensible_policy();
        CountingTrace quiet;
        const kern_return_t result = set_policy(thread, policy, THREAD_TIME_CONSTRAINT_POLICY,
                                                THREAD_TIME_CONSTRAINT_POLICY_COUNT);
        // A real-time thread has none at all.
        EXPECT_LE(prctl(PR_GET_TIMERSLACK), 1);
        const int scheduling = sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
        EXPECT_EQ(scheduling, result == KERN_SUCCESS ? SCHED_FIFO : SCHED_OTHER);
        mach_port_deallocate(mach_task_self(), thread);
    }).join();
}
