#pragma once

class Command;

/// Adds `tarn sync signal` and `tarn sync measure`.
void AddSyncCommand(Command& program);
