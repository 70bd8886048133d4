#pragma once

#include <atomic>

/// Becomes true at the first Ctrl-C or SIGTERM, and when the terminal is closed. Whichever of the
/// two comes a second later, or after that, ends the process at once.
const std::atomic<bool>& WatchStopSignal();

/// Whether that has happened; false for as long as nobody watches.
bool StopAsked();

/// Opens /dev/null in place of the standard streams that are closed. The first file of a recording
/// would take their numbers, and what is printed would stand in it.
void KeepStandardStreams();

/// From now on a write to a pipe that nobody reads any more is an error to the writer, and not the
/// program's end.
void OutliveReaders();
