#include "Program.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <system_error>

#include "ClockCommand.h"
#include "CommandLine.h"
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

int run(CommandLine& line, int argc, const char* const* argv) {
    try {
        return line.Run(argc, argv);
    } catch (const std::exception& error) {
        Say(stderr, "tarn: {}; {}\n", error.what(), advice_on(error));
        return line.ExitCode() != EXIT_SUCCESS ? line.ExitCode() : EXIT_FAILURE;
    }
}

}  // namespace

int RunProgram(int argc, const char* const* argv) {
    KeepStandardStreams();
    OutliveReaders();
    QuietenAv();
    CommandLine line("Records, replays, paces and measures live video with libtarn");
    Command program = line.Program();
    program.NeedsCommand();
    AddRecordCommand(program);
    AddClockCommand(program);
    AddLiveCommand(program);
    AddReplayCommand(program);
    AddSyncCommand(program);
    AddIsoCommand(program);
    AddProbeCommand(program);
    const int result = run(line, argc, argv);
    const std::string lost = LostOutput();
    if (lost.empty()) return result;
    Say(stderr, "tarn: standard output: {}; what it did not take is lost\n", lost);
    return result != 0 ? result : EXIT_FAILURE;
}
