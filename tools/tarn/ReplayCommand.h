#pragma once

namespace CLI {
class App;
}

/// `tarn replay`: lists, cuts, purges and watches replay recordings.
void AddReplayCommand(CLI::App& app, int& exitCode);
