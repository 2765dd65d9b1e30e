#include "Simulation/Simulation.h"

#include "Simulation/Storm.h"
#include "Simulation/Verdict.h"
#include "Simulation/World.h"

#include "StateKit/Log.h"

#include <memory>
#include <string>
#include <utility>

namespace {

constexpr Seconds calmTime = 600;
constexpr Seconds shortTime = 60;

/// Puts what the engine logs into the trace.
class TraceLog : public LogSink {
public:
    explicit TraceLog(const Journal& journal) : journal(journal) {}
    void write(LogLevel, std::string_view, std::string_view category, std::string_view message) override {
        journal.line([&] { return "  [" + std::string(category) + "] " + std::string(message); });
    }

private:
    const Journal& journal;
};

void runWorld(World& world) {
    Storm storm(world);
    const auto holds = [&] { return !world.journal.failure(); };
    storm.rage();
    if (!holds()) return;
    storm.calm();
    world.loop.advance(shortTime);
    storm.connectAgain();
    world.loop.advance(calmTime);
    if (holds()) judge(world);
    if (!holds()) return;
    storm.wakeAll();
    world.loop.advance(shortTime);
    if (holds()) storm.lastRound();
    world.loop.advance(shortTime);
    if (holds()) judge(world);
    if (holds()) judgeNames(world);

    // The relay sends the list to everybody at each change of the members, even if nobody goes online or offline.
    const std::string stranger = Nacl::hex(Nacl::publicKey(SecretKey(Bytes(SecretKey::size, 7))));
    for (const char* word : {"add ", "admin ", "unadmin ", "remove "}) {
        if (!holds()) return;
        world.machines.front()->command(word + stranger);
        world.loop.advance(5);
        judge(world);
    }
}

}  // namespace

Simulation::Result Simulation::run(std::uint64_t seed, std::ostream* trace) {
    World world(seed, trace);
    const auto before = Log::setSink(std::make_shared<TraceLog>(world.journal));
    runWorld(world);

    Result result;
    result.seed = seed;
    result.failure = world.journal.failure();
    result.machines = world.machines.size();
    result.texts = world.texts.size();
    result.links = world.wires.size();
    result.kills = world.kills;
    world.ledger.count(result.packs, result.lost, result.repeats, result.excused);
    world.machines.clear();
    Log::setSink(before);
    return result;
}
