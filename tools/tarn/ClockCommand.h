#pragma once

namespace CLI {
class App;
}

/// Adds `tarn clock`; `exitCode` is what the process is to return after it ran.
void AddClockCommand(CLI::App& app, int& exitCode);
