#pragma once

#include <memory>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

/// Owners of what OpenSSL hands out.
namespace OpenSsl {

template <auto release>
struct Release {
    template <class Type>
    void operator()(Type* object) const {
        release(object);
    }
};

struct ReleaseCertificates {
    void operator()(STACK_OF(X509) * list) const { sk_X509_pop_free(list, X509_free); }
};
struct ReleaseBorrowedCertificates {
    void operator()(STACK_OF(X509) * list) const { sk_X509_free(list); }
};
struct ReleaseRevocations {
    void operator()(STACK_OF(X509_CRL) * list) const { sk_X509_CRL_pop_free(list, X509_CRL_free); }
};

using DigestAlgorithm = std::unique_ptr<EVP_MD, Release<EVP_MD_free>>;
using DigestContext = std::unique_ptr<EVP_MD_CTX, Release<EVP_MD_CTX_free>>;
using Stream = std::unique_ptr<BIO, Release<BIO_free_all>>;
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Release<X509_free>>;
/// Owns the certificates in it.
using Certificates = std::unique_ptr<STACK_OF(X509), ReleaseCertificates>;
/// Owns the list and nothing that is in it.
using BorrowedCertificates = std::unique_ptr<STACK_OF(X509), ReleaseBorrowedCertificates>;
using Revocations = std::unique_ptr<STACK_OF(X509_CRL), ReleaseRevocations>;
using Store = std::unique_ptr<X509_STORE, Release<X509_STORE_free>>;
using StoreContext = std::unique_ptr<X509_STORE_CTX, Release<X509_STORE_CTX_free>>;
using Cms = std::unique_ptr<CMS_ContentInfo, Release<CMS_ContentInfo_free>>;

}  // namespace OpenSsl
