#pragma once

#include "Base/Bytes.h"

#include <filesystem>
#include <memory>
#include <stdexcept>

using SSL = struct ssl_st;
using SSL_CTX = struct ssl_ctx_st;
using BIO = struct bio_st;

/// A certificate or key that can't be used: one line for people.
class TlsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The relay's certificate and key, and the rules of TLS (1.2 at least). It may be destroyed before the
/// sessions that were made with it: they share ownership of the certificate and key.
class TlsContext {
public:
    /// @param certificate  PEM, with the chain behind it
    /// @throws TlsError
    TlsContext(const std::filesystem::path& certificate, const std::filesystem::path& key);

    SSL_CTX* handle() const { return context.get(); }

private:
    struct Free {
        void operator()(SSL_CTX* handle) const;
    };
    std::unique_ptr<SSL_CTX, Free> context;
};

/// TLS of one connection, as a machine that turns bytes into bytes: the caller reads and writes the socket.
class TlsSession {
public:
    explicit TlsSession(const TlsContext& context);

    /// Decrypts bytes that have arrived, and appends the plain bytes to `plain`.
    /// @return false when the connection can't go on: not TLS, a failed handshake, or closed by the client
    [[nodiscard]] bool receive(ByteView arrived, Bytes& plain);
    /// Encrypts bytes to send. Call it only after `receive` gave plain bytes: the handshake is over by then.
    [[nodiscard]] bool send(ByteView plain);
    /// Tells the client that no more will be sent (close_notify).
    void close();
    /// Moves the encrypted bytes that must be written to the socket to the end of `out`.
    void takeOutput(Bytes& out);

private:
    struct Free {
        void operator()(SSL* handle) const;
    };
    std::unique_ptr<SSL, Free> session;
    BIO* input;   // owned by the session
    BIO* output;  // owned by the session
};
