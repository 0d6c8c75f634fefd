// Side-by-side comparisons: each benchmark is named "comparison/contender";
// contenders whose name starts with "ours" are ours, the others the peers.
// All repetitions of all contenders run interleaved in random order in one
// process (by default 100 repetitions of one run each: on a shared machine
// the best single run is the one the others disturbed least, and a long
// repetition always contains disturbances), each is summarised by its best
// repetition, and the program ends with the ratios
// of the best times, ours / other, of every comparison (below 1: ours
// faster; between two of ours, e.g. serial / parallel, the speed-up), in
// wall-clock time and in CPU time of the calling thread.
// Include this header in exactly one file per program; it defines main().
#ifndef TAVRIN_BENCH_COMPARE_MAIN_H
#define TAVRIN_BENCH_COMPARE_MAIN_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace bench_compare {

// Registers one contender, timed in wall-clock milliseconds with the extra
// statistic "best" (the fastest repetition).
template <typename Fn>
benchmark::internal::Benchmark* contender(const std::string& comparison, const std::string& who,
                                          Fn fn) {
    return benchmark::RegisterBenchmark((comparison + "/" + who).c_str(), fn)
        ->ComputeStatistics("best",
                            [](const std::vector<double>& v) {
                                return *std::min_element(v.begin(), v.end());
                            })
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

// Console output as usual; the "best" aggregates are kept for the table.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            if (r.run_type != Run::RT_Aggregate || r.aggregate_name != "best") continue;
            const std::string name = r.run_name.function_name;
            const size_t slash = name.find('/');
            if (slash == std::string::npos) continue;
            best_[name.substr(0, slash)].push_back(
                Best{name.substr(slash + 1), r.GetAdjustedRealTime(), r.GetAdjustedCPUTime()});
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-12s %-20s %-20s %9s %9s %7s %9s %9s %7s\n", "comparison", "ours", "other",
                    "ours ms", "other ms", "ratio", "ours cpu", "other cpu", "ratio");
        for (const auto& [comparison, entries] : best_)
            for (const Best& ours : entries) {
                if (ours.who.rfind("ours", 0) != 0) continue;
                for (const Best& other : entries)
                    if (other.who != ours.who)
                        std::printf("%-12s %-20s %-20s %9.3f %9.3f %6.2fx %9.3f %9.3f %6.2fx\n",
                                    comparison.c_str(), ours.who.c_str(), other.who.c_str(),
                                    ours.real, other.real, ours.real / other.real, ours.cpu,
                                    other.cpu, ours.cpu / other.cpu);
            }
        std::fflush(stdout);
    }

private:
    struct Best {
        std::string who;
        double real, cpu;  // best repetition, ms of wall clock and of the calling thread's CPU
    };
    std::map<std::string, std::vector<Best>> best_;
};

// Adds the defaults unless the command line sets them.
inline std::vector<char*> withDefaults(int argc, char** argv) {
    static char reps[] = "--benchmark_repetitions=100";
    static char shuffle[] = "--benchmark_enable_random_interleaving=true";
    static char minTime[] = "--benchmark_min_time=0";
    static char aggregates[] = "--benchmark_display_aggregates_only=true";
    std::vector<char*> args(argv, argv + argc);
    auto given = [&](const char* flag) {
        for (int i = 1; i < argc; ++i)
            if (std::strncmp(argv[i], flag, std::strlen(flag)) == 0) return true;
        return false;
    };
    if (!given("--benchmark_repetitions")) args.push_back(reps);
    if (!given("--benchmark_enable_random_interleaving")) args.push_back(shuffle);
    if (!given("--benchmark_min_time")) args.push_back(minTime);
    if (!given("--benchmark_display_aggregates_only")) args.push_back(aggregates);
    return args;
}

}  // namespace bench_compare

// Each program defines registerContenders() to register its benchmarks.
void registerContenders();

int main(int argc, char** argv) {
    std::vector<char*> args = bench_compare::withDefaults(argc, argv);
    int n = static_cast<int>(args.size());
    benchmark::Initialize(&n, args.data());
    if (benchmark::ReportUnrecognizedArguments(n, args.data())) return 1;
    registerContenders();
    bench_compare::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

#endif
