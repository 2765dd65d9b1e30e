#include "SigningSupport/ProgramRun.h"
#include "SigningSupport/TestIdentity.h"
#include "TestSupport/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace fs = std::filesystem;

namespace {

/// A copy of the bundle, signed.
struct SealedBundle {
    SealedBundle() {
        std::ofstream(identity) << usualChain().pem();
        fs::copy(BUNDLE, bundle, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        static_cast<void>(codesign({"--sign", identity, bundle}));
        for (const auto& entry : fs::recursive_directory_iterator(bundle))
            if (entry.is_regular_file() && !entry.is_symlink()) files.push_back(entry.path());
    }

    const TemporaryFolder folder;
    const fs::path identity = folder.path / "identity.pem";
    const fs::path bundle = folder.path / "Vimble.app";
    std::vector<std::string> files;  // all files that the seal covers, and the seal itself
};

SealedBundle& sealed() {
    static SealedBundle only;
    return only;
}

/// Runs a program that reads all files. The system has these in its cache, since they were just made.
void run(benchmark::State& state, std::vector<std::string> command, bool takesFiles) {
    if (takesFiles) command.insert(command.end(), sealed().files.begin(), sealed().files.end());
    for (auto _ : state)
        if (ProgramRun::of(command).status != 0) state.SkipWithError("the program failed");
}

void verifySeal(benchmark::State& state) { run(state, {CODESIGN_PROGRAM, "--verify", sealed().bundle}, false); }
void signBundle(benchmark::State& state) {
    run(state, {CODESIGN_PROGRAM, "--sign", sealed().identity, sealed().bundle}, false);
}
void sha256sumOfFiles(benchmark::State& state) { run(state, {"/usr/bin/sha256sum", "--"}, true); }
void opensslOfFiles(benchmark::State& state) { run(state, {"/usr/bin/openssl", "dgst", "-sha256"}, true); }

}  // namespace

BENCHMARK(verifySeal)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(signBundle)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(sha256sumOfFiles)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(opensslOfFiles)->Unit(benchmark::kMillisecond)->UseRealTime();
