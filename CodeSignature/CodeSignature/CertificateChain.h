#pragma once

#include "CodeSignature/OpenSslPointers.h"

#include <cstddef>
#include <vector>

/// The certificates behind a signature, put in order and checked.
///
/// What has to hold: each is signed by the next, and the last by itself; there is no other one among them.
/// Those that sign others are certificate authorities by their basic constraints (and may sign
/// certificates, if they say what their key may be used for). The first has the extended key usage code
/// signing, so that no certificate of the same authority for another purpose signs programs, and, if it has a
/// key usage, digital signature. No key and no signature is weaker than 112 bits: no RSA below 2048, no
/// SHA-1, no MD5. Names are not compared with anything, and the last certificate is not yet trusted: the
/// caller compares the keys with those that it knows.
///
/// Dates and revocation are not judged: an expired certificate would strand every installed copy.
namespace CertificateChain {

constexpr std::size_t maximumLength = 8;

/// @param first  the certificate of the key that signed; one of `certificates`. Borrowed, as all here
/// @return from the first to the one signed by itself
/// @throws CodeSignatureError badSignature  names the first certificate that is refused
std::vector<X509*> checked(X509* first, STACK_OF(X509) * certificates);

}  // namespace CertificateChain
