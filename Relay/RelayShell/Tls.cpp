#include "RelayShell/Tls.h"

#include "Base/Check.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <string>

namespace {

std::string lastReason() {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    const char* reason = ERR_reason_error_string(code);
    return reason ? reason : "unknown reason";
}

}  // namespace

void TlsContext::Free::operator()(SSL_CTX* handle) const { SSL_CTX_free(handle); }
void TlsSession::Free::operator()(SSL* handle) const { SSL_free(handle); }

TlsContext::TlsContext(const std::filesystem::path& certificate, const std::filesystem::path& key)
    : context(SSL_CTX_new(TLS_server_method())) {
    check(context != nullptr, "TLS can't be set up.");
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_options(context.get(),
                        SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_mode(context.get(), SSL_MODE_RELEASE_BUFFERS);
    ERR_clear_error();
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificate.c_str()) != 1)
        throw TlsError("the certificate " + certificate.string() + " can't be used: " + lastReason());
    // Without this, OpenSSL would ask on the terminal for the passphrase of a key that has one.
    SSL_CTX_set_default_passwd_cb(context.get(), [](char*, int, int, void*) { return 0; });
    if (SSL_CTX_use_PrivateKey_file(context.get(), key.c_str(), SSL_FILETYPE_PEM) != 1)
        throw TlsError("the key " + key.string() + " can't be used: " + lastReason());
    if (SSL_CTX_check_private_key(context.get()) != 1)
        throw TlsError("the key " + key.string() + " does not belong to the certificate " + certificate.string());
}

TlsSession::TlsSession(const TlsContext& context)
    : session(SSL_new(context.handle())), input(BIO_new(BIO_s_mem())), output(BIO_new(BIO_s_mem())) {
    check(session && input && output, "TLS can't be set up.");
    SSL_set_bio(session.get(), input, output);
    SSL_set_accept_state(session.get());
}

bool TlsSession::receive(ByteView arrived, Bytes& plain) {
    constexpr std::size_t step = 16 * 1024;  // most plain bytes in a TLS record
    ERR_clear_error();
    if (BIO_write(input, arrived.data(), static_cast<int>(arrived.size())) != static_cast<int>(arrived.size()))
        return false;
    while (true) {
        const std::size_t before = plain.size();
        plain.resize(before + step);
        const int count = SSL_read(session.get(), plain.data() + before, static_cast<int>(step));
        plain.resize(before + static_cast<std::size_t>(std::max(count, 0)));
        if (count <= 0) return SSL_get_error(session.get(), count) == SSL_ERROR_WANT_READ;
    }
}

bool TlsSession::send(ByteView plain) {
    if (plain.empty()) return true;
    ERR_clear_error();
    std::size_t written = 0;
    return SSL_write_ex(session.get(), plain.data(), plain.size(), &written) == 1 && written == plain.size();
}

void TlsSession::close() {
    ERR_clear_error();
    SSL_shutdown(session.get());
    ERR_clear_error();
}

void TlsSession::takeOutput(Bytes& out) {
    const std::size_t pending = BIO_ctrl_pending(output);
    if (pending == 0) return;
    const std::size_t before = out.size();
    out.resize(before + pending);
    BIO_read(output, out.data() + before, static_cast<int>(pending));
}
