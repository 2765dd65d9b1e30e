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

/// The relay's certificate and key, and the rules of TLS (1.2 at least). Connections that were made
/// with it keep what they need of it.
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

/// TLS of one connection, as a machine that turns bytes into bytes: the socket is somebody else's.
class TlsSession {
public:
    explicit TlsSession(const TlsContext& context);

    /// Takes what has arrived, and appends what it says to `plain`.
    /// @return false when the connection can't go on: not TLS, a failed handshake, or closed by the client
    bool receive(ByteView arrived, Bytes& plain);
    /// Seals what is to be sent. Only after something was received: the handshake is over by then.
    bool send(ByteView plain);
    /// Says that no more will be sent.
    void close();
    /// Moves what is to be written to the socket to the end of `out`.
    void takeOutput(Bytes& out);

private:
    struct Free {
        void operator()(SSL* handle) const;
    };
    std::unique_ptr<SSL, Free> session;
    BIO* input;   // owned by the session, as is
    BIO* output;  // this one
};
