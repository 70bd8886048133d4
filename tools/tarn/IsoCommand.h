#pragma once

namespace CLI {
class App;
}

/// Adds `tarn iso`; `exitCode` is what the process is to return after it ran.
void AddIsoCommand(CLI::App& app, int& exitCode);
