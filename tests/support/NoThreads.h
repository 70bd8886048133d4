#pragma once

#include <cstdlib>
#include <pthread.h>

namespace tests {

/// While it lives there is no thread to be had: each wants a stack larger than any address space.
class NoThreads {
public:
    NoThreads() {
        pthread_attr_t huge;
        if (pthread_getattr_default_np(&fBefore) != 0 || pthread_attr_init(&huge) != 0 ||
            pthread_attr_setstacksize(&huge, std::size_t{1} << 60) != 0 ||
            pthread_setattr_default_np(&huge) != 0) {
            std::abort();
        }
        pthread_attr_destroy(&huge);
    }
    ~NoThreads() {
        pthread_setattr_default_np(&fBefore);
        pthread_attr_destroy(&fBefore);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t fBefore;
};

}  // namespace tests
