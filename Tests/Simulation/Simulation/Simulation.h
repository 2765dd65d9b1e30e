#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

/// Many clients and a relay in one process, in virtual time, over links that fail: one seed says what
/// everybody does and what goes wrong.
///
/// After the storm all faults end and ten minutes pass. Then everybody who should be is online, the
/// rosters agree, and every text is where it belongs: missing only if the link of its author died
/// before the relay read it, or if the relay was killed within the tenth of a second that it may
/// lose; double only if the link of a reader died, or the relay was killed, before the proof of its
/// arrival; lost by a client that was killed only if its save timer had not yet written it.
class Simulation {
public:
    struct Result {
        std::uint64_t seed = 0;
        std::optional<std::string> failure;
        std::size_t machines = 0;
        std::size_t texts = 0;
        std::size_t packs = 0;
        std::size_t links = 0;
        std::size_t kills = 0;    // of clients and relays
        std::size_t repeats = 0;  // packs that a machine got more than once
        std::size_t lost = 0;     // packs that the relay never read
        std::size_t excused = 0;  // packs that a killed relay took with it
    };

    /// Runs one seed from its calm beginning to its verdict.
    /// @param trace  where every event is told; null for nowhere
    static Result run(std::uint64_t seed, std::ostream* trace = nullptr);
};
