#pragma once

#include "DesktopKit/PassphraseQuestion.h"
#include "PlatformCore/SealedFileStore.h"
#include "StateKit/MainLoop.h"
#include "TweetNacl/SealedBox.h"
#include "VimbleKit/SecretStore.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

/// What `UserSecrets` needs of the program around it. The loop must outlive it.
struct UserSecretsEnvironment {
    MainLoop& loop;
    /// Makes the keeper of the secret key: the sealed file, or where none is chosen the desktop's own. The store may
    /// call `ask` on any thread that it is used on.
    std::function<std::unique_ptr<SecretStore>(const std::optional<std::filesystem::path>& file,
                                               SealedFileStore::AskPassphrase ask)>
        makeStore;
    /// Asks the user, on the main thread. @param wasWrong  an earlier answer did not open the file
    std::function<std::optional<Passphrase>(SealedFileStore::Reason reason, const std::filesystem::path& file,
                                            bool wasWrong)>
        askUser;
};

/// Where the secret key is kept, as the user has chosen, and the questions that are asked for it.
///
/// Main thread, but for the store, which is used on one thread at a time.
class UserSecrets {
public:
    /// @param file  the sealed file; nothing for the desktop's own keeper of secrets, which asks by itself
    /// @param given  the passphrase from the program's environment, if any; it answers the first question
    UserSecrets(UserSecretsEnvironment environment, std::optional<std::filesystem::path> file,
                std::optional<Passphrase> given);

    SecretStore& store() { return *_store; }

    /// Opens the sealed file, or makes it with a first key in it. Asks again while the passphrase is wrong. Does
    /// nothing if there is no file.
    /// @return false if the user has cancelled
    bool unlock();

    /// Ends an open question without a passphrase, so that no thread waits for an answer.
    void close() { question.close(); }

private:
    std::optional<Passphrase> passphrase(SealedFileStore::Reason reason);

    const UserSecretsEnvironment environment;
    const std::optional<std::filesystem::path> file;
    std::optional<Passphrase> given;
    bool wasWrong = false;
    PassphraseQuestion question;
    const std::unique_ptr<SecretStore> _store;
};
