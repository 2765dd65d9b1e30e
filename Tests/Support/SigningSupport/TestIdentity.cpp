#include "SigningSupport/TestIdentity.h"

#include "Base/Check.h"

#include <cstring>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>
#include <openssl/x509v3.h>

namespace {

void addName(X509_NAME* name, const char* field, const std::string& value) {
    check(X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(value.data()),
                                     static_cast<int>(value.size()), -1, 0) == 1,
          "no such name");
}

void addExtension(X509* certificate, int which, const std::string& value) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, which, value.c_str());
    check(extension && X509_add_ext(certificate, extension, -1) == 1, "no such extension");
    X509_EXTENSION_free(extension);
}

std::string contentsOf(BIO* stream) {
    char* data = nullptr;
    const long length = BIO_get_mem_data(stream, &data);
    return std::string(data, static_cast<std::size_t>(length));
}

}  // namespace

OpenSsl::Key ecKey(const char* curve) { return OpenSsl::Key(EVP_EC_gen(curve)); }
OpenSsl::Key rsaKey(unsigned bits) { return OpenSsl::Key(EVP_RSA_gen(bits)); }

OpenSsl::Certificate certificate(const CertificateRequest& request, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey) {
    static long serial = 0;
    OpenSsl::Certificate made(X509_new());
    X509* certificate = made.get();
    X509_set_version(certificate, request.isVersion1 ? X509_VERSION_1 : X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate), request.validFrom);
    X509_gmtime_adj(X509_getm_notAfter(certificate), request.validUntil);
    X509_NAME* name = X509_get_subject_name(certificate);
    addName(name, "O", "Example");
    if (!request.unit.empty()) addName(name, "OU", request.unit);
    for (const std::string& unit : request.moreUnits) addName(name, "OU", unit);
    if (!request.commonName.empty()) addName(name, "CN", request.commonName);
    X509_set_issuer_name(certificate, issuer ? X509_get_subject_name(issuer) : name);
    X509_set_pubkey(certificate, key);
    if (!request.isVersion1) {
        const std::string pathLength = request.pathLength ? ",pathlen:" + std::to_string(*request.pathLength) : "";
        addExtension(certificate, NID_basic_constraints,
                     request.isAuthority ? "critical,CA:TRUE" + pathLength : "critical,CA:FALSE");
        const std::string usage =
            request.keyUsage.value_or(request.isAuthority ? "critical,keyCertSign" : "critical,digitalSignature");
        if (!usage.empty()) addExtension(certificate, NID_key_usage, usage);
        const std::string purpose = request.extendedKeyUsage.value_or(request.isAuthority ? "" : "codeSigning");
        if (!purpose.empty()) addExtension(certificate, NID_ext_key_usage, purpose);
    }
    check(X509_sign(certificate, issuerKey, request.digest) > 0, "a certificate could not be signed");
    return made;
}

TestChain chainOf(const std::vector<CertificateRequest>& requests) {
    TestChain chain;
    for (std::size_t i = 0; i < requests.size(); ++i) chain.keys.push_back(ecKey());
    chain.certificates.resize(requests.size());
    for (std::size_t i = requests.size(); i-- > 0;) {
        const bool isRoot = i + 1 == requests.size();
        chain.certificates[i] =
            certificate(requests[i], chain.keys[i].get(), isRoot ? nullptr : chain.certificates[i + 1].get(),
                        chain.keys[isRoot ? i : i + 1].get());
    }
    return chain;
}

std::vector<CertificateRequest> usualRequests() {
    return {{"Example Releases", "EXAMPLE01"}, {"Example Intermediate", "", true}, {"Example Root", "", true}};
}

TestChain usualChain() { return chainOf(usualRequests()); }

std::string pemOf(X509* certificate) {
    const OpenSsl::Stream stream(BIO_new(BIO_s_mem()));
    check(PEM_write_bio_X509(stream.get(), certificate) == 1, "no PEM");
    return contentsOf(stream.get());
}

std::string pemOf(EVP_PKEY* key, const char* passphrase) {
    const OpenSsl::Stream stream(BIO_new(BIO_s_mem()));
    check(PEM_write_bio_PKCS8PrivateKey(stream.get(), key, passphrase ? EVP_aes_256_cbc() : nullptr, passphrase,
                                        passphrase ? static_cast<int>(std::strlen(passphrase)) : 0, nullptr,
                                        nullptr) == 1,
          "no PEM");
    return contentsOf(stream.get());
}

std::string TestChain::pem(const char* passphrase) const {
    std::string text = pemOf(key(), passphrase);
    for (const auto& certificate : certificates) text += pemOf(certificate.get());
    return text;
}

std::vector<std::string> TestChain::authorities() const {
    std::vector<std::string> lines;
    for (const auto& certificate : certificates) {
        char name[256];
        X509_NAME_get_text_by_NID(X509_get_subject_name(certificate.get()), NID_commonName, name, sizeof name);
        unsigned char* der = nullptr;
        const int length = i2d_PUBKEY(X509_get0_pubkey(certificate.get()), &der);
        unsigned char digest[SHA256_DIGEST_LENGTH];
        SHA256(der, static_cast<std::size_t>(length), digest);
        OPENSSL_free(der);
        std::string line = std::string(name) + " (sha256 ";
        for (const unsigned char byte : digest) {
            char hex[3];
            std::snprintf(hex, sizeof hex, "%02x", byte);
            line += hex;
        }
        lines.push_back(line + ')');
    }
    return lines;
}
