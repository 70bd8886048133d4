#include "IsoOutput.h"
#include "LiveOutput.h"
#include "MovieOutput.h"
#include "ReplayOutput.h"

namespace {

std::vector<LiveOutputKind>& kinds() {
    static std::vector<LiveOutputKind> known = {
        {"movie", MakeMovieOutput, CheckMovieOutput},
        {"replay", MakeReplayOutput, CheckReplayOutput},
        {"iso", MakeIsoOutput, CheckIsoShowOutput},
    };
    return known;
}

}  // namespace

void LiveOutputKinds::Add(const LiveOutputKind& kind) {
    kinds().insert(kinds().begin(), kind);
}

const LiveOutputKind* LiveOutputKinds::Find(const std::string& name) {
    for (const LiveOutputKind& kind : kinds()) {
        if (kind.name == name) return &kind;
    }
    return nullptr;
}

std::vector<std::string> LiveOutputKinds::Names() {
    std::vector<std::string> names;
    for (const LiveOutputKind& kind : kinds()) names.push_back(kind.name);
    return names;
}
