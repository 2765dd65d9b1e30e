#pragma once

#include "PlatformCore/SealedFileStore.h"
#include "StateKit/MainLoop.h"
#include "TweetNacl/SealedBox.h"

#include <memory>
#include <optional>

/// Passes a store's question for the passphrase from the thread on which the store is used to the main thread,
/// where dialogs must be, and makes the store's thread wait for the answer.
///
/// Make, close and destroy it on the main thread; the loop must outlive it, and it must outlive the store.
class PassphraseQuestion {
public:
    /// @param put  asks the user; called on the main thread
    PassphraseQuestion(MainLoop& loop, SealedFileStore::AskPassphrase put);
    ~PassphraseQuestion();
    PassphraseQuestion(const PassphraseQuestion&) = delete;
    PassphraseQuestion& operator=(const PassphraseQuestion&) = delete;

    /// Any thread. @return nothing if the user does not want to answer, or this object is closed
    std::optional<Passphrase> ask(SealedFileStore::Reason reason);

    /// Answers waiting questions, and all later ones, with nothing. For the end of the program, where the main
    /// thread may wait for the store's thread, which must not wait for the main thread then. Does not close an
    /// open dialog.
    void close();

private:
    struct Shared;

    MainLoop& loop;
    const std::shared_ptr<Shared> shared;
};
