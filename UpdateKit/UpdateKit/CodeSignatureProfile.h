#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Who signed a bundle, as the tool beside this program tells it.
struct CodeSignatureProfile {
    enum class Kind { adhoc, signed_ };

    Kind kind = Kind::signed_;
    std::optional<std::string> teamIdentifier;
    std::vector<std::string> authorityChain;  // the signer first, as the tool lists it

    /// Reads what `vimble-codesign -d --verbose=4` prints: the lines "Signature=adhoc", "TeamIdentifier=" ("not
    /// set" stands for none) and "Authority=". Any text gives a profile; one without such lines matches nothing.
    /// For a line with nothing behind its "=", the word before the "=" is taken as the value.
    [[nodiscard]] static CodeSignatureProfile parse(std::string_view output);

    /// Whether a bundle with one may be replaced by a bundle with the other.
    ///
    /// Two ad-hoc ones always match; of two signed ones the chains must be equal and, unless both name the
    /// same team, not empty. Different teams with the same chain match too: the chain is the proof.
    [[nodiscard]] bool matches(const CodeSignatureProfile& other) const;

    bool operator==(const CodeSignatureProfile&) const = default;
};
