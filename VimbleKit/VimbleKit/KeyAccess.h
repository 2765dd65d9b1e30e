#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "StateKit/Worker.h"
#include "VimbleKit/Keys.h"
#include "VimbleKit/SecretStore.h"

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>
#include <variant>

/// The identity in the secret store, for windows: a store that is slow, or waits for the user at a prompt,
/// must not freeze them. `Keys` is the same for whoever may wait.
///
/// Each operation is done by the worker, one behind the other in the order of the calls, and its outcome is
/// delivered in that order on the main loop, never within the call. What is delivered was in the store when
/// the operation was done: nothing is kept here. A target that has gone is told nothing, and its operation
/// is done all the same.
///
/// Main thread only. Loop, store and worker outlive this object, and what the worker has of it. It dies as if
/// abandoned.
class KeyAccess {
public:
    /// The keys, or why there are none; a failure has left the store as it was.
    using Outcome = std::variant<Keys, KeysError>;

    KeyAccess(MainLoop& loop, SecretStore& store, Worker& worker);
    ~KeyAccess();
    KeyAccess(const KeyAccess&) = delete;
    KeyAccess& operator=(const KeyAccess&) = delete;

    /// What `Keys::loadOrGenerate` gives.
    /// @param deliver  called as deliver(target, Outcome)
    template <class Target, class Deliver>
    void loadOrGenerate(Target& target, Deliver deliver) {
        start(
            Kind::read, [](SecretStore& store) { return Keys::loadOrGenerate(store); }, weakly(target, deliver));
    }

    /// What `Keys::regenerate` gives.
    template <class Target, class Deliver>
    void regenerate(Target& target, Deliver deliver) {
        start(
            Kind::write, [](SecretStore& store) { return Keys::regenerate(store); }, weakly(target, deliver));
    }

    /// What `Keys::replace` gives. The text is copied, and the copy wiped behind the operation.
    template <class Target, class Deliver>
    void replace(std::string_view secretKeyText, Target& target, Deliver deliver) {
        start(Kind::write, replacement(secretKeyText), weakly(target, deliver));
    }

    /// Delivers nothing more, and drops what was to be read; what was to be written is still written, also what
    /// is asked for from now on. For the end of the program.
    void abandon();

private:
    enum class Kind { read, write };
    using Operation = std::function<Keys(SecretStore&)>;
    using Completion = std::function<void(Outcome)>;
    using Completions = std::deque<Completion>;

    template <class Target, class Deliver>
    static Completion weakly(Target& target, Deliver deliver) {
        return [weak = Weak<Target>(&target), deliver = std::move(deliver)](Outcome outcome) {
            if (Target* alive = weak.get()) deliver(*alive, std::move(outcome));
        };
    }
    static Operation replacement(std::string_view secretKeyText);
    void start(Kind kind, Operation operation, Completion completion);

    MainLoop& loop;
    SecretStore& store;
    Worker& worker;
    std::shared_ptr<Completions> pending;                  // of the main thread alone; null once abandoned
    const std::shared_ptr<std::atomic<bool>> isAbandoned;  // shared with the worker
};
