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
/// **What "not found" takes.** The service has answered, and no collection is locked: a locked one may
/// hide what is in it, and a key that is only hidden must never be replaced by a new one. So before it
/// says so, this asks the service to unlock what is locked, the default collection first, which may
/// show a prompt. An item that is found needs no more than its own collection unlocked.
///
/// **Statuses of its own.** notAvailable: no bus, nobody provides the service, or a call that it
/// does not answer within D-Bus's 25 seconds (an operation gives up after 50). interactionNotAllowed: locked, and not unlocked, where no prompt can be seen
/// (no DISPLAY or WAYLAND_DISPLAY). userCanceled: the same where one can. authFailed: access refused.
/// decode: an answer that makes no sense. A prompt may stay for as long as the user likes; it is never
/// cancelled from here, which would kill the service.
///
/// **Limits.** 64 KiB of data in an item that is read; a larger one is `decode`.
///
/// Two programs that add one item at the same moment are told apart by asking the service again: the
/// younger item is taken back, and its writer hears of the duplicate.
///
/// Any thread, but one at a time; no loop of that thread turns during an operation.
class SecretServiceStore : public SecretStore {
public:
    Found copyMatching(const SecretQuery& query) override;
    SecretStatus add(const SecretItem& item) override;
    SecretStatus update(const SecretQuery& query, ByteView data) override;
    /// Removes all that match.
    SecretStatus remove(const SecretQuery& query) override;
    /// Nothing: the service has no access groups.
    std::optional<std::vector<std::string>> accessGroups() override;
    std::string errorMessage(SecretStatus status) override;

private:
    SecretStatus run(const std::function<SecretStatus()>& operation);

    SecretStatus failedStatus = SecretStatuses::ok;
    std::string failedBecause;  // of the last failure
};
