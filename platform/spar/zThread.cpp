#include "spar/zThread.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "spar/trace.h"
#include "spar/zMutex.h"
#include "spar/zThreadMain.h"

namespace {

constexpr char kBackground = 3;
constexpr int kFirstPunctualNumber = 4;
constexpr int kFirstRealTimeNumber = 5;
constexpr int kPriorityStep = 10;
constexpr unsigned long kBackgroundSlackNs = 50000;
constexpr uint64_t kUsualSlice = 0;
constexpr uint64_t kShortSliceNs = 100000;  // the least that the kernel takes
constexpr std::size_t kNameBytes = 16;      // the kernel's limit, with its terminator

std::atomic<bool> gRefusalTraced{false};

struct Start {
    zThreadMain* main;
    char schedulingClass;
    char number;
    char name[kNameBytes];
};

/// What sched_setattr takes; the C library has no header for it.
struct SchedulingAttributes {
    uint32_t size = sizeof(SchedulingAttributes);
    uint32_t policy = SCHED_OTHER;
    uint64_t flags = 0;
    int32_t nice = 0;
    uint32_t priority = 0;
    uint64_t runtime = 0;  // of an ordinary thread, its slice in nanoseconds
    uint64_t deadline = 0;
    uint64_t period = 0;
};

/// How the calling thread is scheduled, one of SCHED_...
int own_policy() {
    return sched_getscheduler(0) & ~SCHED_RESET_ON_FORK;
}

/// How long this thread runs before the kernel thinks of others. One that woke with the rest of a
/// long slice used up waits for a whole slice of those who load the cores, milliseconds; with short
/// ones it is let in almost at once. Kernels before 6.12 pass over it, and an idle thread, which
/// runs when nobody else wants to, has none.
void set_slice(uint64_t nanoseconds) {
    const int policy = own_policy();
    if (policy != SCHED_OTHER && policy != SCHED_BATCH) return;
    SchedulingAttributes attributes;
    attributes.policy = static_cast<uint32_t>(policy);
    attributes.nice = getpriority(PRIO_PROCESS, 0);
    attributes.runtime = nanoseconds;
    syscall(SYS_sched_setattr, 0, &attributes, 0);
}

bool become_real_time(int number) {
    sched_param parameters = {};
    parameters.sched_priority = std::min(number - kFirstRealTimeNumber + 1, 5) * kPriorityStep;
    const int error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
    if (error == 0) return true;
    if (!gRefusalTraced.exchange(true))
        zTrace(
            "zThread: real-time scheduling refused ({}); threads run at ordinary priority. Raise "
            "the "
            "user's rtprio limit to allow it\n",
            strerror(error));
    return false;
}

/// A slice is taken over from the thread that started this one, so that each says its own.
void take_class(const Start& start) {
    if (start.schedulingClass == kBackground) {
        set_slice(kUsualSlice);
        prctl(PR_SET_TIMERSLACK, kBackgroundSlackNs);
        const int nice = std::clamp<int>(start.number, 1, 19);
        setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), nice);
        return;
    }
    prctl(PR_SET_TIMERSLACK, 1UL);
    if (start.number >= kFirstRealTimeNumber && become_real_time(start.number)) return;
    set_slice(start.number >= kFirstPunctualNumber ? kShortSliceNs : kUsualSlice);
}

/// A real-time thread does not pass its policy on to the threads that it starts. Batch and idle are
/// what the user wants of the whole program, and an ordinary user cannot even leave idle.
void drop_real_time(pthread_attr_t& attributes) {
    const int policy = own_policy();
    if (policy != SCHED_FIFO && policy != SCHED_RR) return;
    // Policy and parameters are both set: what stands at its default is taken from the starter all
    // the same.
    const sched_param ordinary = {};
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&attributes, SCHED_OTHER);
    pthread_attr_setschedparam(&attributes, &ordinary);
}

void* run(void* argument) noexcept {
    std::unique_ptr<Start> start(static_cast<Start*>(argument));
    pthread_setname_np(pthread_self(), start->name);
    take_class(*start);
    zThreadMain* main = start->main;
    start.reset();
    main->Main(0, nullptr);
    return nullptr;
}

class Thread final : public zThread {
public:
    ~Thread() override {
        if (!fJoined) pthread_detach(fThread);
    }

    void Join() override {
        if (pthread_equal(pthread_self(), fThread)) return;
        zMutexLock held(fLock);
        if (fJoined) return;
        pthread_join(fThread, nullptr);
        fJoined = true;
    }

    int Begin(Start* start) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        drop_real_time(attributes);
        const int error = pthread_create(&fThread, &attributes, run, start);
        pthread_attr_destroy(&attributes);
        fJoined = error != 0;
        return error;
    }

private:
    // fixed after Begin
    pthread_t fThread = {};

    zMutex fLock;  // held across the join, so that a second waiter waits for the first
    bool fJoined = true;
};

}  // namespace

zThread::~zThread() = default;

zThread* zThread::Factory(const char* name, zThreadMain* main, char schedulingClass, char number) {
    auto start = std::make_unique<Start>(Start{main, schedulingClass, number, {}});
    if (name != nullptr) strncpy(start->name, name, kNameBytes - 1);
    auto thread = std::make_unique<Thread>();
    const int error = thread->Begin(start.get());
    if (error != 0) {
        zTrace("zThread: '{}' could not be started: {}\n", name ? name : "", strerror(error));
        return nullptr;
    }
    start.release();
    return thread.release();
}
