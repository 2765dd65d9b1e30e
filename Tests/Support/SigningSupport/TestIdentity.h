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
    std::optional<std::string> keyUsage = {};  // absent: what such a certificate has; empty: no extension
    std::optional<std::string> extendedKeyUsage = {};
    std::optional<int> pathLength = {};
    const EVP_MD* digest = EVP_sha256();
    long validFrom = -3600;  // seconds from now
    long validUntil = 3600;
    bool isVersion1 = false;
};

/// @param issuer  null: signed by itself
OpenSsl::Certificate certificate(const CertificateRequest& request, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey);

/// A chain and all its keys, the one that signs first.
struct TestChain {
    std::vector<OpenSsl::Key> keys;
    std::vector<OpenSsl::Certificate> certificates;

    EVP_PKEY* key() const { return keys.front().get(); }
    X509* leaf() const { return certificates.front().get(); }

    /// The text of an identity's file. @param passphrase  null: not encrypted
    std::string pem(const char* passphrase = nullptr) const;
    /// "NAME (sha256 HEX)" of each, found without the code under test.
    std::vector<std::string> authorities() const;
};

/// Root, intermediate and leaf with these requests, the leaf's first. Keys are new each time.
TestChain chainOf(const std::vector<CertificateRequest>& requests);

/// "Example Releases" of the unit EXAMPLE01, under "Example Intermediate", under "Example Root".
TestChain usualChain();
std::vector<CertificateRequest> usualRequests();

std::string pemOf(X509* certificate);
std::string pemOf(EVP_PKEY* key, const char* passphrase = nullptr);
