#include "ProbeCommand.h"

#include <cstdlib>
#include <fmt/format.h>
#include <memory>

#include "CommandLine.h"
#include "EncoderTrial.h"
#include "JsonString.h"
#include "Say.h"

namespace {

const char* where_it_runs(const EncoderAnswer& answer) {
    return answer.inHardware ? "hardware" : "software";
}

void print_text(const EncoderKind& kind, const EncoderAnswer& answer) {
    if (answer.works) {
        Say("{:<20}  {}\n", kind.name, where_it_runs(answer));
    } else {
        Say("{:<20}  not here: {}\n", kind.name, answer.why);
    }
}

void print_json(const EncoderKind& kind, const EncoderAnswer& answer) {
    Say(R"({{"event":"encoder","name":{},"offered":{},"runs":{},"why":{}}})"
        "\n",
        JsonString(kind.name), answer.works,
        answer.works ? JsonString(where_it_runs(answer)) : "null",
        answer.works ? "null" : JsonString(answer.why));
}

void probe(bool json) {
    int offered = 0;
    for (const EncoderKind& kind : AllEncoderKinds()) {
        const EncoderAnswer answer = TryEncoder(kind);
        offered += answer.works ? 1 : 0;
        json ? print_json(kind, answer) : print_text(kind, answer);
    }
    if (json) Say("{{\"event\":\"done\",\"offered\":{}}}\n", offered);
}

}  // namespace

void AddProbeCommand(Command& program) {
    auto json = std::make_shared<bool>(false);
    Command command = program.AddCommand(
        "probe", "Try every encoder on this machine: where it runs, or why it does not");
    command.AddJsonFlag(*json);
    command.OnRun([json] {
        probe(*json);
        return EXIT_SUCCESS;
    });
}
