// paired.h - a ratio that survives a busy machine.
//
// Ours and the yardstick run in short batches, one after the other, again and again, so that whatever slows
// the machine slows both. Reported are nanoseconds per operation of the best batch of each, the ratio of the
// two, and the ratio of the medians; where the two ratios lie far apart the run was noisy.
#ifndef VORN_BENCH_PAIRED_H
#define VORN_BENCH_PAIRED_H

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <vector>

namespace vorn_bench {

template <class Batch>
double NanosecondsOf(Batch&& batch)
{
    const auto begin = std::chrono::steady_clock::now();
    batch();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - begin).count();
}

// Each of the two does `operations` operations per call.
template <class Ours, class Yardstick>
void Paired(benchmark::State& state, int operations, Ours&& ours, Yardstick&& yardstick)
{
    std::vector<double> oursNs, yardstickNs;
    for (auto _ : state) {
        // The first of a pair may find the caches cold: they take turns at being first.
        if (oursNs.size() % 2 == 0) {
            oursNs.push_back(NanosecondsOf(ours) / operations);
            yardstickNs.push_back(NanosecondsOf(yardstick) / operations);
        } else {
            yardstickNs.push_back(NanosecondsOf(yardstick) / operations);
            oursNs.push_back(NanosecondsOf(ours) / operations);
        }
    }
    std::sort(oursNs.begin(), oursNs.end());
    std::sort(yardstickNs.begin(), yardstickNs.end());
    state.counters["ns"] = oursNs.front();
    state.counters["yardstick_ns"] = yardstickNs.front();
    state.counters["ratio_best"] = oursNs.front() / yardstickNs.front();
    state.counters["ratio_median"] = oursNs[oursNs.size() / 2] / yardstickNs[yardstickNs.size() / 2];
}

}  // namespace vorn_bench

#endif
