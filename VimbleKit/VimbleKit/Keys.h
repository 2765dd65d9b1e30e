#pragma once

#include "TweetNacl/Nacl.h"
#include "VimbleKit/SecretStore.h"

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// Why there are no keys.
class [[nodiscard]] KeysError : public std::exception {
public:
    enum class Code { securityError, badKeyFormat, notFound };

    /// @param message  what the status means, in the store's words
    static KeysError securityError(SecretStatus status, std::string_view message);
    static KeysError badKeyFormat(std::string_view text);
    static KeysError notFound();

    /// A line for the user or the log; never the payload of `badKeyFormat`.
    const char* what() const noexcept override { return message.c_str(); }

    /// The same for an alert: what the store says of its status, and where it says nothing, the line.
    const std::string& reason() const { return storeText.empty() ? message : storeText; }

    Code code = Code::notFound;
    SecretStatus status = SecretStatuses::ok;  // securityError: what the store returned

    /// badKeyFormat: the text as given. It may be a secret key with one letter wrong, so it is never
    /// shown or logged, and wiped with the last copy of the error.
    std::string_view payload() const;

private:
    KeysError() = default;

    std::string message;
    std::string storeText;
    std::shared_ptr<const std::string> text;
};

/// A user's identity: a key pair whose secret half lives in the secret store.
///
/// At rest the secret key is one item of the store, as the UTF-8 bytes of its 64 lower-case hexadecimal
/// characters. The public key is never stored: it is derived. Move-only, since it holds the secret.
///
/// Used on one thread at a time, as the store is. A store that fails is never taken for an empty one: every status but
/// "not found" is raised, and leaves the stored items as they were.
class Keys {
public:
    /// What the store has: the present item, or one that an older version left, which is moved there.
    /// Items that hold no key are passed over. @return nothing if no location has a key
    /// @throws KeysError securityError
    [[nodiscard]] static std::optional<Keys> load(SecretStore& store);

    /// The same, and a new identity, stored, where there is none.
    /// @throws KeysError securityError
    static Keys loadOrGenerate(SecretStore& store);

    /// New keys, not stored.
    [[nodiscard]] static Keys generate();

    /// New keys, stored. @throws KeysError securityError; the old key stays
    static Keys regenerate(SecretStore& store);

    /// Keys from the text of a secret key, in either case; not stored.
    /// @throws KeysError badKeyFormat  unless it is exactly 64 hexadecimal characters
    explicit Keys(std::string_view secretKeyText);

    /// The same, stored. @throws KeysError badKeyFormat, securityError; the old key stays
    static Keys replace(std::string_view secretKeyText, SecretStore& store);

    /// Puts the secret key into the present item. @throws KeysError securityError
    void save(SecretStore& store) const;

    /// The public key as the system speaks of a person: 64 lower-case hexadecimal characters.
    std::string publicKeyText() const { return Nacl::hex(publicKey); }

    PublicKey publicKey;
    SecretKey secretKey;

    bool operator==(const Keys&) const = default;

private:
    explicit Keys(SecretKey secretKey);
};
