#include "Group.h"
#include "StateKit/Core.h"
#include "TestSupport/TestLoop.h"
#include "VimbleKit/State.h"

#include <benchmark/benchmark.h>

namespace {

struct Observer : SignalTarget {
    void changed(const State& state) { benchmark::DoNotOptimize(state.conversations.size()); }
};

/// Commits one more message to a conversation that has `history` messages. The store starts anew every hundred commits,
/// so that a short history stays short.
void commitAt(benchmark::State& benchmark, std::size_t history) {
    const std::string partner(64, 'a');
    State initial;
    initial.publicKey = std::string(64, 'b');
    initial.endpoint = Endpoint("https://chat.example.org");
    initial.conversations.update(partner, [&](Chat& chat) {
        for (std::size_t i = 0; i < history; ++i) chat.messages.push_back({partner, sampleText(), {double(i)}});
    });
    TestLoop loop;
    Observer observer;
    auto core = Core<State>::make(loop, initial);
    core->subscribe(observer, &Observer::changed);
    int sinceStart = 0;
    for (auto _ : benchmark) {
        if (++sinceStart == 100) {
            benchmark.PauseTiming();
            core = Core<State>::make(loop, initial);
            observer = Observer();
            core->subscribe(observer, &Observer::changed);
            // Do the first commit outside the measurement: the end of the shared list is taken by earlier copies, so
            // that commit has to copy the list.
            core->commit([&](State& state) {
                state.conversations.update(partner, [&](Chat& chat) { chat.messages.push_back({partner, "", {}}); });
            });
            sinceStart = 0;
            benchmark.ResumeTiming();
        }
        core->commit([&](State& state) {
            state.conversations.update(partner, [&](Chat& chat) {
                chat.messages.push_back({partner, "Shall we meet at the lake at seven?", {1.0}});
            });
        });
    }
}

void commitAt100(benchmark::State& state) { commitAt(state, 100); }
void commitAt100000(benchmark::State& state) { commitAt(state, 100000); }

BENCHMARK(commitAt100);
BENCHMARK(commitAt100000);

}  // namespace
