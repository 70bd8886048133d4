#include "spar/zPerfLog.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "spar/zTime.h"

namespace {

constexpr double kPercents[] = {0, 1, 10, 25, 50, 75, 90, 95, 99, 99.9, 100};

/// The nearest rank of a sorted array, which is what a percentile is defined by.
long long exact_percentile(const std::vector<long long>& sorted, double percent) {
    const auto rank = static_cast<std::size_t>(
        std::max(1.0, std::ceil(percent / 100 * static_cast<double>(sorted.size()))));
    return sorted[rank - 1];
}

std::string line_with(const std::string& table, const std::string& name) {
    const std::size_t at = table.find(name);
    return at == std::string::npos ? "" : table.substr(at, table.find('\n', at) - at);
}

}  // namespace

TEST(zPerfLog, PercentilesAgreeWithSortedArrays) {
    std::mt19937_64 random(9);
    const std::function<long long()> kShapes[] = {
        [&] { return static_cast<long long>(random() % 64); },       // every class a nanosecond
        [&] { return static_cast<long long>(random() % 1000000); },  // even
        [&] { return static_cast<long long>(std::exp(std::normal_distribution<>(11, 2)(random))); },
        [&] { return random() % 100 == 0 ? 33000000LL : 200LL; },  // a rare stall
        [&] { return 1LL << (random() % 45); },                    // edges of the octaves
        [&] { return (1LL << (random() % 44 + 1)) - 1; },
        [&] { return 500LL; },
    };
    int number = 0;
    for (const auto& shape : kShapes) {
        zPerfLog::Variable variable("shape", 1, 50);
        std::vector<long long> values;
        for (int i = 0; i < 5000 + number; ++i) {
            values.push_back(shape());
            variable.Record(values.back());
        }
        std::sort(values.begin(), values.end());
        for (double percent : kPercents) {
            const auto exact = static_cast<double>(exact_percentile(values, percent));
            EXPECT_NEAR(static_cast<double>(variable.PercentileNs(percent)), exact, exact * 0.01)
                << "shape " << number << ", " << percent << "%";
        }
        ++number;
    }
}

TEST(zPerfLog, CountMeanAndMaximumAreExact) {
    zPerfLog::Variable variable("exact", 1, 50);
    EXPECT_EQ(variable.Count(), 0);
    EXPECT_EQ(variable.MeanNs(), 0);
    EXPECT_EQ(variable.MaximumNs(), 0);
    EXPECT_EQ(variable.PercentileNs(50), 0);
    for (long long value : {1000003LL, 7LL, -5LL, 123456789LL}) variable.Record(value);
    EXPECT_EQ(variable.Count(), 4);
    EXPECT_EQ(variable.MeanNs(), (1000003.0 + 7 + 0 + 123456789) / 4);
    EXPECT_EQ(variable.MaximumNs(), 123456789);
    EXPECT_EQ(variable.PercentileNs(25), 0);
    EXPECT_EQ(variable.PercentileNs(100), 123456789);
    variable.Reset();
    EXPECT_EQ(variable.Count(), 0);
    EXPECT_EQ(variable.MaximumNs(), 0);
}

TEST(zPerfLog, ADurationBeyondTheLastClassStillCounts) {
    zPerfLog::Variable variable("long", 1, 50);
    variable.Record(0x7FFFFFFFFFFFFFFF);
    EXPECT_EQ(variable.Count(), 1);
    EXPECT_EQ(variable.MaximumNs(), 0x7FFFFFFFFFFFFFFF);
    EXPECT_GT(variable.PercentileNs(50), 10LL * 3600 * 1000000000 / 2);
}

TEST(zPerfLog, AScopeIsTimedFromItsBeginningToItsEnd) {
    zPerfLog::Variable variable("scope", 1, 50);
    const long long before = zTime::MicroNow();
    {
        zPerfLog timing(variable);
        const long long inside = zTime::MicroNow();
        while (zTime::MicroNow() < inside + 200) {
        }
    }
    const long long whole = zTime::MicroNow() - before + 1;
    EXPECT_EQ(variable.Count(), 1);
    EXPECT_GE(variable.MaximumNs(), 150 * 1000);
    EXPECT_LE(variable.MaximumNs(), whole * 1000 + 1000);
}

TEST(zPerfLog, NothingIsLostBetweenThreads) {
    zPerfLog::Variable variable("threads", 1, 50);
    constexpr int kThreads = 4;
    constexpr int kEach = 20000;
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number)
        threads.emplace_back([&, number] {
            for (int i = 1; i <= kEach; ++i) variable.Record(number * 1000 + i % 10);
        });
    for (int i = 0; i < 50; ++i) EXPECT_LE(variable.PercentileNs(99), 3100);
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(variable.Count(), kThreads * kEach);
    EXPECT_EQ(variable.MaximumNs(), 3009);
    EXPECT_DOUBLE_EQ(variable.MeanNs(), 1504.5);
}

TEST(zPerfLog, TheTableShowsWhatHasMeasuredInItsUnitByName) {
    zPerfLog::Variable second("table_b", 1000, 90), first("table_a", 1, 50),
        idle("table_idle", 1, 50);
    for (int i = 1; i <= 100; ++i) {
        first.Record(i * 1000);
        second.Record(i * 1000000);
    }
    const std::string table = zPerfLog::Table();
    EXPECT_LT(table.find("table_a"), table.find("table_b"));
    EXPECT_EQ(table.find("table_idle"), std::string::npos);

    char name[16];
    long long count = 0, unit = 0;
    double mean = 0, value = 0, p95 = 0, p99 = 0, maximum = 0;
    int percentile = 0;
    ASSERT_EQ(
        std::sscanf(line_with(table, "table_b").c_str(), "%15s %lld %lf %d%% %lf %lf %lf %lf %lld",
                    name, &count, &mean, &percentile, &value, &p95, &p99, &maximum, &unit),
        9)
        << table;
    EXPECT_EQ(count, 100);
    EXPECT_NEAR(mean, 50.5, 0.05);
    EXPECT_EQ(percentile, 90);
    EXPECT_NEAR(value, 90, 1);
    EXPECT_NEAR(p95, 95, 1);
    EXPECT_NEAR(p99, 99, 1);
    EXPECT_EQ(maximum, 100);
    EXPECT_EQ(unit, 1000);
}

TEST(zPerfLog, AVariableLeavesTheTableWhenItGoes) {
    {
        zPerfLog::Variable passing("table_passing", 1, 50);
        passing.Record(1);
        EXPECT_NE(zPerfLog::Table().find("table_passing"), std::string::npos);
        zPerfLog::Reset();
        EXPECT_EQ(zPerfLog::Table().find("table_passing"), std::string::npos);
        passing.Record(1);
    }
    EXPECT_EQ(zPerfLog::Table().find("table_passing"), std::string::npos);
}

TEST(zPerfLog, AbsurdArgumentsAreBroughtIntoRange) {
    zPerfLog::Variable variable("absurd", 0, 500);
    EXPECT_EQ(variable.UnitMicroseconds(), 1);
    EXPECT_EQ(variable.Percentile(), 99);
}
