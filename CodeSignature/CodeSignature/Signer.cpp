#include "CodeSignature/Signer.h"

#include "CodeSignature/CodeSignatureError.h"
#include "CodeSignature/EscapedText.h"

#include "Base/Check.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

namespace {

// Eight names of this length, escaped, fit into a pipe, so a caller may read them after the program's end.
constexpr std::size_t maximumNameBytes = 512;

CodeSignatureError bad(const std::string& text) {
    return CodeSignatureError(CodeSignatureErrorCode::badSignature, text);
}

std::vector<std::string> partsOf(X509* certificate, int which) {
    const X509_NAME* subject = X509_get_subject_name(certificate);
    std::vector<std::string> parts;
    for (int at = -1; (at = X509_NAME_get_index_by_NID(subject, which, at)) >= 0;) {
        unsigned char* text = nullptr;
        const int length = ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)));
        if (length < 0) {
            ERR_clear_error();
            throw bad("a certificate has a name that can't be read");
        }
        parts.emplace_back(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length));
        OPENSSL_free(text);
    }
    return parts;
}

std::string wholeSubject(X509* certificate) {
    const OpenSsl::Stream text(BIO_new(BIO_s_mem()));
    // Have the library leave characters beyond ASCII as they are: `escapedText` escapes what has to be.
    const unsigned long flags = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
    if (X509_NAME_print_ex(text.get(), X509_get_subject_name(certificate), 0, flags) < 0) {
        ERR_clear_error();
        throw bad("a certificate has a name that can't be read");
    }
    char* data = nullptr;
    const long length = BIO_get_mem_data(text.get(), &data);
    return data ? std::string(data, static_cast<std::size_t>(length)) : std::string();
}

std::string limited(const std::string& name) {
    if (name.size() > maximumNameBytes) throw bad("a certificate has a name longer than 512 bytes");
    return escapedText(name);
}

std::string subjectOf(X509* certificate) {
    const auto names = partsOf(certificate, NID_commonName);
    return limited(names.size() == 1 ? names.front() : wholeSubject(certificate));
}

Sha256::Digest keyDigestOf(X509* certificate) {
    unsigned char* der = nullptr;
    const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &der);
    check(length > 0, "the key of a checked certificate can't be written");
    const Sha256::Digest digest = Sha256::of(ByteView(der, static_cast<std::size_t>(length)));
    OPENSSL_free(der);
    return digest;
}

}  // namespace

std::string Authority::text() const { return name + " (sha256 " + Sha256::hex(keyDigest) + ")"; }

Signer Signer::of(const std::vector<X509*>& chain) {
    check(!chain.empty(), "a chain of no certificates was checked");
    Signer signer;
    const auto units = partsOf(chain.front(), NID_organizationalUnitName);
    if (units.size() > 1)
        throw bad("the certificate " + nameOf(chain.front()) + " has several organisational units, and needs one");
    if (!units.empty() && !units.front().empty()) signer.teamIdentifier = limited(units.front());
    for (X509* certificate : chain) signer.chain.push_back({subjectOf(certificate), keyDigestOf(certificate)});
    return signer;
}

std::string nameOf(X509* certificate) {
    try {
        return '"' + subjectOf(certificate) + '"';
    } catch (const CodeSignatureError&) {
        return "with an unreadable name";
    }
}
