#include "Program.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

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
#include "exceptionAdvice.h"
#include "sync/SyncCommand.h"

namespace {

int run(CommandLine& line, int argc, const char* const* argv) {
    try {
        return line.Run(argc, argv);
    } catch (const std::exception& error) {
        Say(stderr, "tarn: {}; {}\n", error.what(), ExceptionAdvice(error));
        return line.ExitCode() != EXIT_SUCCESS ? line.ExitCode() : EXIT_FAILURE;
    }
}

}  // namespace

int RunProgram(int argc, const char* const* argv) {
    KeepStandardStreams();
    OutliveReaders();
    QuietenAv();
    CommandLine line("Records, replays, paces and measures live video with libtarn", TARN_VERSION);
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
