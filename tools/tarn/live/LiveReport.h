#pragma once

#include <string>

struct LiveOutputEntry;
class LiveShow;

// What a show says of itself: as text for people, as JSON lines for machines.

/// A line for each source and, below it, one for each of its outputs, as the terminal view and
/// `stats` show them.
std::string TextOfShow(const LiveShow& show);

/// {"event":"stats",...} without a line end.
std::string JsonOfStats(const LiveShow& show);
/// {"event":"output",...}: a change of state.
std::string JsonOfOutput(const LiveOutputEntry& entry);
/// {"event":"done",...}.
std::string JsonOfEnd(const LiveShow& show);
