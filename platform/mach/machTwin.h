#pragma once

#include <cstdint>

// The Mach calls that a ticking loop makes, on Linux: CLOCK_MONOTONIC, absolute sleep, SCHED_FIFO.
// Names, argument order and result codes are the kernel's own, so that one source serves both.

using kern_return_t = int;
using mach_port_t = unsigned int;
using thread_act_t = mach_port_t;
using integer_t = int;
using thread_policy_t = integer_t*;
using thread_policy_flavor_t = unsigned int;
using mach_msg_type_number_t = unsigned int;

// Constants as macros: that is what they are on the other system.
#define KERN_SUCCESS 0
#define KERN_INVALID_ARGUMENT 4
#define KERN_NO_ACCESS 8
#define KERN_INVALID_NAME 15
#define KERN_INVALID_RIGHT 17
#define MACH_PORT_NULL 0U
#define THREAD_TIME_CONSTRAINT_POLICY 2U
#define THREAD_TIME_CONSTRAINT_POLICY_COUNT 4U

/// Absolute time counts units; a unit is `numer / denom` nanoseconds.
struct mach_timebase_info_data_t {
    uint32_t numer;
    uint32_t denom;
};
using mach_timebase_info_t = mach_timebase_info_data_t*;

/// All but the flag in units of absolute time.
struct thread_time_constraint_policy {
    uint32_t period;
    uint32_t computation;
    uint32_t constraint;
    integer_t preemptible;
};
using thread_time_constraint_policy_data_t = thread_time_constraint_policy;

/// Units since an unknown start; never runs backwards.
uint64_t mach_absolute_time();

/// Fills in how long a unit is.
kern_return_t mach_timebase_info(mach_timebase_info_t info);

/// Sleeps until absolute time has reached `deadline`, never less; a deadline that has passed
/// returns at once. Signals do not end the sleep.
kern_return_t mach_wait_until(uint64_t deadline);

/// Ports are counted references: each call of the first two hands one out, and each goes back
/// through mach_port_deallocate.
mach_port_t mach_host_self();
mach_port_t mach_thread_self();
mach_port_t mach_task_self();
kern_return_t mach_port_deallocate(mach_port_t task, mach_port_t name);

/// Asks for real-time scheduling of a thread: SCHED_FIFO, and the finest timer slack when the
/// thread is the caller. Only THREAD_TIME_CONSTRAINT_POLICY is known.
///
/// KERN_INVALID_ARGUMENT for another flavor, for a short `count`, or when the computation is
/// longer than the constraint; KERN_NO_ACCESS when the system refuses, which costs precision and
/// nothing else. The first refusal of a process is traced, later ones are silent.
kern_return_t thread_policy_set(thread_act_t thread, thread_policy_flavor_t flavor,
                                thread_policy_t policy, mach_msg_type_number_t count);

/// What a test may put in the place of the machine, and look at. Set it while no loop runs.
class machTwin {
public:
    /// Where absolute time comes from, in nanoseconds.
    class Source {
    public:
        virtual ~Source() = default;
        virtual uint64_t NowNs() = 0;
        virtual void WaitUntilNs(uint64_t deadline) = 0;
    };

    /// Null gives the machine's own clock back. The source stays the caller's.
    static void SetSource(Source* source);

    /// 1/1 unless set; laptops of the other system have 125/3.
    static void SetTimebase(uint32_t numer, uint32_t denom);

    /// Gives a thread its real-time class; 0 or an errno. Null gives the machine's own back. Also
    /// forgets that a refusal was traced.
    using Scheduler = int (*)(mach_port_t thread, int priority);
    static void SetScheduler(Scheduler scheduler);

    /// What thread_policy_set was last asked for, granted or not; all 0 before. Arguments that it
    /// calls invalid do not count.
    static thread_time_constraint_policy_data_t LastWish();

    /// References handed out and not yet given back.
    static int LivePorts();
};
