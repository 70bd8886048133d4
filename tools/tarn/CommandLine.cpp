#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>

#include "Say.h"

namespace {

constexpr const char* kProgram = "tarn";

std::vector<const CLI::App*> commands_within(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::string names_of(const CLI::App& app) {
    std::string names;
    for (const CLI::App* command : commands_within(app)) {
        names += (names.empty() ? "" : ", ") + command->get_name();
    }
    return names;
}

/// The command that the words have come to.
const CLI::App& innermost(const CLI::App& program) {
    const CLI::App* command = &program;
    while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
    return *command;
}

/// The command within that is named where an argument belongs, or null: `tarn replay cut` leaves
/// the folder out, and the parser takes the word for it.
const CLI::App* named_by_an_argument(const CLI::App& command) {
    for (const CLI::Option* argument : command.get_options()) {
        if (!argument->get_positional() || argument->results().empty()) continue;
        for (const CLI::App* named : commands_within(command)) {
            if (named->get_name() == argument->results().front()) return named;
        }
    }
    return nullptr;
}

/// What is typed before the command's own name: "tarn replay FOLDER" for `cut`.
std::string typed_before(const CLI::App& command) {
    const CLI::App* const parent = command.get_parent();
    if (!parent) return "";
    const std::string before = typed_before(*parent);
    std::string words = (before.empty() ? "" : before + " ") + parent->get_name();
    for (const CLI::Option* argument : parent->get_options()) {
        if (argument->get_positional()) words += " " + argument->get_name(true);
    }
    return words;
}

std::string help_asked_for(const CLI::App& program) {
    const CLI::App& command = innermost(program);
    const CLI::App* const named = named_by_an_argument(command);
    const CLI::App& asked = named ? *named : command;
    return asked.help(typed_before(asked));  // to which the parser adds the command's own name
}

/// Who refuses words, and why.
struct Refusal {
    std::string who;
    std::string why;
};

Refusal refusal_of(const CLI::App& program, const CLI::ParseError& error) {
    std::string path = kProgram;
    for (const CLI::App* command = &program; !command->get_subcommands().empty();) {
        command = command->get_subcommands().front();
        path += " " + command->get_name();
    }
    const CLI::App& command = innermost(program);
    if (command.get_require_subcommand_min() == 0) {
        return {path, fmt::format("{}; see {} --help", error.what(), path)};
    }
    if (const CLI::App* const named = named_by_an_argument(command)) {
        return {path, fmt::format("'{}' stands where an argument belongs; type it as: {} {}",
                                  named->get_name(), typed_before(*named), named->get_name())};
    }
    const std::vector<std::string> words = command.remaining();
    const std::string wrong =
        words.empty() ? "needs a command" : fmt::format("'{}' is no command", words.front());
    return {path, fmt::format("{}; there are: {}", wrong, names_of(command))};
}

/// Words that were refused have not set anything yet.
bool asks_for_json(int argc, const char* const* argv) {
    return std::find(argv, argv + argc, std::string("--json")) != argv + argc;
}

}  // namespace

CommandOption& CommandOption::Required() {
    fOption.required();
    return *this;
}

CommandOption& CommandOption::Between(double least, double most, const std::string& unit) {
    fOption.check(
        {[=](std::string& text) -> std::string {
             double value = 0;
             // No comparison holds for a value that is not a number.
             if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most) {
                 return "";
             }
             return fmt::format("'{}' is not from {:g} to {:.0f} {}", text, least, most, unit);
         },
         fmt::format("[{:g} - {:.0f} {}]", least, most, unit)});
    return *this;
}

CommandOption& CommandOption::OneOf(const std::vector<std::string>& words) {
    fOption.check(CLI::IsMember(words));
    return *this;
}

CommandOption& CommandOption::Delimiter(char delimiter) {
    fOption.delimiter(delimiter);
    return *this;
}

CommandOption& CommandOption::Excludes(const std::string& other) {
    fOption.excludes(other);
    return *this;
}

CommandOption& CommandOption::NoteGiven(bool& given) {
    fOption.each([&given](const std::string&) { given = true; });
    return *this;
}

CommandOption& CommandOption::ShowDefault() {
    fOption.capture_default_str();
    return *this;
}

CommandOption& CommandOption::ShowDefault(const std::string& text) {
    fOption.default_str(text);
    return *this;
}

CommandOption& CommandOption::TypeName(const std::string& name) {
    fOption.type_name(name);
    return *this;
}

Command Command::AddCommand(const std::string& name, const std::string& text) {
    return {*fApp.add_subcommand(name, text), fExitCode};
}

void Command::NeedsCommand() {
    fApp.require_subcommand(1);
}

CommandOption Command::AddOption(const std::string& name, std::string& value,
                                 const std::string& text) {
    return CommandOption(*fApp.add_option(name, value, text));
}

CommandOption Command::AddOption(const std::string& name, double& value, const std::string& text) {
    return CommandOption(*fApp.add_option(name, value, text));
}

CommandOption Command::AddOption(const std::string& name, int& value, const std::string& text) {
    return CommandOption(*fApp.add_option(name, value, text));
}

CommandOption Command::AddOption(const std::string& name, std::vector<double>& values,
                                 const std::string& text) {
    return CommandOption(*fApp.add_option(name, values, text));
}

CommandOption Command::AddOption(const std::string& name,
                                 const std::function<std::string(const std::string&)>& take,
                                 const std::string& text) {
    const auto takeOrThrow = [name, take](const std::string& value) {
        const std::string error = take(value);
        if (!error.empty()) throw CLI::ValidationError(name, error);
    };
    return CommandOption(*fApp.add_option_function<std::string>(name, takeOrThrow, text));
}

void Command::AddFlag(const std::string& name, bool& value, const std::string& text) {
    fApp.add_flag(name, value, text);
}

void Command::AddJsonFlag(bool& value) {
    AddFlag("--json", value, "a JSON object a line, for machines");
}

void Command::SetFooter(const std::string& text) {
    fApp.footer(text);
}

void Command::OnRun(const std::function<int()>& run, int ifItThrows) {
    fApp.callback([run, ifItThrows, &exitCode = fExitCode] {
        exitCode = ifItThrows;  // unless it comes to its end
        exitCode = run();
    });
}

struct CommandLine::Parser {
    Parser(const std::string& description, const std::string& version)
        : app(description, kProgram) {
        app.set_help_flag("-h,--help", "print this help");
        app.set_version_flag("--version", fmt::format("{} {}", kProgram, version),
                             "print which release this is");
    }

    CLI::App app;
    int exitCode = EXIT_SUCCESS;
};

CommandLine::CommandLine(const std::string& description, const std::string& version)
    : fParser(std::make_unique<Parser>(description, version)) {}

CommandLine::~CommandLine() = default;

Command CommandLine::Program() {
    return {fParser->app, fParser->exitCode};
}

int CommandLine::Run(int argc, const char* const* argv) {
    try {
        fParser->app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        SayText(stdout, help_asked_for(fParser->app));
        return EXIT_SUCCESS;
    } catch (const CLI::CallForVersion& version) {
        Say("{}\n", version.what());
        return EXIT_SUCCESS;
    } catch (const CLI::ParseError& error) {
        const Refusal refusal = refusal_of(fParser->app, error);
        Complain(asks_for_json(argc, argv), refusal.who, refusal.why);
        return error.get_exit_code();
    }
    return fParser->exitCode;
}

int CommandLine::ExitCode() const {
    return fParser->exitCode;
}
