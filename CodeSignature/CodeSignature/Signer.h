#pragma once

#include "CodeSignature/OpenSslPointers.h"
#include "CodeSignature/Sha256.h"

#include <optional>
#include <string>
#include <vector>

/// What a certificate says of the one who signs: a name for people, and the key, which makes it certain.
struct Authority {
    /// The subject's common name; where it has none or several, the whole subject (RFC 2253). Escaped.
    std::string name;
    /// SHA-256 of the public key with its algorithm (SubjectPublicKeyInfo, DER).
    Sha256::Digest keyDigest = {};

    bool operator==(const Authority&) const = default;

    /// "NAME (sha256 HEX)": equal only if the keys are.
    std::string text() const;
};

/// Who has signed.
struct Signer {
    /// The organisational unit of the first certificate; absent where it has none. Escaped.
    std::optional<std::string> teamIdentifier;
    /// From the one that signed to the one that is signed by itself. At most 8.
    std::vector<Authority> chain;

    bool operator==(const Signer&) const = default;

    /// Takes a chain that has been checked.
    /// @throws CodeSignatureError badSignature  several organisational units, or names that can't be read or are
    ///         longer than 512 bytes
    [[nodiscard]] static Signer of(const std::vector<X509*>& chain);
};

/// A certificate's name, for the text that refuses it. Never throws, whatever the certificate holds.
std::string nameOf(X509* certificate);
