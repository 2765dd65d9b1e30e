#pragma once

#include "Base/Bytes.h"
#include "CodeSignature/OpenSslPointers.h"

#include <array>
#include <string>

/// SHA-256 of bytes that come piece by piece.
///
/// One object serves many times, since making one costs more than hashing a small file. One thread at a time.
class Sha256 {
public:
    using Digest = std::array<std::uint8_t, 32>;

    Sha256();

    void update(ByteView bytes);
    /// The digest of all bytes that came since the last digest.
    [[nodiscard]] Digest finish();

    [[nodiscard]] static Digest of(ByteView bytes);
    /// 64 lower-case characters.
    static std::string hex(const Digest& digest);

private:
    void begin();

    OpenSsl::DigestAlgorithm algorithm;
    OpenSsl::DigestContext context;
};
