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

/// Reads and changes the identity in the secret store without blocking, for windows: a store that is slow, or
/// waits for the user at a prompt, must not freeze them. `Keys` does the same for a caller that may wait.
///
/// The worker does the operations one after the other in the order of the calls, and their outcomes are
/// delivered in that order on the main loop, never inside the call. An outcome tells what the store held when
/// the operation was done; this object caches nothing. If a target is gone, its operation is done all the
/// same, but nothing is delivered.
///
/// Main thread only. Loop, store and worker must outlive this object and the operations that the worker still
/// has of it. The destructor calls `abandon`.
class KeyAccess {
public:
    /// The keys, or why there are none; a failure has left the store as it was.
    using Outcome = std::variant<Keys, KeysError>;

    KeyAccess(MainLoop& loop, SecretStore& store, Worker& worker);
    ~KeyAccess();
    KeyAccess(const KeyAccess&) = delete;
    KeyAccess& operator=(const KeyAccess&) = delete;

    /// Delivers what `Keys::loadOrGenerate` gives.
    /// @param deliver  called as deliver(target, Outcome)
    template <class Target, class Deliver>
    void loadOrGenerate(Target& target, Deliver deliver) {
        start(
            Kind::read, [](SecretStore& store) { return Keys::loadOrGenerate(store); }, weakly(target, deliver));
    }

    /// Delivers what `Keys::regenerate` gives.
    template <class Target, class Deliver>
    void regenerate(Target& target, Deliver deliver) {
        start(
            Kind::write, [](SecretStore& store) { return Keys::regenerate(store); }, weakly(target, deliver));
    }

    /// Delivers what `Keys::replace` gives. The text is copied, and the copy is wiped after the operation.
    template <class Target, class Deliver>
    void replace(std::string_view secretKeyText, Target& target, Deliver deliver) {
        start(Kind::write, replacement(secretKeyText), weakly(target, deliver));
    }

    /// From now on, delivers no outcome and skips the reads that have not begun. Writes are still done, also those
    /// that are asked for later. For the end of the program.
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
    std::shared_ptr<Completions> pending;                  // used on the main thread only; null once abandoned
    const std::shared_ptr<std::atomic<bool>> isAbandoned;  // shared with the worker
};
