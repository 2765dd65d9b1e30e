#include "CodeSignature/CmsSignature.h"

#include "CodeSignature/CertificateChain.h"
#include "CodeSignature/CodeSignatureError.h"

#include <algorithm>
#include <climits>
#include <new>
#include <openssl/asn1.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <string>

namespace {

using Code = CodeSignatureErrorCode;

CodeSignatureError bad(const std::string& text) {
    ERR_clear_error();
    return CodeSignatureError(Code::badSignature, text);
}

/// Reads the bytes through a filter that does nothing. `CMS_verify` makes a second stream over the content of a
/// memory stream, and loses it when it fails early (seen with OpenSSL 3.0.19); of other streams it makes none.
OpenSsl::Stream streamOf(ByteView bytes) {
    OpenSsl::Stream filter(BIO_new(BIO_f_null()));
    OpenSsl::Stream memory(
        BIO_new_mem_buf(bytes.empty() ? "" : static_cast<const void*>(bytes.data()), static_cast<int>(bytes.size())));
    if (!filter || !memory) throw std::bad_alloc();
    BIO_push(filter.get(), memory.release());
    return filter;
}

Bytes derOf(CMS_ContentInfo* cms) {
    unsigned char* der = nullptr;
    const int length = i2d_CMS_ContentInfo(cms, &der);
    if (length <= 0) throw bad("the signature can't be written");
    Bytes bytes(der, der + length);
    OPENSSL_free(der);
    return bytes;
}

OpenSsl::Cms parsed(ByteView der) {
    if (der.size() > CmsSignature::maximumBytes) throw bad("the signature is larger than 64 KiB");
    const unsigned char* at = der.data();
    OpenSsl::Cms cms(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(der.size())));
    if (!cms) throw bad("the signature can't be read");
    // Accept only one encoding, so that nothing can be hidden in bytes that the library ignores.
    if (at != der.data() + der.size() || !std::ranges::equal(derOf(cms.get()), der))
        throw bad("the signature is not in DER");
    if (OBJ_obj2nid(CMS_get0_type(cms.get())) != NID_pkcs7_signed ||
        OBJ_obj2nid(CMS_get0_eContentType(cms.get())) != NID_pkcs7_data || CMS_is_detached(cms.get()) != 1)
        throw bad("the signature is of another kind than a detached one over plain bytes");
    return cms;
}

CMS_SignerInfo* onlySigner(CMS_ContentInfo* cms) {
    STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms);
    const int count = sk_CMS_SignerInfo_num(signers);
    if (count != 1)
        throw bad("the signature has " + std::to_string(std::max(0, count)) + " signers, and needs exactly one");
    return sk_CMS_SignerInfo_value(signers, 0);
}

void checkSigner(CMS_SignerInfo* signer) {
    X509_ALGOR* digest = nullptr;
    CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, nullptr);
    const ASN1_OBJECT* algorithm = nullptr;
    if (digest) X509_ALGOR_get0(&algorithm, nullptr, nullptr, digest);
    const int nid = algorithm ? OBJ_obj2nid(algorithm) : NID_undef;
    if (nid != NID_sha256 && nid != NID_sha384 && nid != NID_sha512)
        throw bad("the signature uses a digest that is too weak");
    // Without signed attributes, the same signature could be presented as one over other bytes.
    if (CMS_signed_get_attr_count(signer) <= 0) throw bad("the signature has no signed attributes");
    if (CMS_unsigned_get_attr_count(signer) > 0) throw bad("the signature has attributes that are not signed");
}

/// Steps through the parts of a signature in DER, one after the other. The library has parsed these bytes
/// before, so a part that does not fit means a bug here.
class DerParts {
public:
    explicit DerParts(ByteView der) : rest(der) {}

    bool isAtEnd() const { return rest.empty(); }
    bool isNext(int tag, int tagClass) const { return header().tag == tag && header().tagClass == tagClass; }
    /// Steps over the next part. @return its contents
    ByteView take() {
        const Header next = header();
        const ByteView contents = rest.subspan(next.headerBytes, next.contentBytes);
        rest = rest.subspan(next.headerBytes + next.contentBytes);
        return contents;
    }

private:
    struct Header {
        int tag = 0;
        int tagClass = 0;
        std::size_t headerBytes = 0;
        std::size_t contentBytes = 0;
    };
    Header header() const {
        Header found;
        const unsigned char* at = rest.data();
        long length = 0;
        const int result = ASN1_get_object(&at, &length, &found.tag, &found.tagClass, static_cast<long>(rest.size()));
        if ((result & 0x81) != 0) throw bad("the signature can't be read");
        found.headerBytes = static_cast<std::size_t>(at - rest.data());
        found.contentBytes = static_cast<std::size_t>(length);
        return found;
    }

    ByteView rest;
};

