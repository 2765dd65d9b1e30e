#pragma once

#include "PlatformCore/SealedFileStore.h"
#include "StateKit/MainLoop.h"
#include "TweetNacl/SealedBox.h"

#include <memory>
#include <optional>

/// Brings a store's question for the passphrase to the main thread, where dialogs are, from whatever thread
/// the store is used on, and waits there for the answer.
///
/// Made, closed and destroyed on the main thread; the loop outlives it, and it outlives the store.
class PassphraseQuestion {
public:
    /// @param put  asks the user; called on the main thread
    PassphraseQuestion(MainLoop& loop, SealedFileStore::AskPassphrase put);
    ~PassphraseQuestion();
    PassphraseQuestion(const PassphraseQuestion&) = delete;
    PassphraseQuestion& operator=(const PassphraseQuestion&) = delete;

    /// Any thread. @return nothing if the user does not want to answer, or it is closed
    std::optional<Passphrase> ask(SealedFileStore::Reason reason);

    /// Answers what waits, and whatever is asked from now on, with nothing: the program is ending, and its main
    /// thread may be about to wait for the one that waits for it. A dialog that is open is not closed by this.
    void close();

private:
    struct Shared;

    MainLoop& loop;
    const std::shared_ptr<Shared> shared;
};
