#include "Ratios.h"
#include "UpdateDesk.h"

#include <exception>

#include <benchmark/benchmark.h>

namespace {

UpdateDesk& desk() {
    static UpdateDesk only;
    return only;
}

void startOfBundle(benchmark::State& state) {
    for (auto _ : state) try {
            state.SetIterationTime(desk().start());
            desk().end();
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
        }
}

void gapOfUpdate(benchmark::State& state) {
    for (auto _ : state) try {
            desk().prepareUpdate();
            desk().start();
            const UpdateDesk::Gap gap = desk().update();
            desk().end();
            state.SetIterationTime(gap.toFirstPaint);
            state.counters["msWithoutWindow"] = 1000 * gap.withoutWindow;
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
        }
}

}  // namespace

// One iteration is enough: each starts a new process, so there is nothing to warm up.
BENCHMARK(startOfBundle)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1);
BENCHMARK(gapOfUpdate)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1);
