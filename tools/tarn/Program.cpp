#include "Program.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <system_error>

#include "ClockCommand.h"
#include "IsoCommand.h"
#include "LiveCommand.h"
#include "ProbeCommand.h"
#include "RecordCommand.h"
#include "ReplayCommand.h"
#include "Say.h"
#include "StopSignal.h"
#include "avHandles.h"
#include "sync/SyncCommand.h"

namespace {

const char* advice_on(const std::exception& error) {
    const auto* system = dynamic_cast<const std::system_error*>(&error);
    const bool isShortage =
        dynamic_cast<const std::bad_alloc*>(&error) != nullptr ||
        (system != nullptr && system->code() == std::errc::resource_unavailable_try_again);
    return isShortage ? "the machine has no memory or no thread left for it; end other programs "
                        "and try again"
                      : "see to that and try again";
}

int run(CLI::App& app, int argc, const char* const* argv, int& exitCode) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const std::exception& error) {
        Say(stderr, "tarn: {}; {}\n", error.what(), advice_on(error));
        return exitCode != 0 ? exitCode : EXIT_FAILURE;
    }
    return exitCode;
}

}  // namespace

int RunProgram(int argc, const char* const* argv) {
    KeepStandardStreams();
    OutliveReaders();
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
    const int result = run(app, argc, argv, exitCode);
    const std::string lost = LostOutput();
    if (lost.empty()) return result;
    Say(stderr, "tarn: standard output: {}; what it did not take is lost\n", lost);
    return result != 0 ? result : EXIT_FAILURE;
}
