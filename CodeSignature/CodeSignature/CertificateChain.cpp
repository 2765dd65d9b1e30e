#include "CodeSignature/CertificateChain.h"

#include "CodeSignature/CodeSignatureError.h"
#include "CodeSignature/Signer.h"

#include "Base/Check.h"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>
#include <string>

namespace {

constexpr int minimumBits = 112;

CodeSignatureError bad(const std::string& text) {
    return CodeSignatureError(CodeSignatureErrorCode::badSignature, text);
}

CodeSignatureError bad(X509* certificate, const std::string& text) {
    return bad("the certificate " + nameOf(certificate) + ' ' + text);
}

void checkStrength(X509* certificate) {
    EVP_PKEY* key = X509_get0_pubkey(certificate);
    if (!key) throw bad(certificate, "has a key that can't be read");
    if (EVP_PKEY_get_security_bits(key) < minimumBits) throw bad(certificate, "has a key that is too weak");
    int digest = NID_undef;
    int bits = 0;
    if (X509_get_signature_info(certificate, &digest, nullptr, &bits, nullptr) != 1 || bits < minimumBits ||
        digest == NID_sha1 || digest == NID_md5 || digest == NID_md5_sha1)
        throw bad(certificate, "is signed with an algorithm that is too weak");
}

void checkExtensions(X509* certificate) {
    const std::uint32_t flags = X509_get_extension_flags(certificate);
    if ((flags & EXFLAG_INVALID) != 0) throw bad(certificate, "has an extension that can't be read");
    if ((flags & EXFLAG_CRITICAL) != 0) throw bad(certificate, "demands an extension that is not known here");
}

void checkPurpose(X509* signer) {
    // For a certificate without this extension, the library sets every bit.
    if ((X509_get_key_usage(signer) & KU_DIGITAL_SIGNATURE) == 0)
        throw bad(signer, "has a key usage without digital signature");
    if ((X509_get_extension_flags(signer) & EXFLAG_XKUSAGE) == 0 ||
        (X509_get_extended_key_usage(signer) & XKU_CODE_SIGN) == 0)
        throw bad(signer, "has no extended key usage code signing");
}

void checkIssuer(X509* issuer) {
    // Only 1 means an authority by its basic constraints; other answers are guesses for old certificates.
    if (X509_check_ca(issuer) != 1) throw bad(issuer, "is not that of a certificate authority");
    if ((X509_get_key_usage(issuer) & KU_KEY_CERT_SIGN) == 0)
        throw bad(issuer, "has a key usage without signing certificates");
}

bool isSelfIssued(X509* certificate) {
    return X509_NAME_cmp(X509_get_subject_name(certificate), X509_get_issuer_name(certificate)) == 0;
}

std::string reason(int error) {
    switch (error) {
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
        case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
        case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        case X509_V_ERR_CERT_SIGNATURE_FAILURE: return "is not signed by the next one of the chain";
        default: return std::string("is refused: ") + X509_verify_cert_error_string(error);
    }
}

}  // namespace

std::vector<X509*> CertificateChain::checked(X509* first, STACK_OF(X509) * certificates) {
    const int count = sk_X509_num(certificates);
    if (count > static_cast<int>(maximumLength)) throw bad("the signature holds more than 8 certificates");
    X509* last = nullptr;
    const OpenSsl::BorrowedCertificates between(sk_X509_new_null());
    check(between != nullptr, "out of memory");
    for (int i = 0; i < count; ++i) {
        X509* certificate = sk_X509_value(certificates, i);
        // The library fills in what is checked here when it first looks at the extensions, so they come first.
        checkExtensions(certificate);
        checkStrength(certificate);
        if (!isSelfIssued(certificate)) {
            check(sk_X509_push(between.get(), certificate) > 0, "out of memory");
        } else if (last) {
            throw bad(certificate, "does not belong to the chain");
        } else {
            last = certificate;
        }
    }
    if (!last) throw bad("the chain of certificates does not end in one that is signed by itself");

    const OpenSsl::Store store(X509_STORE_new());
    const OpenSsl::StoreContext context(X509_STORE_CTX_new());
    check(store && context, "out of memory");
    check(X509_STORE_add_cert(store.get(), last) == 1, "out of memory");
    check(X509_STORE_CTX_init(context.get(), store.get(), first, between.get()) == 1, "out of memory");
    X509_VERIFY_PARAM* rules = X509_STORE_CTX_get0_param(context.get());
    X509_VERIFY_PARAM_set_flags(rules, X509_V_FLAG_NO_CHECK_TIME | X509_V_FLAG_CHECK_SS_SIGNATURE);
    X509_VERIFY_PARAM_set_depth(rules, static_cast<int>(maximumLength));
    const bool holds = X509_verify_cert(context.get()) == 1;
    ERR_clear_error();
    if (!holds) {
        X509* refused = X509_STORE_CTX_get_current_cert(context.get());
        throw bad(refused ? refused : first, reason(X509_STORE_CTX_get_error(context.get())));
    }

    std::vector<X509*> chain;
    STACK_OF(X509)* found = X509_STORE_CTX_get0_chain(context.get());
    // These pointers outlive the store and the context, which only share the caller's certificates.
    for (int i = 0; i < sk_X509_num(found); ++i) chain.push_back(sk_X509_value(found, i));
    if (static_cast<int>(chain.size()) != count)
        throw bad("the signature holds certificates that do not belong to the chain");
    for (std::size_t i = 1; i < chain.size(); ++i) checkIssuer(chain[i]);
    checkPurpose(chain.front());
    return chain;
}
