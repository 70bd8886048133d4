#pragma once

namespace CLI {
class App;
}

/// Adds `tarn live`; `exitCode` is what the process is to return after it ran.
void AddLiveCommand(CLI::App& app, int& exitCode);
