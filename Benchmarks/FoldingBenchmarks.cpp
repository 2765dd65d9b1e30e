#include "Group.h"
#include "MemoryTransport.h"
#include "TestSupport/FakeHost.h"
#include "TestSupport/FakePathMonitor.h"
#include "TestSupport/MemorySecretStore.h"
#include "TestSupport/TemporaryFolder.h"
#include "TestSupport/TestLoop.h"
#include "VimbleKit/Kit.h"

#include <benchmark/benchmark.h>
#include <sodium.h>

namespace {

constexpr std::size_t peopleCount = 100;
constexpr std::size_t packCount = 10000;

/// Texts of 200 bytes from a hundred people, every other one to the room.
std::vector<Bytes> packsFor(const PublicKey& reader, const Group& group) {
    std::vector<Nacl::SharedKey> shared;
    for (const auto& person : group.people) shared.emplace_back(reader, person.secretKey);
    std::vector<Bytes> frames;
    for (std::size_t i = 0; i < packCount; ++i) {
        const std::size_t author = i % peopleCount;
        const auto kind = i / peopleCount % 2 == 0 ? std::optional<std::string>("room") : std::nullopt;
        const Bytes json = PackPlaintext{kind, "", "", sampleText()}.encoded();
        frames.push_back(
            sealedFrame(group.people[author].publicKey, reader, Nacl::randomNonce(), json, shared[author]));
    }
    return frames;
}

void foldThroughKit(benchmark::State& state) {
    TestLoop loop;
    FakePath path;
    Internets internets(loop, path.monitor());
    internets.start();
    path.update(true);
    MemoryTransport transport;
    FakeHost host;
    MemorySecretStore secrets;
    const TemporaryFolder folder;
    Kit kit({loop, internets, secrets, transport, host, folder.path});
    kit.setEndpoint(Endpoint("ws://localhost"));
    kit.connect();
    const Group group(peopleCount);
    transport.open();
    transport.deliver(group.greeting());
    transport.deliver(group.list(kit.keys().publicKey));
    const std::vector<Bytes> frames = packsFor(kit.keys().publicKey, group);
    std::size_t rounds = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<Bytes> round = frames;
        state.ResumeTiming();
        for (Bytes& frame : round) transport.deliver(std::move(frame));
        ++rounds;
    }
    std::size_t folded = kit.state().room.messages.size();
    for (const auto& [key, chat] : kit.state().conversations) folded += chat.messages.size();
    if (folded != rounds * packCount) state.SkipWithError("not every pack was folded");
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(packCount));
}

void openBare(benchmark::State& state) {
    const Group group(peopleCount);
    const auto own = Nacl::keyPair();
    const std::vector<Bytes> frames = packsFor(own.publicKey, group);
    std::vector<std::array<unsigned char, crypto_box_BEFORENMBYTES>> shared(peopleCount);
    for (std::size_t i = 0; i < peopleCount; ++i)
        if (crypto_box_beforenm(shared[i].data(), group.people[i].publicKey.data(), own.secretKey.view().data()) != 0)
            state.SkipWithError("no shared key");
    Bytes opened(4096);
    for (auto _ : state) {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            const Bytes& frame = frames[i];
            const int failed =
                crypto_box_open_easy_afternm(opened.data(), frame.data() + EncryptedPack::ciphertextOffset,
                                             frame.size() - EncryptedPack::ciphertextOffset,
                                             frame.data() + EncryptedPack::nonceOffset, shared[i % peopleCount].data());
            if (failed) state.SkipWithError("a box did not open");
            benchmark::DoNotOptimize(opened.data());
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(packCount));
}

BENCHMARK(foldThroughKit)->Unit(benchmark::kMillisecond);
BENCHMARK(openBare)->Unit(benchmark::kMillisecond);

}  // namespace
