#pragma once

namespace CLI {
class App;
}

/// Adds `tarn probe`; `exitCode` is what the process is to return after it ran.
void AddProbeCommand(CLI::App& app, int& exitCode);
