#include "DesktopKit/UserSecrets.h"

#include "VimbleKit/Keys.h"

#include <utility>

UserSecrets::UserSecrets(UserSecretsEnvironment machine, std::optional<std::filesystem::path> file,
                         std::optional<Passphrase> given)
    : environment(std::move(machine)),
      file(std::move(file)),
      given(std::move(given)),
      question(environment.loop, [this](SealedFileStore::Reason reason) { return passphrase(reason); }),
      _store(
          environment.makeStore(this->file, [this](SealedFileStore::Reason reason) { return question.ask(reason); })) {}

bool UserSecrets::unlock() {
    while (file) {
        try {
            Keys::loadOrGenerate(*_store);
            return true;
        } catch (const KeysError& error) {
            if (error.status == SecretStatuses::userCanceled) return false;
            // The application reads the key again at its start, and tells the user of every other failure.
            if (error.status != SecretStatuses::authFailed) return true;
            wasWrong = true;
        }
    }
    return true;
}

std::optional<Passphrase> UserSecrets::passphrase(SealedFileStore::Reason reason) {
    if (given) {
        std::optional<Passphrase> result = std::move(given);
        given.reset();
        return result;
    }
    return environment.askUser(reason, *file, wasWrong);
}
