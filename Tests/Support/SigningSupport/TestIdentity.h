#pragma once

#include "CodeSignature/OpenSslPointers.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// Keys and certificates made for a test, as an attacker could make them too.

OpenSsl::Key ecKey(const char* curve = "P-256");
OpenSsl::Key rsaKey(unsigned bits);

/// What stands in a certificate.
struct CertificateRequest {
    std::string commonName;
    std::string unit;
    bool isAuthority = false;
    std::vector<std::string> moreUnits = {};
    std::optional<std::string> keyUsage = {};  // absent: the usual one of such a certificate; empty: no extension
    std::optional<std::string> extendedKeyUsage = {};
    std::optional<int> pathLength = {};
    const EVP_MD* digest = EVP_sha256();
    long validFrom = -3600;  // seconds from now
    long validUntil = 3600;
    bool isVersion1 = false;
};

/// @param issuer  null: signed by itself
OpenSsl::Certificate certificate(const CertificateRequest& request, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey);

/// A chain of certificates and their keys. The one that signs bundles comes first, the root last.
struct TestChain {
    std::vector<OpenSsl::Key> keys;
    std::vector<OpenSsl::Certificate> certificates;

    EVP_PKEY* key() const { return keys.front().get(); }
    X509* leaf() const { return certificates.front().get(); }

    /// The text of an identity file. @param passphrase  null: the key is not encrypted
    std::string pem(const char* passphrase = nullptr) const;
    /// "NAME (sha256 HEX)" for each certificate, worked out without the code under test.
    std::vector<std::string> authorities() const;
};

/// Makes a chain from these requests, the leaf's first and the root's last. Keys are new each time.
TestChain chainOf(const std::vector<CertificateRequest>& requests);

/// "Example Releases" of the unit EXAMPLE01, under "Example Intermediate", under "Example Root".
TestChain usualChain();
std::vector<CertificateRequest> usualRequests();

std::string pemOf(X509* certificate);
std::string pemOf(EVP_PKEY* key, const char* passphrase = nullptr);
