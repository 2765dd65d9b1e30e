#include "Simulation/Simulation.h"

#include <charconv>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <optional>
#include <string_view>
#include <vector>

namespace {

constexpr std::string_view usage =
    "Usage: vimble-simulate --seeds N [--from S] | --seed S\n"
    "\n"
    "Lets clients and a relay talk over links that fail, stall and close, in virtual time, and checks\n"
    "that every text ends where it belongs.\n"
    "\n"
    "--seeds N  runs N seeds and names those that fail\n"
    "--from S   begins with the seed S instead of 1\n"
    "--seed S   runs one seed, with a trace of all that happens\n"
    "\n"
    "The exit status is 1 if a seed has failed.\n";

std::optional<std::uint64_t> number(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

void tell(const Simulation::Result& result) {
    if (result.failure)
        std::cout << "FAILED " << *result.failure << '\n';
    else
        std::cout << result.machines << " machines, " << result.texts << " texts in " << result.packs << " packs ("
                  << result.lost << " never read, " << result.repeats << " doubled, " << result.excused << " excused), "
                  << result.links << " links, " << result.kills << " kills\n";
}

int runOne(std::uint64_t seed) {
    const auto result = Simulation::run(seed, &std::cout);
    std::cout << "seed " << seed << ": ";
    tell(result);
    return result.failure ? 1 : 0;
}

int runMany(std::uint64_t first, std::uint64_t count) {
    const auto started = std::chrono::steady_clock::now();
    std::vector<std::uint64_t> failed;
    for (std::uint64_t seed = first; seed < first + count; ++seed) {
        // Print the seed before it runs, so that a crash names it too.
        std::cout << "seed " << seed << ": " << std::flush;
        const auto result = Simulation::run(seed);
        tell(result);
        if (result.failure) failed.push_back(seed);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    std::cout << count << " seeds in " << took.count() << " seconds, " << failed.size() << " failed";
    for (const std::uint64_t seed : failed) std::cout << " " << seed;
    std::cout << '\n';
    if (!failed.empty()) std::cout << "To see one: vimble-simulate --seed " << failed.front() << '\n';
    return failed.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    std::optional<std::uint64_t> seeds, seed;
    std::uint64_t from = 1;
    for (int i = 1; i < argc; i += 2) {
        const std::string_view option = argv[i];
        if (option == "--help" || option == "-h") {
            std::cout << usage;
            return 0;
        }
        const auto value = i + 1 < argc ? number(argv[i + 1]) : std::nullopt;
        if (!value) {
            std::cerr << "vimble-simulate: " << option << " needs a number, or is no option\n" << usage;
            return 1;
        }
        if (option == "--seeds")
            seeds = value;
        else if (option == "--seed")
            seed = value;
        else if (option == "--from")
            from = *value;
        else {
            std::cerr << "vimble-simulate: there is no option " << option << '\n' << usage;
            return 1;
        }
    }
    if (seed) return runOne(*seed);
    if (seeds) return runMany(from, *seeds);
    std::cerr << usage;
    return 1;
}
