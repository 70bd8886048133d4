#pragma once

#include "spar/export.h"

class zString;

/// The clocks of the process.
class SPAR_API zTime {
public:
    /// Microseconds of a clock that never steps back and that every wait of this library uses. Its
    /// origin means nothing. Not stopped by a step of the wall clock.
    static long long MicroNow();

    /// Seconds of the wall clock, UTC.
    static long long SecondsSince1970();

    /// Writes `secondsSince1970` in local time to `text`. `form` is 'shrt', "2031-04-05 06:07:08";
    /// any other form gives the same with the zone's offset behind it.
    static void AsTimeString(zString& text, long long secondsSince1970, int form);
};
