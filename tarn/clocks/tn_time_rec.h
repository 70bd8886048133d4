#pragma once

/// One tick on its way from a clock to its watchers; a plain record, copied wherever it goes.
///
/// Microseconds throughout; what is real counts as zTime::MicroNow does.
struct tn_time_rec {
    /// Four periods before the tick's place in the schedule (system clock); 0 from a display.
    long long real_time;
    /// Where the media stands at this tick.
    long long media_time;
    /// Counts the clock's ticks. A gap is a lost tick.
    long long tick_count;
    /// When the tick before this one was due.
    long long nominal_time;
    /// tnClock::ClockID of the clock that gives the time.
    unsigned int clock_id;
    /// 6 in every record that a ticking clock produces.
    unsigned int time_kind;
};
