#pragma once

#include "TweetNacl/Nacl.h"
#include "VimbleKit/SecretStore.h"

#include <string>

/// What the secret stores of this machine have in common: which items a query means, and texts for statuses.

/// Whether an item agrees with a query in every attribute that the query names.
bool matches(const SecretQuery& query, const SecretItem& item);

/// The query for items with an item's identity. Check what it finds with `hasIdentityOf`: a query can't
/// ask for items in which a part of the identity is absent.
SecretQuery identityQuery(const SecretItem& item);
bool hasIdentityOf(const SecretItem& item, const SecretItem& other);

void wipeData(SecretItem& item);

/// What a status means, in one line. Never empty.
std::string secretStatusText(SecretStatus status);
