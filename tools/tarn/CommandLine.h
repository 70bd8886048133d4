#pragma once

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

/// One option of a command; each operation says one thing more of it.
class CommandOption {
public:
    explicit CommandOption(CLI::Option& option) : fOption(option) {}

    CommandOption& Required();
    /// A finite number from `least` to `most`, both allowed; what is refused is told with the
    /// bounds and their unit. The parser's own range lets "nan" through.
    CommandOption& Between(double least, double most, const std::string& unit);
    CommandOption& OneOf(const std::vector<std::string>& words);
    /// Several values stand in one word, with `delimiter` between them.
    CommandOption& Delimiter(char delimiter);
    CommandOption& Excludes(const std::string& other);
    /// Sets `given` where it stands among the words: a value alone does not tell that from its
    /// default.
    CommandOption& NoteGiven(bool& given);
    /// What it is now shows in the help as the default.
    CommandOption& ShowDefault();
    /// The same for one that goes to a function.
    CommandOption& ShowDefault(const std::string& text);
    /// What the help calls its value.
    CommandOption& TypeName(const std::string& name);

private:
    CLI::Option& fOption;
};

/// A command of the program, or the program itself, and what it takes. A handle: copies are the
/// same command, which lives as long as its CommandLine.
///
/// Texts of commands begin as sentences do, and say what to do: "Record a clip"; those of options
/// and arguments do neither: "frames a second".
///
/// The variables that options go to must outlive the run: the function given to OnRun keeps them.
class Command {
public:
    Command(CLI::App& app, int& exitCode) : fApp(app), fExitCode(exitCode) {}

    Command AddCommand(const std::string& name, const std::string& text);
    /// One of the commands within it must be given.
    void NeedsCommand();
    /// A name that begins with `--` is an option, another one an argument by its place.
    CommandOption AddOption(const std::string& name, std::string& value, const std::string& text);
    CommandOption AddOption(const std::string& name, double& value, const std::string& text);
    CommandOption AddOption(const std::string& name, int& value, const std::string& text);
    CommandOption AddOption(const std::string& name, std::vector<double>& values,
                            const std::string& text);
    /// `take` gets the value as it was typed, and returns an empty line or what is wrong with it.
    CommandOption AddOption(const std::string& name,
                            const std::function<std::string(const std::string&)>& take,
                            const std::string& text);
    void AddFlag(const std::string& name, bool& value, const std::string& text);
    /// `--json`, which means the same wherever it is.
    void AddJsonFlag(bool& value);
    /// Stands below all in the help.
    void SetFooter(const std::string& text);
    /// What the command does: the process returns what `run` returns, and `ifItThrows` where it
    /// throws.
    void OnRun(const std::function<int()>& run, int ifItThrows = EXIT_FAILURE);

private:
    CLI::App& fApp;
    int& fExitCode;
};

/// The words that the program was started with. CLI11 is behind it, and only there: a source that
/// includes that library takes ten times as long to compile.
class CommandLine {
public:
    CommandLine(const std::string& description, const std::string& version);
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// The program itself, to add commands to.
    Command Program();
    /// Reads the words and runs the command that they name; the exit code. Words that make no
    /// sense are told, and so are the help and the version. What the command throws passes through.
    int Run(int argc, const char* const* argv);
    /// After Run has thrown: the exit code that the command has for that.
    int ExitCode() const;

private:
    struct Parser;
    std::unique_ptr<Parser> fParser;
};
