#include <CLI/CLI.hpp>

#include "ClockCommand.h"
#include "IsoCommand.h"
#include "LiveCommand.h"
#include "ProbeCommand.h"
#include "RecordCommand.h"
#include "ReplayCommand.h"
#include "avHandles.h"
#include "sync/SyncCommand.h"

int main(int argc, char** argv) {
    QuietenAv();
    CLI::App app("Records, replays, paces and measures live video with libtarn");
    app.require_subcommand(1);
    int exitCode = 0;
    AddRecordCommand(app, exitCode);
    AddClockCommand(app, exitCode);
    AddLiveCommand(app, exitCode);
    AddReplayCommand(app, exitCode);
    AddSyncCommand(app, exitCode);
    AddIsoCommand(app, exitCode);
    AddProbeCommand(app, exitCode);
    CLI11_PARSE(app, argc, argv);
    return exitCode;
}
