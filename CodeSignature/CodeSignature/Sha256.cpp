#include "CodeSignature/Sha256.h"

#include "Base/Check.h"

Sha256::Sha256() : algorithm(EVP_MD_fetch(nullptr, "SHA2-256", nullptr)), context(EVP_MD_CTX_new()) {
    check(algorithm && context, "the cryptographic library has no SHA-256");
    begin();
}

void Sha256::begin() { check(EVP_DigestInit_ex(context.get(), algorithm.get(), nullptr) == 1, "SHA-256 fails"); }

void Sha256::update(ByteView bytes) {
    check(EVP_DigestUpdate(context.get(), bytes.data(), bytes.size()) == 1, "SHA-256 fails");
}

Sha256::Digest Sha256::finish() {
    Digest digest;
    check(EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) == 1, "SHA-256 fails");
    begin();
    return digest;
}

Sha256::Digest Sha256::of(ByteView bytes) {
    Sha256 hash;
    hash.update(bytes);
    return hash.finish();
}

std::string Sha256::hex(const Digest& digest) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : digest) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}
