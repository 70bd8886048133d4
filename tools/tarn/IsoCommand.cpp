#include "IsoCommand.h"

#include <cstdlib>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "spar/zThread.h"
#include "spar/zTime.h"

#include "CommandLine.h"
#include "IsoCheck.h"
#include "IsoSettings.h"
#include "JsonString.h"
#include "Say.h"
#include "StopSignal.h"
#include "XmlInput.h"

namespace {

constexpr int kCannotCheck = 2;
constexpr long long kRoundUs = 500'000;
constexpr unsigned int kNapUs = 20'000;

struct IsoArguments {
    std::string path;
    bool watch = false;
    bool json = false;
};

std::string json_of(const std::string& name, const std::vector<IsoProblem>& problems) {
    std::string list;
    for (const IsoProblem& problem : problems) {
        list += fmt::format(R"({}{{"flag":"{}","message":{}}})", list.empty() ? "" : ",",
                            problem.flag, JsonString(problem.text));
    }
    return fmt::format("{{\"event\":\"output\",\"name\":{},\"ok\":{},\"problems\":[{}]}}\n",
                       JsonString(name), problems.empty(), list);
}

/// One line for each problem.
std::string lines_of(const std::string& name, const std::vector<IsoProblem>& problems) {
    if (problems.empty()) return fmt::format("{}: ok\n", name);
    std::string lines;
    for (const IsoProblem& problem : problems) {
        lines += fmt::format("{}: {}\n", name, problem.text);
    }
    return lines;
}

/// The checks of all outputs of a file.
class IsoChecks {
public:
    IsoChecks(IsoSettings settings, bool json) : fSettings(std::move(settings)), fJson(json) {
        for (const zRecord* output : fSettings.outputs.Children()) {
            fChecks.push_back(
                {*output, std::make_unique<IsoCheck>(fSettings.outputs, fSettings.sources), {}});
        }
    }

    /// Asks all, and waits up to `patienceUs` for the folders that have not answered yet.
    void Run(long long patienceUs) {
        for (Entry& entry : fChecks) entry.check->Begin(entry.settings);
        const long long end = zTime::MicroNow() + patienceUs;
        for (Entry& entry : fChecks) entry.check->WaitUntil(end);
    }

    /// Prints what is new since the last time.
    void Tell() {
        fProblems = 0;
        for (Entry& entry : fChecks) {
            const std::vector<IsoProblem> problems = entry.check->Problems(entry.settings);
            fProblems += problems.size();
            const std::string name = IsoOutputName(entry.settings);
            const std::string text = fJson ? json_of(name, problems) : lines_of(name, problems);
            if (text != entry.told) Say("{}", text);
            entry.told = text;
        }
    }

    std::size_t OutputCount() const { return fChecks.size(); }
    std::size_t ProblemCount() const { return fProblems; }

private:
    struct Entry {
        zRecord settings;
        std::unique_ptr<IsoCheck> check;
        std::string told;
    };

    IsoSettings fSettings;
    const bool fJson;
    std::vector<Entry> fChecks;  // they go before the settings
    std::size_t fProblems = 0;
};

void tell_error(const IsoArguments& arguments, const std::string& error) {
    Complain(arguments.json, "tarn iso", error);
}

/// A file that is checked over and over, and read again when its text has changed.
class IsoWatch {
public:
    explicit IsoWatch(const IsoArguments& arguments) : fArguments(arguments) {}

    void Round() {
        read_what_is_new();
        if (!fChecks) return;
        fChecks->Run(fPatienceUs);
        fPatienceUs = kRoundUs;  // a folder that was silent once holds the others up no more
        fChecks->Tell();
    }

private:
    void read_what_is_new() {
        std::string text;
        std::string error;
        IsoSettings settings;
        const std::string where = fmt::format("'{}'", fArguments.path);
        const bool read = ReadXmlFile(fArguments.path, text, error);
        if (read && fWasRead && fText == text) return;
        fWasRead = read;
        if (read) fText = text;
        // What was good before goes on being checked while its file is being mended.
        if (!read || !ReadIsoSettingsText(text, where, settings, error)) {
            if (error != fError) tell_error(fArguments, error);
            fError = error;
            return;
        }
        fError.clear();
        fChecks = std::make_unique<IsoChecks>(std::move(settings), fArguments.json);
        fPatienceUs = kIsoFolderPatienceUs;
    }

    const IsoArguments& fArguments;
    bool fWasRead = false;
    std::string fText;  // as it was read, if it was
    std::string fError;
    std::unique_ptr<IsoChecks> fChecks;
    long long fPatienceUs = kIsoFolderPatienceUs;
};

int watch(const IsoArguments& arguments) {
    const std::atomic<bool>& stop = WatchStopSignal();
    IsoWatch watched(arguments);
    while (!stop && HasReader()) {
        const long long next = zTime::MicroNow() + kRoundUs;
        watched.Round();
        while (!stop && zTime::MicroNow() < next) zThread::MicroSleep(kNapUs);
    }
    return EXIT_SUCCESS;
}

int check(const IsoArguments& arguments) {
    IsoSettings settings;
    std::string error;
    if (!ReadIsoSettings(arguments.path, settings, error)) {
        tell_error(arguments, error);
        return kCannotCheck;
    }
    IsoChecks checks(std::move(settings), arguments.json);
    checks.Run(kIsoFolderPatienceUs);
    checks.Tell();
    if (arguments.json) {
        Say("{{\"event\":\"done\",\"outputs\":{},\"problems\":{}}}\n", checks.OutputCount(),
            checks.ProblemCount());
    }
    return checks.ProblemCount() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

void AddIsoCommand(Command& program) {
    auto arguments = std::make_shared<IsoArguments>();
    Command iso = program.AddCommand("iso", "Work with recordings of single sources");
    iso.NeedsCommand();
    Command command = iso.AddCommand("check", "Check settings of ISO outputs");
    command
        .AddOption("SETTINGS", arguments->path, "what is checked, as an XML file; see docs/iso.md")
        .Required();
    command.AddFlag("--watch", arguments->watch,
                    "go on, and tell what changes in the file and on the disks, until Ctrl-C");
    command.AddJsonFlag(arguments->json);
    command.SetFooter("Exit code: 0 all is well, 1 there are problems, 2 nothing can be checked");
    command.OnRun([arguments] { return arguments->watch ? watch(*arguments) : check(*arguments); },
                  kCannotCheck);
}
