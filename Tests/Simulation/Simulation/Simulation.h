#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

/// Many clients and a relay in one process, in virtual time, over links that fail. One seed decides what
/// everybody does and what goes wrong.
///
/// After the storm all faults end and ten minutes pass. Then everybody who should be is online, the
/// rosters agree, and every text is where it belongs. The exceptions:
/// - A text may be missing if its author's link died before the relay read it, or if the relay was
///   killed within a tenth of a second of reading it.
/// - A text may come twice if the reader's link died, or the relay was killed, before the proof of its
///   arrival.
/// - A client that was killed may have lost a text that its save timer had not yet written.
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
    /// @param trace  gets a line for every event; null: none
    static Result run(std::uint64_t seed, std::ostream* trace = nullptr);
};
