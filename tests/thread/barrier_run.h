// barrier_run.h - many threads over many phases of one barrier, for the tests and the soak programs.
#ifndef VORN_TESTS_THREAD_BARRIER_RUN_H
#define VORN_TESTS_THREAD_BARRIER_RUN_H

#include "thread/sync_support.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace vorn_test {

// Empty when every phase held: nobody left it before all had arrived, and exactly one got the serial result.
inline std::string BarrierRun(int threads, int phases)
{
    VornBarrier* barrier = nullptr;
    if (VornBarrierCreate(&barrier, static_cast<uint32_t>(threads), 0) != VORN_OK) return "no barrier";
    std::vector<std::atomic<int>> arrived(static_cast<size_t>(phases));
    std::vector<std::atomic<int>> serial(static_cast<size_t>(phases));
    std::atomic<int> early{0};
    std::atomic<int> failed{0};
    {
        std::vector<std::unique_ptr<LibraryThread>> team;
        for (int t = 0; t < threads; ++t) {
            team.push_back(std::make_unique<LibraryThread>([&] {
                for (size_t phase = 0; phase < arrived.size(); ++phase) {
                    ++arrived[phase];
                    const VornStatus status = VornBarrierWait(&barrier);
                    if (arrived[phase].load() != threads) ++early;
                    if (status == VORN_BARRIER_SERIAL_THREAD)
                        ++serial[phase];
                    else if (status != VORN_OK)
                        ++failed;
                }
            }));
        }
    }
    VornBarrierDestroy(&barrier);
    int odd = 0;
    for (const std::atomic<int>& count : serial) odd += count.load() == 1 ? 0 : 1;
    if (early == 0 && failed == 0 && odd == 0) return "";
    return std::to_string(early.load()) + " left early, " + std::to_string(failed.load()) + " failed, " +
           std::to_string(odd) + " phases without exactly one serial thread";
}

}  // namespace vorn_test

#endif
