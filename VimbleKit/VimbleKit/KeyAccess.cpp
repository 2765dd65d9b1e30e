#include "VimbleKit/KeyAccess.h"

#include <string>

namespace {

KeyAccess::Outcome outcomeOf(const std::function<Keys(SecretStore&)>& operation, SecretStore& store) {
    try {
        return operation(store);
    } catch (const KeysError& error) {
        return error;
    }
}

}  // namespace

KeyAccess::KeyAccess(MainLoop& loop, SecretStore& store, Worker& worker)
    : loop(loop),
      store(store),
      worker(worker),
      pending(std::make_shared<Completions>()),
      isAbandoned(std::make_shared<std::atomic<bool>>(false)) {}

KeyAccess::~KeyAccess() { abandon(); }

void KeyAccess::abandon() {
    *isAbandoned = true;
    pending.reset();
}

KeyAccess::Operation KeyAccess::replacement(std::string_view secretKeyText) {
    // `std::function` may copy what it captures. The copies share one text, so that only one place is wiped.
    const std::shared_ptr<const std::string> text(new std::string(secretKeyText), [](const std::string* secret) {
        Nacl::wipe(const_cast<std::string&>(*secret));
        delete secret;
    });
    return [text](SecretStore& store) { return Keys::replace(*text, store); };
}

void KeyAccess::start(Kind kind, Operation operation, Completion completion) {
    if (pending) pending->push_back(std::move(completion));
    worker.run([kind, operation = std::move(operation), &loop = loop, &store = store,
                weakPending = std::weak_ptr(pending), isAbandoned = isAbandoned] {
        if (kind == Kind::read && *isAbandoned) return;
        // A posted function must be copyable, and keys are not.
        const auto outcome = std::make_shared<Outcome>(outcomeOf(operation, store));
        loop.post([weakPending, outcome] {
            const auto completions = weakPending.lock();
            if (!completions) return;
            // Take the completion out before calling it: it may begin the next operation or destroy this object.
            const Completion tell = std::move(completions->front());
            completions->pop_front();
            tell(std::move(*outcome));
        });
    });
}
