#pragma once

class Command;

/// `tarn replay`: lists, cuts, purges and watches replay recordings.
void AddReplayCommand(Command& program);
