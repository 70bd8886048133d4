#pragma once

// The display link: a callback at each refresh of a display, under the names that CoreVideo gives
// it. The real one on macOS, a twin over what the system offers everywhere else.
#if defined(__APPLE__)
#include <CoreGraphics/CoreGraphics.h>
#include <CoreVideo/CVDisplayLink.h>
#else
#include "display/displayTwin.h"
#endif
