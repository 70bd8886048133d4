#pragma once

namespace CLI {
class App;
}

/// Adds `tarn record`; `exitCode` is what the process is to return after it ran.
void AddRecordCommand(CLI::App& app, int& exitCode);
