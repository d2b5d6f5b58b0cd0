// Side-by-side ratios for the benchmark programs: a console reporter that
// remembers each run's CPU time per iteration and, once all runs are done,
// prints "peer time / our time" for the pairs a program names (below 1
// means ours is slower). CPU time, because the machines these run on are
// shared and wall time counts other processes' turns. Pairs whose runs
// were filtered out are skipped.
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
            if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
            // Nanoseconds per iteration, whatever unit the run prints in.
            static constexpr double kToNs[] = {1.0, 1e3, 1e6, 1e9};
            times_[run.benchmark_name()] = run.GetAdjustedCPUTime() * kToNs[run.time_unit];
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void print_ratios(const std::vector<RatioPair> &pairs) const {
        bool header = false;
        for (const RatioPair &p : pairs) {
            auto ours = times_.find(p.ours), peer = times_.find(p.peer);
            if (ours == times_.end() || peer == times_.end() || ours->second <= 0) continue;
            if (!header) {
                std::printf("\nratio = peer CPU time / our CPU time (below 1: ours is slower)\n");
                header = true;
            }
            std::printf("  %-58s %6.2fx  (ours %.1f ns, peer %.1f ns CPU)\n", p.label.c_str(), peer->second / ours->second,
                        ours->second, peer->second);
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
