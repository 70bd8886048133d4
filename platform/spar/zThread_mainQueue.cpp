// The work that other threads hand to the host's main thread.
#include <cstdint>
#include <deque>
#include <sys/eventfd.h>
#include <unistd.h>

#include "spar/zCancelClass.h"
#include "spar/zMutex.h"
#include "spar/zThread.h"

namespace {

struct Work {
    std::shared_ptr<zCancelClass> token;
    std::function<bool()> goOn;
    std::function<void()> work;
};

/// The descriptor is readable exactly while the queue holds work, whatever path the work leaves by.
class MainQueue {
public:
    int Descriptor() const { return fDescriptor; }

    void Push(Work work) SPAR_EXCLUDES(fLock) {
        zMutexLock held(fLock);
        fWork.push_back(std::move(work));
        if (fWork.size() == 1) eventfd_write(fDescriptor, 1);
    }

    std::size_t Count() SPAR_EXCLUDES(fLock) {
        zMutexLock held(fLock);
        return fWork.size();
    }

    bool Pop(Work& work) SPAR_EXCLUDES(fLock) {
        zMutexLock held(fLock);
        if (fWork.empty()) return false;
        work = std::move(fWork.front());
        fWork.pop_front();
        eventfd_t count = 0;
        if (fWork.empty()) eventfd_read(fDescriptor, &count);
        return true;
    }

private:
    const int fDescriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);

    zMutex fLock;
    std::deque<Work> fWork SPAR_GUARDED_BY(fLock);
};

// Never destroyed: threads that outlive main may still hand work in.
MainQueue& queue() {
    static MainQueue& theQueue = *new MainQueue;
    return theQueue;
}

}  // namespace

void zThread::ExecuteOnMainThread(std::shared_ptr<zCancelClass> token, long long,
                                  std::function<bool()> goOn, std::function<void()> work) {
    queue().Push({std::move(token), std::move(goOn), std::move(work)});
}

int zThread::MainQueueDescriptor() {
    return queue().Descriptor();
}

int zThread::DrainMainQueue() {
    int ran = 0;
    for (std::size_t waiting = queue().Count(); waiting > 0; --waiting) {
        Work next;
        if (!queue().Pop(next)) break;
        if (next.token && next.token->IsCancelled()) continue;
        if (next.goOn && !next.goOn()) continue;
        if (!next.work) continue;
        next.work();
        ++ran;
    }
    return ran;
}
