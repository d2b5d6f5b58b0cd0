// Side-by-side ratios for the benchmark programs: a console reporter that
// remembers each run's CPU time per iteration and, once all runs are done,
// prints "peer time / our time" for the pairs a program names (below 1
// means ours is slower). CPU time, because the machines these run on are
// shared and wall time counts other processes' turns; the median when a
// run is repeated. Pairs whose runs were filtered out are skipped.
#ifndef CANTRIX_BENCH_RATIO_H
#define CANTRIX_BENCH_RATIO_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace bench {

struct RatioPair {
    std::string ours;  // full run name, e.g. "BM_OmbrFormat/3"
    std::string peer;
    std::string label;  // what the line says
};

class RatioReporter : public benchmark::ConsoleReporter {
   public:
    RatioReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            if (run.error_occurred) continue;
            if (run.run_type != Run::RT_Iteration && run.aggregate_name != "median") continue;
            // Nanoseconds per iteration, whatever unit the run prints in.
            static constexpr double kToNs[] = {1.0, 1e3, 1e6, 1e9};
            times_[run.benchmark_name()] = run.GetAdjustedCPUTime() * kToNs[run.time_unit];
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // CPU nanoseconds per iteration of a run: its median when repetitions
    // were asked for, else the single run; 0 if it did not run.
    double time(const std::string &name) const {
        auto it = times_.find(name + "_median");
        if (it == times_.end()) it = times_.find(name);
        return it == times_.end() ? 0 : it->second;
    }

    void print_ratios(const std::vector<RatioPair> &pairs) const {
        bool header = false;
        for (const RatioPair &p : pairs) {
            const double ours = time(p.ours), peer = time(p.peer);
            if (ours <= 0 || peer <= 0) continue;
            if (!header) {
                std::printf("\nratio = peer CPU time / our CPU time (below 1: ours is slower)\n");
                header = true;
            }
            std::printf("  %-58s %6.2fx  (ours %.1f ns, peer %.1f ns CPU)\n", p.label.c_str(), peer / ours, ours,
                        peer);
        }
        std::fflush(stdout);
    }

   private:
    std::map<std::string, double> times_;
};

// main() of a benchmark program that prints ratios after its runs.
inline int run_with_ratios(int argc, char **argv, const std::vector<RatioPair> &pairs) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_ratios(pairs);
    benchmark::Shutdown();
    return 0;
}

}  // namespace bench

#endif
