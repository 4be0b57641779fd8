// SPDX-License-Identifier: MIT
#include "rounds.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <vector>

namespace bench {
namespace {

// After one call that is not counted, where that is cheap: what ran before has left the caches and the branch predictor
// in its own state.
double secondsOf(const Call& call, int calls) {
    if (calls > 1) call();
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i)
        call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count() / calls;
}

double secondsOfOurs(const Contest& contest, int calls) {
    if (!contest.before) return secondsOf(contest.ours, calls);
    contest.before();
    return secondsOf(contest.ours, 1);
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Long enough that the clock does not count, short enough that a neighbour rarely falls into one of the two only.
int callsPerSample(double seconds) {
    constexpr double sampleSeconds = 0.001;
    return std::clamp(static_cast<int>(sampleSeconds / seconds), 1, 1000);
}

struct Samples {
    std::vector<double> ours, limit, plain, toLimit, toPlain;
    int frames = 1;

    void add(double oursSeconds, double limitSeconds, double plainSeconds) {
        ours.push_back(oursSeconds);
        limit.push_back(limitSeconds);
        plain.push_back(plainSeconds);
        toLimit.push_back(oursSeconds / limitSeconds);
        toPlain.push_back(plainSeconds / oursSeconds);
    }
};

// A contest that has touched all its memory, and how many calls make a sample.
struct Prepared {
    explicit Prepared(const std::function<Contest()>& make) : contest(make()) {
        secondsOfOurs(contest, 1);
        contest.limit();
        calls = callsPerSample(secondsOfOurs(contest, 1));
        plainCalls = contest.plain ? callsPerSample(secondsOf(contest.plain, 1)) : 0;
    }

    Contest contest;
    int calls, plainCalls;
};

// Everything is made anew a few times: which pages of memory one gets decides about some per cent, for a whole run.
Samples runRounds(benchmark::State& state, const std::function<Contest()>& make) {
    constexpr benchmark::IterationCount makes = 5;
    const benchmark::IterationCount perMake = std::max<benchmark::IterationCount>(state.max_iterations / makes, 1);
    Samples samples;
    std::unique_ptr<Prepared> prepared;
    benchmark::IterationCount round = 0;
    for (auto _ : state) {
        if (round % perMake == 0) {
            prepared.reset();
            prepared = std::make_unique<Prepared>(make);
        }
        const Contest& contest = prepared->contest;
        const bool limitFirst = round++ % 2 == 0;
        double limit = limitFirst ? secondsOf(contest.limit, prepared->calls) : 0;
        const double ours = secondsOfOurs(contest, prepared->calls);
        if (!limitFirst) limit = secondsOf(contest.limit, prepared->calls);
        samples.add(ours, limit, contest.plain ? secondsOf(contest.plain, prepared->plainCalls) : 0);
        samples.frames = contest.frames;
        state.SetIterationTime(ours);
    }
    return samples;
}

void runRow(benchmark::State& state, Targets targets, const std::function<Contest()>& make) try {
    const Samples samples = runRounds(state, make);
    const double microseconds = 1e6 / samples.frames;
    state.counters["frames"] = samples.frames;
    state.counters["oursUs"] = median(samples.ours) * microseconds;
    state.counters["limitUs"] = median(samples.limit) * microseconds;
    state.counters["toLimit"] = median(samples.toLimit);
    state.counters["mostToLimit"] = targets.limit;
    if (median(samples.plain) == 0) return;
    state.counters["plainUs"] = median(samples.plain) * microseconds;
    state.counters["toPlain"] = median(samples.toPlain);
    state.counters["leastToPlain"] = targets.plain;
} catch (const std::exception& failure) {
    state.SkipWithError(failure.what());
}

void runNumber(benchmark::State& state, double most, const std::function<double()>& measure) try {
    std::vector<double> values;
    for (auto _ : state) {
        values.push_back(measure());
        state.SetIterationTime(values.back() * 1e-6);
    }
    state.counters["valueUs"] = median(values);
    state.counters["mostUs"] = most;
} catch (const std::exception& failure) {
    state.SkipWithError(failure.what());
}

// One line for each row.
class Table : public benchmark::BenchmarkReporter {
 public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred)
                std::printf("%-44s %s\n", run.run_name.function_name.c_str(), run.error_message.c_str());
            const bool met = !run.error_occurred && report(run);
            anyShort |= !met;
            std::fflush(stdout);
        }
    }

    bool anyShort = false;

 private:
    static double counter(const Run& run, const char* name) {
        const auto found = run.counters.find(name);
        return found == run.counters.end() ? 0.0 : found->second.value;
    }

    static bool report(const Run& run) {
        const char* const name = run.run_name.function_name.c_str();
        const double value = counter(run, "valueUs"), most = counter(run, "mostUs");
        if (run.counters.count("valueUs")) return line(name, "%.2f us", value, 0, most, 0);
        if (counter(run, "mostToLimit") > 0)
            return line(name, "%.2f", counter(run, "toLimit"), counter(run, "toPlain"), counter(run, "mostToLimit"),
                        counter(run, "leastToPlain"));
        std::printf("%-44s %10.2f us per frame, limit %.2f us\n", name, counter(run, "oursUs"),
                    counter(run, "limitUs"));
        return true;
    }

    static bool line(const char* name, const char* format, double value, double toPlain, double most, double least) {
        const auto text = [](const char* pattern, double number, const char* none) {
            char area[32];
            std::snprintf(area, sizeof area, number > 0 ? pattern : none, number);
            return std::string(area);
        };
        const bool met = (most == 0 || value <= most) && toPlain >= least;
        const std::string target = text("<= %g", most, "") + text(", >= %g", least, "");
        std::printf("%-44s %10s %8s   %-14s %s\n", name, text(format, value, format).c_str(),
                    text("%.1f", toPlain, "-").c_str(), target.c_str(),
                    most == 0 ? ""
                    : met     ? "ok"
                              : "short");
        return met;
    }
};

}  // namespace

void addRow(const std::string& name, Targets targets, int rounds, std::function<Contest()> make) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [targets, make](benchmark::State& state) { runRow(state, targets, make); })
        ->UseManualTime()
        ->Iterations(rounds)
        ->Unit(benchmark::kMicrosecond);
}

void addNumber(const std::string& name, double most, int rounds, std::function<double()> measure) {
    benchmark::RegisterBenchmark(name.c_str(),
                                 [most, measure](benchmark::State& state) { runNumber(state, most, measure); })
        ->UseManualTime()
        ->Iterations(rounds)
        ->Unit(benchmark::kMicrosecond);
}

void fail(const std::string& text) { throw std::runtime_error(text); }

}  // namespace bench

int main(int argc, char** argv) try {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    bench::addRows();
    bench::Table table;
    benchmark::RunSpecifiedBenchmarks(&table);
    return table.anyShort ? 1 : 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 2;
}