/// The version numbers are not signed, and the library does not look at them. They have to be 1, as for a
/// certificate that is named by issuer and number, and for plain bytes (RFC 5652, 5.1 and 5.3).
void checkVersions(ByteView der) {
    const auto isOne = [](ByteView number) { return number.size() == 1 && number[0] == 1; };
    DerParts contentInfo(DerParts(der).take());
    contentInfo.take();  // the kind
    DerParts signedData(DerParts(contentInfo.take()).take());
    bool isRight = isOne(signedData.take());
    signedData.take();  // the digests
    signedData.take();  // the kind of the content, which itself is not there
    while (!signedData.isAtEnd() && !signedData.isNext(V_ASN1_SET, V_ASN1_UNIVERSAL)) signedData.take();
    DerParts signer(DerParts(signedData.take()).take());
    isRight = isRight && isOne(signer.take()) && signer.isNext(V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    if (!isRight) throw bad("the signature is of another version");
}

/// The name of the signature's algorithm is not signed either. It has to be that of the key and the digest.
void checkAlgorithm(CMS_SignerInfo* signer) {
    X509* certificate = nullptr;
    X509_ALGOR* digest = nullptr;
    X509_ALGOR* signature = nullptr;
    CMS_SignerInfo_get0_algs(signer, nullptr, &certificate, &digest, &signature);
    const ASN1_OBJECT* digestName = nullptr;
    const ASN1_OBJECT* signatureName = nullptr;
    int parameters = V_ASN1_UNDEF;
    X509_ALGOR_get0(&digestName, nullptr, nullptr, digest);
    X509_ALGOR_get0(&signatureName, &parameters, nullptr, signature);
    const int named = OBJ_obj2nid(signatureName);
    const int key = EVP_PKEY_get_base_id(X509_get0_pubkey(certificate));
    int itsDigest = NID_undef;
    int itsKey = NID_undef;
    const bool isPair =
        OBJ_find_sigid_algs(named, &itsDigest, &itsKey) == 1 && itsKey == key && itsDigest == OBJ_obj2nid(digestName);
    const bool isPlainRsa = named == NID_rsaEncryption && key == EVP_PKEY_RSA;
    if ((!isPair && !isPlainRsa) || (parameters != V_ASN1_UNDEF && parameters != V_ASN1_NULL))
        throw bad("the signature names another algorithm than its key's");
}

X509* certificateOf(CMS_SignerInfo* signer) {
    X509* certificate = nullptr;
    CMS_SignerInfo_get0_algs(signer, nullptr, &certificate, nullptr, nullptr);
    if (!certificate) throw bad("the signer's certificate is not in the signature");
    return certificate;
}

ByteView derOf(const X509_NAME* name) {
    const unsigned char* der = nullptr;
    std::size_t length = 0;
    if (X509_NAME_get0_der(name, &der, &length) != 1) throw bad("the signature can't be read");
    return {der, length};
}

/// Compares the issuer's name byte by byte: to the library, names that differ in case or in blanks are equal.
void checkName(CMS_SignerInfo* signer, X509* certificate) {
    ASN1_OCTET_STRING* keyIdentifier = nullptr;
    X509_NAME* issuer = nullptr;
    ASN1_INTEGER* number = nullptr;
    if (CMS_SignerInfo_get0_signer_id(signer, &keyIdentifier, &issuer, &number) != 1 || !issuer ||
        !std::ranges::equal(derOf(issuer), derOf(X509_get_issuer_name(certificate))))
        throw bad("the signature names its signer in another way than the certificate does");
}

void checkContentSize(ByteView content) {
    if (content.size() > INT_MAX) throw bad("there is too much to sign");
}

}  // namespace

Bytes CmsSignature::make(ByteView content, const SigningIdentity& identity) {
    checkContentSize(content);
    constexpr unsigned flags = CMS_BINARY | CMS_DETACHED | CMS_PARTIAL | CMS_NOSMIMECAP;
    const OpenSsl::Stream stream = streamOf(content);
    const OpenSsl::Cms cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
    bool isMade =
        cms && CMS_add1_signer(cms.get(), identity.certificate(), identity.key(), EVP_sha256(), flags) != nullptr;
    for (X509* issuer : identity.issuers()) isMade = isMade && CMS_add1_cert(cms.get(), issuer) == 1;
    if (!isMade || CMS_final(cms.get(), stream.get(), nullptr, flags) != 1) {
        ERR_clear_error();
        throw CodeSignatureError(Code::badIdentity, "the identity's key can't sign");
    }
    Bytes der = derOf(cms.get());
    // Never hand out a signature that `verify` would refuse.
    static_cast<void>(verify(content, der));
    return der;
}

Signer CmsSignature::verify(ByteView content, ByteView signature) {
    checkContentSize(content);
    const OpenSsl::Cms cms = parsed(signature);
    CMS_SignerInfo* signer = onlySigner(cms.get());
    checkSigner(signer);
    checkVersions(signature);
    const OpenSsl::Certificates certificates(CMS_get1_certs(cms.get()));
    if (!certificates) throw bad("the signature holds no certificate");
    // Count them before their keys are used: a key of the wrong kind could be made to cost hours.
    if (sk_X509_num(certificates.get()) > static_cast<int>(CertificateChain::maximumLength))
        throw bad("the signature holds more than 8 certificates");
    if (const OpenSsl::Revocations revocations(CMS_get1_crls(cms.get())); revocations)
        throw bad("the signature holds lists of revoked certificates");

    const OpenSsl::Stream stream = streamOf(content);
    const bool holds =
        CMS_verify(cms.get(), nullptr, nullptr, stream.get(), nullptr, CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY) == 1;
    if (!holds) throw bad("the signature is not one over this seal");
    // Take the certificate whose key the library has used: several may have the same issuer and number.
    X509* certificate = certificateOf(signer);
    const auto chain = CertificateChain::checked(certificate, certificates.get());
    checkAlgorithm(signer);
    checkName(signer, certificate);
    ERR_clear_error();
    return Signer::of(chain);
}
