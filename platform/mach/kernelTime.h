#pragma once

// The kernel's absolute time and its real-time thread policy, under the names that the Mach kernel
// gives them: the real ones on macOS, a twin with the same meaning everywhere else.
#if defined(__APPLE__)
#include <mach/mach.h>
#include <mach/mach_time.h>
#include <mach/thread_policy.h>
#else
#include "mach/machTwin.h"
#endif
