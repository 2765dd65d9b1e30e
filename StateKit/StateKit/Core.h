#pragma once

#include "Base/Check.h"
#include "StateKit/Signal.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

/// A store of one value, changed only by mutations, that tells its subscribers after every change.
///
/// What is published (`state`) is what was committed with every live overlay replayed on top of it. An
/// overlay is a provisional change that can be taken back: it is kept as a mutation and not as a value,
/// so that a commit beneath it is never lost. The store compares nothing: a mutation that changes nothing
/// is published too, and a subscriber that wants fewer calls uses `subscribeSubset`.
///
/// Main thread only; built by `make`, whose pointer may be dropped on any thread. A subscriber's action
/// runs inside the commit that caused it, and reads the new state. A commit costs a few copies of
/// `State`, so its large parts should share structure.
template <class State>
class Core {
public:
    using Mutation = std::function<void(State&)>;
    using Token = std::int64_t;

    /// @param loop  must outlive the store
    [[nodiscard]] static std::shared_ptr<Core> make(MainLoop& loop, State initial) {
        // Subscribers' actions may hold what only the main thread may destroy, so the last reference
        // hands the store over to that thread.
        return std::shared_ptr<Core>(new Core(loop, std::move(initial)), [&loop](Core* core) {
            if (loop.isMainThread())
                delete core;
            else
                loop.post([owned = std::shared_ptr<Core>(core)]() mutable { owned.reset(); });
        });
    }

    const State& state() const { return _state; }

    /// Changes the committed value, beneath all overlays.
    ///
    /// A mutation that commits on the same store loses that inner commit, since the outer one stores
    /// the copy that it took before; both publish.
    template <class Mutate>
    void commit(Mutate&& mutation) {
        State working = commitedState;
        mutation(working);
        commitedState = std::move(working);
        rebuild();
        publish();
    }

    /// Adds a provisional change. @return the token that takes it back, never reused
    [[nodiscard]] Token overlay(Mutation mutation) {
        if (__builtin_add_overflow(tokenCounter, 1, &tokenCounter)) fatal("Core ran out of overlay tokens");
        const Token token = tokenCounter;
        overlaidMutations.push_back({token, std::move(mutation)});
        rebuild();
        publish();
        return token;
    }

    /// Takes an overlay back. An unknown token changes nothing, but the state is still published.
    void removeOverlay(Token token) {
        std::erase_if(overlaidMutations, [&](const OverlayEntry& entry) { return entry.token == token; });
        rebuild();
        publish();
    }

    template <class Target>
    void subscribe(Target& target, std::type_identity_t<std::function<void(Target&, const State&)>> action) {
        stateSubs.subscribe(target, std::move(action));
    }

    template <CoreInitable Subset, class Target>
        requires std::same_as<typename Subset::StateType, State>
    void subscribeSubset(Target& target, std::type_identity_t<std::function<void(Target&, const Subset&)>> action) {
        stateSubs.template subscribeSubset<Subset>(target, std::move(action));
    }

    /// @param paths  a tuple of members (or readers) of `State`; the action runs when one of them differs
    template <class Target, class... Paths>
    void subscribeChanges(Target& target, std::tuple<Paths...> paths,
                          std::type_identity_t<std::function<void(Target&, const State&)>> action) {
        stateSubs.subscribeChanges(target, std::move(paths), std::move(action));
    }

    /// Sends the present state to that target only. A new subscriber calls this to see the state at once.
    void resend(const SignalTarget& target) { stateSubs.send(_state, target); }

private:
    struct OverlayEntry {
        Token token;
        Mutation mutation;
    };

    Core(MainLoop& loop, State initial) : _state(initial), commitedState(std::move(initial)), stateSubs(loop) {}

    void rebuild() {
        State working = commitedState;
        // By index and by copy: a mutation that adds or removes an overlay must not pull its own
        // entry away from under itself.
        for (std::size_t i = 0; i < overlaidMutations.size(); ++i) {
            const Mutation mutation = overlaidMutations[i].mutation;
            mutation(working);
        }
        _state = std::move(working);
    }

    void publish() { stateSubs.send(_state); }

    State _state;
    State commitedState;
    std::vector<OverlayEntry> overlaidMutations;
    Token tokenCounter = 0;
    Signal<State> stateSubs;
};
