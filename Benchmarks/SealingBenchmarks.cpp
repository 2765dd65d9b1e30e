#include "Group.h"
#include "MemoryTransport.h"
#include "TestSupport/FakeHost.h"
#include "VimbleKit/Socket.h"

#include <benchmark/benchmark.h>
#include <sodium.h>

namespace {

constexpr std::size_t peopleCount = 1000;

void sealThroughSocket(benchmark::State& state) {
    MemoryTransport transport;
    FakeHost host;
    const Group group(peopleCount - 1);
    const auto keys = std::make_shared<const Keys>(Keys::generate());
    Socket socket(transport, host, "ws://localhost", keys);
    socket.connect();
    transport.open();
    transport.deliver(group.greeting());
    transport.deliver(group.list(keys->publicKey));
    const std::string text = sampleText();
    socket.sendChat(text, "Ann", "🦊", "room");  // computes the shared keys, which are kept for later texts
    for (auto _ : state) socket.sendChat(text, "Ann", "🦊", "room");
    if (socket.serverPeople().size() != peopleCount) state.SkipWithError("the list did not arrive");
    benchmark::DoNotOptimize(transport.sentBytes());
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(peopleCount));
}

void sealBare(benchmark::State& state) {
    const Group group(peopleCount);
    const auto own = Nacl::keyPair();
    std::vector<std::array<unsigned char, crypto_box_BEFORENMBYTES>> shared(peopleCount);
    for (std::size_t i = 0; i < peopleCount; ++i)
        if (crypto_box_beforenm(shared[i].data(), group.people[i].publicKey.data(), own.secretKey.view().data()) != 0)
            state.SkipWithError("no shared key");
    const Bytes json = PackPlaintext{"room", "Ann", "🦊", sampleText()}.encoded();
    Bytes sealed(json.size() + crypto_box_MACBYTES);
    for (auto _ : state) {
        for (const auto& key : shared) {
            unsigned char nonce[crypto_box_NONCEBYTES];
            randombytes_buf(nonce, sizeof nonce);
            crypto_box_easy_afternm(sealed.data(), json.data(), json.size(), nonce, key.data());
            benchmark::DoNotOptimize(sealed.data());
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(peopleCount));
}

BENCHMARK(sealThroughSocket)->Unit(benchmark::kMicrosecond);
BENCHMARK(sealBare)->Unit(benchmark::kMicrosecond);

}  // namespace
