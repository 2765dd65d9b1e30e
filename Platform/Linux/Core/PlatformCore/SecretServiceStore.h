#pragma once

#include "VimbleKit/SecretStore.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Secrets in the desktop's Secret Service (gnome-keyring, KWallet, KeePassXC), through libsecret.
///
/// An item is an item of the service under the schema "zorvane.Vimble.Secret": service, account,
/// accessible and accessGroup are attributes where present, synchronizable is "yes" or "no", the label
/// is the item's label. New items go to the default collection, which is made if there is none. A
/// query that names neither service, account nor access group is answered by listing the items, also
/// those that another program has put there.
///
/// **When an item is "not found".** Only if the service has answered and no collection is locked: a locked
/// one may hide the item, and a key that is only hidden must never be replaced by a new one. So this store
/// first asks the service to unlock what is locked, the default collection first, which may show a prompt.
/// For an item that is found, only its own collection must be unlocked.
///
/// **Statuses of its own.** notAvailable: no bus, nobody provides the service, or a call that it does not
/// answer within D-Bus's 25 seconds (an operation gives up after 50). interactionNotAllowed: something is
/// locked and was not unlocked, and no prompt can be seen (no DISPLAY or WAYLAND_DISPLAY). userCanceled:
/// the same, but a prompt can be seen. authFailed: access refused. decode: an answer that makes no sense.
/// A prompt may stay for as long as the user likes; this store never cancels it, since that would kill
/// the service.
///
/// **Limits.** 64 KiB of data in an item that is read; a larger one is `decode`.
///
/// If two programs add one item at the same moment, each finds both when it asks the service again: the
/// writer of the younger item removes it and reports `duplicateItem`.
///
/// Any thread, but one at a time; no event loop of that thread runs during an operation.
class SecretServiceStore : public SecretStore {
public:
    Found copyMatching(const SecretQuery& query) override;
    SecretStatus add(const SecretItem& item) override;
    SecretStatus update(const SecretQuery& query, ByteView data) override;
    /// Removes all items that match.
    SecretStatus remove(const SecretQuery& query) override;
    /// Nothing: the service has no access groups.
    std::optional<std::vector<std::string>> accessGroups() override;
    std::string errorMessage(SecretStatus status) override;

private:
    SecretStatus run(const std::function<SecretStatus()>& operation);

    SecretStatus failedStatus = SecretStatuses::ok;
    std::string failedBecause;  // of the last failure
};
