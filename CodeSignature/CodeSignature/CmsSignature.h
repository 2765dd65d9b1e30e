#pragma once

#include "Base/Bytes.h"
#include "CodeSignature/Signer.h"
#include "CodeSignature/SigningIdentity.h"

#include <cstddef>

/// A signature that lies beside what it signs: CMS SignedData (RFC 5652), DER, detached, with exactly the
/// certificates of the chain in it.
///
/// Any thread.
namespace CmsSignature {

constexpr std::size_t maximumBytes = 64 << 10;

/// Signs bytes as they are, by their SHA-256 digest.
/// @throws CodeSignatureError badIdentity, badSignature  the identity's chain would be refused by `verify`
[[nodiscard]] Bytes make(ByteView content, const SigningIdentity& identity);

/// Finds out who has signed exactly these bytes.
/// @throws CodeSignatureError badSignature  more or less than one signer; altered, cut short or not in DER;
///         over other bytes; a digest other than SHA-256, SHA-384 and SHA-512, or
///         an algorithm that is not the key's; without signed attributes, or with
///         unsigned ones; a chain that `CertificateChain` refuses
[[nodiscard]] Signer verify(ByteView content, ByteView signature);

}  // namespace CmsSignature
