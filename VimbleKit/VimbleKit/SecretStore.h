#pragma once

#include "Base/Bytes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// How an operation on a secret store went: 0, or why it failed.
///
/// Besides 0, two numbers have a meaning: `duplicateItem` and `itemNotFound`. Any other is a failure, such as
/// a store that is locked, refuses access, is absent or too slow, and must never be taken for a missing item.
using SecretStatus = std::int32_t;

namespace SecretStatuses {
constexpr SecretStatus ok = 0;
constexpr SecretStatus duplicateItem = -25299;  // add: there is such an item already
constexpr SecretStatus itemNotFound = -25300;   // the store itself says that there is none
// The failures that the adapters report. Their numbers come from the same error list as the two above.
constexpr SecretStatus userCanceled = -128;             // the user dismissed the prompt
constexpr SecretStatus notAvailable = -25291;           // no store answers
constexpr SecretStatus authFailed = -25293;             // wrong passphrase, or refused
constexpr SecretStatus interactionNotAllowed = -25308;  // locked, and it could not be unlocked
constexpr SecretStatus decode = -26275;                 // the store holds what can't be read
constexpr SecretStatus internalError = -2070;
}  // namespace SecretStatuses

/// Which items of the store are meant: those that agree in every attribute that is present here.
///
/// `synchronizable` always counts: a query that does not set it matches only items that have not set it
/// either. Today's key is stored without it; a key of an older version may have it.
struct SecretQuery {
    std::optional<std::string> service;
    std::optional<std::string> account;
    std::optional<std::string> label;
    std::optional<std::string> accessGroup;
    bool synchronizable = false;

    bool operator==(const SecretQuery&) const = default;
};

/// What is kept of one item.
struct SecretItem {
    std::optional<std::string> service;
    std::optional<std::string> account;
    std::optional<std::string> label;
    std::optional<std::string> accessible;
    std::optional<std::string> accessGroup;
    bool synchronizable = false;
    std::optional<Bytes> data;  // the secret; the holder of a copy must wipe it

    bool operator==(const SecretItem&) const = default;
};

/// The desktop's keeper of secrets: generic-password items with attributes, label and data.
///
/// Operations block until they are done, which may take as long as a user needs for a prompt. Any thread may
/// call, but only one at a time: the main thread at the start of a program, and later the worker of a
/// `KeyAccess`. A failure leaves the items as they were.
class SecretStore {
public:
    struct Found {
        SecretStatus status = SecretStatuses::ok;
        SecretItem item;  // with status ok only
    };

    virtual ~SecretStore() = default;

    /// The attributes and data of one item that matches.
    [[nodiscard]] virtual Found copyMatching(const SecretQuery& query) = 0;

    /// Stores a new item. An item is identified by service, account, access group and synchronisability.
    [[nodiscard]] virtual SecretStatus add(const SecretItem& item) = 0;

    /// Replaces the data of the matching item, and nothing else of it.
    [[nodiscard]] virtual SecretStatus update(const SecretQuery& query, ByteView data) = 0;

    [[nodiscard]] virtual SecretStatus remove(const SecretQuery& query) = 0;

    /// The access groups that this program may use; nothing where there is no such concept.
    virtual std::optional<std::vector<std::string>> accessGroups() = 0;

    /// What a status means, in one line for the user or the log.
    virtual std::string errorMessage(SecretStatus status) = 0;
};
