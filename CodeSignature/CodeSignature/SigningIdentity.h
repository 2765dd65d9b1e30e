#pragma once

#include "CodeSignature/OpenSslPointers.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Who signs: a private key, its certificate, and the certificates of those who signed that one.
///
/// Shape: one PEM file with the key (encrypted or not), then the certificates, the key's own first and one
/// signed by itself last. Move-only; what was read of the file is wiped.
class SigningIdentity {
public:
    static constexpr std::size_t maximumBytes = 1 << 20;
    static constexpr std::size_t maximumPassphraseBytes = 1023;

    /// Called once, if the key is encrypted; the passphrase is wiped after use. Returns nothing if there is no
    /// way to get a passphrase.
    using AskPassphrase = std::function<std::optional<std::string>()>;

    /// Reads an identity. The chain of certificates is not checked before `CmsSignature::make`.
    /// @throws CodeSignatureError badIdentity  no such file, no key or no certificate in it, not the
    ///         certificate of that key, a wrong passphrase or none. What `ask` throws comes through.
    [[nodiscard]] static SigningIdentity load(const std::filesystem::path& file, const AskPassphrase& ask);

    /// Borrowed, for the length of a call.
    EVP_PKEY* key() const { return _key.get(); }
    X509* certificate() const { return chain.front().get(); }
    /// The certificates without the first, which is the key's own.
    std::vector<X509*> issuers() const;

private:
    SigningIdentity() = default;

    OpenSsl::Key _key;
    std::vector<OpenSsl::Certificate> chain;
};
