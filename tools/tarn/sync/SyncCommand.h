#pragma once

namespace CLI {
class App;
}

/// Adds `tarn sync signal` and `tarn sync measure`; `exitCode` is what the process is to return
/// after one of them ran.
void AddSyncCommand(CLI::App& app, int& exitCode);
