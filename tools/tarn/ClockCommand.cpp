#include "ClockCommand.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <vector>

#include "ClockMeasure.h"
#include "ClockPlot.h"
#include "CommandLine.h"
#include "ProgressLine.h"
#include "Say.h"
#include "StopSignal.h"
#include "SvgDrawing.h"
#include "TextUnits.h"
#include "parseRate.h"

namespace {

constexpr double kHighestRate = 2000;
constexpr const char* kNoTicks = "no ticks; measure for longer than three periods";

struct ClockArguments {
    ClockOptions options;
    std::string rate = "60";
    std::string accuracy = "scac";
    std::string plot;
    bool json = false;
};

/// "59.94", which is 60000/1001; empty, or what is wrong with it.
std::string parse_rate(const std::string& text, double& rate) {
    Rate read;
    if (!ParseRate(text, read, kHighestRate)) {
        return fmt::format(
            "'{}' is not a rate from {:g} to {:g} ticks a second; write 59.94 or 60000/1001", text,
            kSlowestRate, kHighestRate);
    }
    rate = read.PerSecond();
    return {};
}

struct Row {
    const char* name;
    const char* key;
    std::vector<long long> inOrder;
};

std::vector<Row> rows_of(const ClockFigures& figures) {
    Row produced{"produced late", "producedLate", {}};
    Row received{"received late", "receivedLate", {}};
    Row intervals{"interval off its period", "intervalOff", {}};
    for (const MeasuredTick& tick : figures.ticks) {
        produced.inOrder.push_back(tick.producedLate);
        received.inOrder.push_back(tick.receivedLate);
    }
    for (const long long error : figures.intervalErrors) {
        intervals.inOrder.push_back(std::llabs(error));
    }
    std::vector<Row> rows = {std::move(produced), std::move(received), std::move(intervals)};
    for (Row& row : rows) std::sort(row.inOrder.begin(), row.inOrder.end());
    return rows;
}

std::string title_of(const ClockArguments& arguments, const ClockFigures& figures) {
    return fmt::format("{} Hz, '{}', {} ticks{}{}", arguments.rate, arguments.accuracy,
                       figures.ticks.size(),
                       figures.lost > 0 ? fmt::format(", {} lost", figures.lost) : "",
                       arguments.options.load ? ", all cores loaded" : "");
}

void print_text(const ClockArguments& arguments, const ClockFigures& figures) {
    Say("{}; microseconds\n", title_of(arguments, figures));
    Say("{:<24} {:>8} {:>8} {:>8} {:>8} {:>8}\n", "", "p50", "p90", "p99", "p99.9", "max");
    for (const Row& row : rows_of(figures)) {
        Say("{:<24} {:>8} {:>8} {:>8} {:>8} {:>8}\n", row.name, PercentileOf(row.inOrder, 0.5),
            PercentileOf(row.inOrder, 0.9), PercentileOf(row.inOrder, 0.99),
            PercentileOf(row.inOrder, 0.999), PercentileOf(row.inOrder, 1));
    }
}

void print_json(const ClockArguments& arguments, const ClockFigures& figures) {
    Say(R"({{"event":"done","rate":{:.6f},"accuracy":"{}","load":{},"ticks":{},"lost":{})",
        arguments.options.rate, arguments.accuracy, arguments.options.load, figures.ticks.size(),
        figures.lost);
    for (const Row& row : rows_of(figures)) {
        Say(R"(,"{}":{{"p50":{},"p90":{},"p99":{},"p99.9":{},"max":{}}})", row.key,
            PercentileOf(row.inOrder, 0.5), PercentileOf(row.inOrder, 0.9),
            PercentileOf(row.inOrder, 0.99), PercentileOf(row.inOrder, 0.999),
            PercentileOf(row.inOrder, 1));
    }
    Say("}}\n");
}

int report_failure(const ClockArguments& arguments, const std::string& line) {
    return Complain(arguments.json, "tarn clock", line);
}

int run(ClockArguments& arguments) {
    std::string error;
    if (!CanWriteDrawing(arguments.plot, error)) return report_failure(arguments, error);
    // The first tick that counts comes after a period, and the end would wait for it.
    if (arguments.options.seconds * arguments.options.rate <= 1) {
        return report_failure(arguments, kNoTicks);
    }
    arguments.options.accuracy =
        arguments.accuracy == "asnc" ? tnClock::clock_rate_asnc : tnClock::clock_rate_scac;
    const std::atomic<bool>& stopped = WatchStopSignal();
    ClockFigures figures;
    {
        ProgressLine progress;
        figures = MeasureClock(arguments.options, [&](double share) {
            progress.Show(ProgressBar(share) + " " +
                          TextOfSeconds(share * arguments.options.seconds));
            return stopped.load();
        });
    }
    if (arguments.json) {
        print_json(arguments, figures);
    } else {
        print_text(arguments, figures);
    }
    if (figures.ticks.empty()) {
        return report_failure(arguments, kNoTicks);
    }
    if (arguments.plot.empty()) return EXIT_SUCCESS;
    const std::string drawing = DrawClockFigures(title_of(arguments, figures), figures);
    if (WriteDrawing(arguments.plot, drawing, error)) return EXIT_SUCCESS;
    return report_failure(arguments, error);
}

}  // namespace

void AddClockCommand(Command& program) {
    auto arguments = std::make_shared<ClockArguments>();
    Command clock =
        program.AddCommand("clock", "Measure how late a clock's ticks come, and draw it");
    clock
        .AddOption(
            "--rate",
            [arguments](const std::string& text) {
                arguments->rate = text;
                return parse_rate(text, arguments->options.rate);
            },
            "ticks a second, such as 59.94 or 60000/1001")
        .ShowDefault(arguments->rate);
    clock.AddOption("--seconds", arguments->options.seconds, "how long to measure")
        .Between(0.1, 3600, "seconds")
        .ShowDefault();
    clock
        .AddOption("--accuracy", arguments->accuracy,
                   "how the clock waits: scac sleeps, asnc sleeps short and spins the rest")
        .OneOf({"scac", "asnc"})
        .ShowDefault();
    clock.AddFlag("--load", arguments->options.load, "keep every core busy meanwhile");
    clock.AddOption("--plot", arguments->plot, "draw the measurement into this SVG file");
    clock.AddJsonFlag(arguments->json);
    clock.OnRun([arguments] { return run(*arguments); });
}
