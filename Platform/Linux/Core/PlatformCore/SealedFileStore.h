#pragma once

#include "TweetNacl/SealedBox.h"
#include "VimbleKit/SecretStore.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Secrets in one file, sealed with a passphrase: for machines without a keeper of secrets.
///
/// The file comes into being with the first `add`; until then the store is empty, provided that the
/// folder in which it would lie is there. It has mode 0600 and is replaced as a whole: a new one is
/// written beside it, brought to the disk, and renamed. Where the path is a symbolic link, the file
/// that it leads to is replaced. Several programs may share it, through a lock on "FILE.lock", which
/// stays behind; who waits for it for 10 seconds gives up.
///
/// **Statuses of its own.** authFailed: not the passphrase of this file, or its head was altered.
/// decode: not such a file, cut short, altered, or asking for more than the limits. userCanceled: no
/// passphrase was given. notAvailable: it can't be read, written or locked, or its folder is missing.
///
/// **Shape**, numbers little-endian: "VIMBLESF", version 1 (4 bytes), passes (8), memory in bytes (8),
/// salt (16), nonce (24), box of the SHA-512 of all that stands before this nonce (16 + 64), nonce
/// (24), box of the items. The first box tells a wrong passphrase from a damaged file. Items: their
/// number (4); each: 1 if synchronisable or 0 (1), then service, account, label, accessible, access
/// group and data, each as 1 (1) and length (4) and bytes, or 0 (1) if absent.
///
/// **Limits.** 1 MiB a file, 1000 items, 64 KiB a field; costs up to 16 passes and 1 GiB of memory.
///
/// Any thread, but one at a time; the passphrase is asked for on the thread of the operation.
class SealedFileStore : public SecretStore {
public:
    /// What a passphrase is asked for: a new one is asked for twice, to catch a typing error.
    enum class Reason { newFile, existingFile };

    /// Gives the passphrase; nothing if the user does not want to.
    ///
    /// Asked when one is first needed, and again after a wrong one; a right one is kept, in memory
    /// that is wiped, until the store dies. An empty one is refused as wrong.
    using AskPassphrase = std::function<std::optional<Passphrase>(Reason reason)>;

    /// @param cost  of a new file; an existing one keeps its own
    SealedFileStore(std::filesystem::path file, AskPassphrase ask, Nacl::PassphraseCost cost = {});
    ~SealedFileStore() override;

    Found copyMatching(const SecretQuery& query) override;
    SecretStatus add(const SecretItem& item) override;
    SecretStatus update(const SecretQuery& query, ByteView data) override;
    SecretStatus remove(const SecretQuery& query) override;
    /// Nothing: a file has no access groups.
    std::optional<std::vector<std::string>> accessGroups() override;
    std::string errorMessage(SecretStatus status) override;

private:
    class Lock;
    struct Contents;
    struct Head {
        Nacl::PassphraseCost cost;
        Nacl::Salt salt{};

        bool operator==(const Head&) const = default;
    };

    SecretStatus load(Contents& contents);
    SecretStatus unlock(const Head& head, ByteView sealedHead, ByteView check);
    SecretStatus askFor(Reason reason);
    SecretStatus derive(const Head& head);
    SecretStatus save(const Contents& contents);
    template <class Change>
    SecretStatus change(Change apply);
    SecretStatus fail(SecretStatus status, std::string why);

    const std::filesystem::path file;
    const AskPassphrase ask;
    const Nacl::PassphraseCost newCost;
    std::optional<Passphrase> passphrase;
    std::optional<Head> derivedFor;  // whose key `key` is
    SecretKey key;
    SecretStatus failedStatus = SecretStatuses::ok;
    std::string failedBecause;  // of the last failure
};
