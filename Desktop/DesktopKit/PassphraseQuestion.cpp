#include "DesktopKit/PassphraseQuestion.h"

#include <condition_variable>
#include <mutex>
#include <utility>

/// What a posted question needs, which may outlive the `PassphraseQuestion`.
struct PassphraseQuestion::Shared {
    const SealedFileStore::AskPassphrase put;  // called on the main thread only
    std::mutex mutex;                          // guards the rest
    std::condition_variable changed;
    bool isClosed = false;
};

PassphraseQuestion::PassphraseQuestion(MainLoop& loop, SealedFileStore::AskPassphrase put)
    : loop(loop), shared(new Shared{.put = std::move(put), .mutex = {}, .changed = {}}) {}

PassphraseQuestion::~PassphraseQuestion() { close(); }

std::optional<Passphrase> PassphraseQuestion::ask(SealedFileStore::Reason reason) {
    struct Answer {
        bool isThere = false;
        std::optional<Passphrase> passphrase;
    };
    const auto isClosed = [this] {
        const std::lock_guard lock(shared->mutex);
        return shared->isClosed;
    };
    if (loop.isMainThread()) return isClosed() ? std::nullopt : shared->put(reason);

    const auto answer = std::make_shared<Answer>();  // guarded by the same mutex
    loop.post([shared = shared, answer, reason] {
        {
            const std::lock_guard lock(shared->mutex);
            if (shared->isClosed) return;
        }
        auto given = shared->put(reason);
        const std::lock_guard lock(shared->mutex);
        answer->passphrase = std::move(given);
        answer->isThere = true;
        shared->changed.notify_all();
    });
    std::unique_lock lock(shared->mutex);
    shared->changed.wait(lock, [&] { return answer->isThere || shared->isClosed; });
    return std::move(answer->passphrase);
}

void PassphraseQuestion::close() {
    const std::lock_guard lock(shared->mutex);
    shared->isClosed = true;
    shared->changed.notify_all();
}
