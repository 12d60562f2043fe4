// Shared by the benchmark programs whose goals are ratios to baselines of the same run: pinning to one
// core, and a console reporter that keeps one figure per benchmark (the median when repeated).
#ifndef ZOL_BENCH_RATIO_H
#define ZOL_BENCH_RATIO_H

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <sched.h>
#include <string>

namespace zol::bench {

// One core for the whole process, as with taskset -c 0; threads created later inherit the mask.
inline void PinToCpu0() {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(0, &cpus);
    if (sched_setaffinity(0, sizeof(cpus), &cpus) != 0) {
        perror("sched_setaffinity");
    }
}

class RatioReporter : public benchmark::ConsoleReporter {
  public:
    enum class Figure { kItemsPerSecond, kRealTime };
    explicit RatioReporter(Figure figure) : figure_(figure) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            if (run.error_occurred || (run.run_type != Run::RT_Iteration && run.aggregate_name != "median")) {
                continue;
            }
            if (figure_ == Figure::kRealTime) {
                figures_[run.run_name.function_name] = run.GetAdjustedRealTime();
            } else if (const auto it = run.counters.find("items_per_second"); it != run.counters.end()) {
                figures_[run.run_name.function_name] = it->second.value;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Prints figure(num) / figure(den) of this run, or n/a when either did not run.
    void PrintRatio(const char *what, const char *num, const char *den, const char *note) const {
        const auto a = figures_.find(num), b = figures_.find(den);
        if (a == figures_.end() || b == figures_.end() || b->second == 0) {
            printf("%-46s n/a (not run)\n", what);
            return;
        }
        printf("%-46s %.3f  (%s)\n", what, a->second / b->second, note);
    }

  private:
    Figure figure_;
    std::map<std::string, double> figures_;
};

} // namespace zol::bench

#endif // ZOL_BENCH_RATIO_H
