#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "Say.h"

namespace {

std::string names_of(const CLI::App& app) {
    std::string names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        names += (names.empty() ? "" : ", ") + command->get_name();
    }
    return names;
}

/// One line for words that the parser refused.
std::string refusal_line(const CLI::App& program, const CLI::ParseError& error) {
    std::string path = "tarn";
    const CLI::App* command = &program;
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        path += " " + command->get_name();
    }
    if (command->get_require_subcommand_min() == 0) {
        return fmt::format("{}: {}; see {} --help", path, error.what(), path);
    }
    const std::vector<std::string> words = command->remaining();
    const std::string wrong =
        words.empty() ? "needs a command" : fmt::format("'{}' is no command", words.front());
    return fmt::format("{}: {}; there are: {}", path, wrong, names_of(*command));
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

CommandOption& CommandOption::ShowDefault() {
    fOption.capture_default_str();
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
    explicit Parser(const std::string& description) : app(description) {}

    CLI::App app;
    int exitCode = EXIT_SUCCESS;
};

CommandLine::CommandLine(const std::string& description)
    : fParser(std::make_unique<Parser>(description)) {}

CommandLine::~CommandLine() = default;

Command CommandLine::Program() {
    return {fParser->app, fParser->exitCode};
}

int CommandLine::Run(int argc, const char* const* argv) {
    try {
        fParser->app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return fParser->app.exit(help);
    } catch (const CLI::ParseError& error) {
        Say(stderr, "{}\n", refusal_line(fParser->app, error));
        return error.get_exit_code();
    }
    return fParser->exitCode;
}

int CommandLine::ExitCode() const {
    return fParser->exitCode;
}
