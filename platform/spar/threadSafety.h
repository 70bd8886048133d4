#pragma once

// Lock contracts that clang checks at compile time; other compilers read past them.
#if defined(__clang__)
#define SPAR_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define SPAR_THREAD_ATTRIBUTE(x)
#endif

#define SPAR_CAPABILITY(name) SPAR_THREAD_ATTRIBUTE(capability(name))
#define SPAR_SCOPED_CAPABILITY SPAR_THREAD_ATTRIBUTE(scoped_lockable)
#define SPAR_GUARDED_BY(lock) SPAR_THREAD_ATTRIBUTE(guarded_by(lock))
#define SPAR_PT_GUARDED_BY(lock) SPAR_THREAD_ATTRIBUTE(pt_guarded_by(lock))
#define SPAR_ACQUIRED_BEFORE(...) SPAR_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define SPAR_ACQUIRED_AFTER(...) SPAR_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define SPAR_REQUIRES(...) SPAR_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define SPAR_REQUIRES_SHARED(...) SPAR_THREAD_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
#define SPAR_ACQUIRE(...) SPAR_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define SPAR_ACQUIRE_SHARED(...) SPAR_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define SPAR_RELEASE(...) SPAR_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define SPAR_RELEASE_SHARED(...) SPAR_THREAD_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
#define SPAR_TRY_ACQUIRE(...) SPAR_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define SPAR_EXCLUDES(...) SPAR_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define SPAR_RETURN_CAPABILITY(x) SPAR_THREAD_ATTRIBUTE(lock_returned(x))
#define SPAR_NO_THREAD_SAFETY_ANALYSIS SPAR_THREAD_ATTRIBUTE(no_thread_safety_analysis)
