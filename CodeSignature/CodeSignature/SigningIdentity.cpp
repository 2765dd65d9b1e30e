#include "CodeSignature/SigningIdentity.h"

#include "CodeSignature/CodeSignatureError.h"
#include "CodeSignature/EscapedText.h"

#include "Base/Bytes.h"
#include "Base/File.h"
#include "Base/FileDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <optional>
#include <utility>

namespace {

CodeSignatureError bad(const std::string& text) {
    return CodeSignatureError(CodeSignatureErrorCode::badIdentity, text);
}

/// The contents of a file, wiped when they are no longer needed.
class SecretFile {
public:
    explicit SecretFile(const std::filesystem::path& path) : bytes(SigningIdentity::maximumBytes + 1) {
        // It may be a pipe that somebody else fills, and is read straight to where it is wiped.
        const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
        const auto count = file ? File::readInto(file.get(), bytes) : std::nullopt;
        if (!count || *count > SigningIdentity::maximumBytes) {
            const std::string why = count ? "it is too large" : std::strerror(errno);
            OPENSSL_cleanse(bytes.data(), bytes.size());
            throw bad("the identity " + escapedText(path.native()) + " can't be read: " + why);
        }
        length = *count;
    }
    ~SecretFile() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
    SecretFile(const SecretFile&) = delete;
    SecretFile& operator=(const SecretFile&) = delete;

    /// Reads from the beginning again. Borrows the bytes.
    OpenSsl::Stream stream() const { return OpenSsl::Stream(BIO_new_mem_buf(bytes.data(), static_cast<int>(length))); }

private:
    Bytes bytes;
    std::size_t length = 0;
};

/// What `answer` needs and finds. The library calls it through C code, which no exception may cross, so an
/// exception is kept here.
struct Asking {
    const SigningIdentity::AskPassphrase& ask;
    bool hasAsked = false;
    bool isDeclined = false;
    std::exception_ptr error;
};

int answer(char* buffer, int size, int, void* user) {
    Asking& asking = *static_cast<Asking*>(user);
    // The library may ask again when it tries another form of the same key; the user is asked only once.
    if (std::exchange(asking.hasAsked, true)) return -1;
    try {
        std::optional<std::string> given = asking.ask();
        asking.isDeclined = !given;
        if (!given) return -1;
        std::string& passphrase = *given;
        const std::size_t length = std::min(passphrase.size(), static_cast<std::size_t>(size));
        std::copy_n(passphrase.begin(), length, buffer);
        OPENSSL_cleanse(passphrase.data(), passphrase.size());
        return static_cast<int>(length);
    } catch (...) {
        asking.error = std::current_exception();
        return -1;
    }
}

}  // namespace

SigningIdentity SigningIdentity::load(const std::filesystem::path& path, const AskPassphrase& ask) {
    const SecretFile file(path);
    const std::string name = "the identity " + escapedText(path.native());
    SigningIdentity identity;

    Asking asking{ask, false, false, nullptr};
    const OpenSsl::Stream keyStream = file.stream();
    identity._key.reset(PEM_read_bio_PrivateKey(keyStream.get(), nullptr, answer, &asking));
    ERR_clear_error();
    if (asking.error) std::rethrow_exception(asking.error);
    if (!identity._key && asking.isDeclined) throw bad(name + " has an encrypted key, and no passphrase was given");
    if (!identity._key && asking.hasAsked) throw bad(name + " does not open with that passphrase");
    if (!identity._key) throw bad(name + " holds no private key");

    const OpenSsl::Stream certificates = file.stream();
    while (X509* certificate = PEM_read_bio_X509(certificates.get(), nullptr, nullptr, nullptr))
        identity.chain.emplace_back(certificate);
    const bool isAtEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    ERR_clear_error();
    if (!isAtEnd) throw bad(name + " holds a certificate that can't be read");
    if (identity.chain.empty()) throw bad(name + " holds no certificate");
    if (X509_check_private_key(identity.certificate(), identity.key()) != 1) {
        ERR_clear_error();
        throw bad("the first certificate of " + escapedText(path.native()) + " is not that of its private key");
    }
    return identity;
}

std::vector<X509*> SigningIdentity::issuers() const {
    std::vector<X509*> result;
    for (std::size_t i = 1; i < chain.size(); ++i) result.push_back(chain[i].get());
    return result;
}
