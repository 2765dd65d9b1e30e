#pragma once

#include "StateKit/Log.h"
#include "StateKit/MainLoop.h"
#include "StateKit/Printed.h"
#include "StateKit/SignalTarget.h"

#include <algorithm>
#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

/// A subset of a store's state. Its subscriber sees only this part, and is called only when it changes.
///
/// The type names its `StateType`, is built from a state or from none (a null pointer), and compares by
/// content.
template <class Subset>
concept CoreInitable = std::equality_comparable<Subset> && requires {
    typename Subset::StateType;
} && std::constructible_from<Subset, const typename Subset::StateType*>;

/// A borrowed value without its static type, so that one list can hold subscribers of every kind.
class AnyValue {
public:
    template <class Value>
    explicit AnyValue(const Value& value) : address(&value), type(&typeid(Value)) {}

    /// The value, or null if it is of another type.
    template <class Value>
    const Value* as() const {
        return *type == typeid(Value) ? static_cast<const Value*>(address) : nullptr;
    }

private:
    const void* address;
    const std::type_info* type;
};

/// One entry in the list of a `Signal`. A delivery first asks every entry `shouldFire`, and then fires
/// those that said yes.
class SignalSubscriber {
public:
    virtual ~SignalSubscriber() = default;

    /// Says whether the subscriber wants this value, and updates the subscriber's memo.
    virtual bool shouldFire(const AnyValue& value) = 0;

    /// Calls the action, if the target still lives.
    virtual void fire(const AnyValue& value) = 0;

    /// Whether `identity` is the target, and alive; with null, whether the target is gone.
    virtual bool hasTarget(const SignalTarget* identity) const = 0;
};

/// Tells whether one aspect of a value differs between two values.
template <class Value>
struct ChangeDetector {
    std::function<bool(const Value& old, const Value& now)> hasChanged;

    /// @param path  anything that reads an equatable value from a `Value`: a pointer to a member, a function
    template <class Path>
    static ChangeDetector of(Path path) {
        return {
            [path](const Value& old, const Value& now) { return !(std::invoke(path, old) == std::invoke(path, now)); }};
    }
};

namespace SignalDetail {

/// The weak hold on a target that all kinds of subscriber share.
template <class Target>
class Subscriber : public SignalSubscriber {
public:
    explicit Subscriber(Target& target) : address(&target), base(&target), token(target.lifeToken()) {}

    bool hasTarget(const SignalTarget* identity) const override {
        if (token.expired()) return identity == nullptr;
        return identity == base;
    }

protected:
    Target* target() const { return token.expired() ? nullptr : address; }

private:
    Target* address;
    const SignalTarget* base;
    std::weak_ptr<const void> token;
};

}  // namespace SignalDetail

/// Delivers every value.
template <class Target, class Value>
class SignalSubscriberWithTarget : public SignalDetail::Subscriber<Target> {
public:
    using Action = std::function<void(Target&, const Value&)>;
    SignalSubscriberWithTarget(Target& target, Action action)
        : SignalDetail::Subscriber<Target>(target), action(std::move(action)) {}

    bool shouldFire(const AnyValue&) override { return true; }
    void fire(const AnyValue& value) override {
        Target* target = this->target();
        const Value* typed = value.as<Value>();
        if (target && typed) action(*target, *typed);
    }

private:
    Action action;
};

/// Delivers a subset of the value, when it differs from the last one.
template <class Target, CoreInitable Subset>
class SignalSubscriberWithSubset : public SignalDetail::Subscriber<Target> {
public:
    using Action = std::function<void(Target&, const Subset&)>;
    SignalSubscriberWithSubset(Target& target, Action action)
        : SignalDetail::Subscriber<Target>(target), action(std::move(action)) {}

    bool shouldFire(const AnyValue& value) override {
        const auto* state = value.as<typename Subset::StateType>();
        if (!state) return false;
        Subset now(state);
        if (memo && *memo == now) return false;
        memo = std::move(now);
        return true;
    }
    void fire(const AnyValue&) override {
        Target* target = this->target();
        if (!target || !memo) return;
        // A copy, since a nested send may replace the memo in the middle of the action.
        const Subset subset = *memo;
        action(*target, subset);
    }

private:
    Action action;
    std::optional<Subset> memo;
};

/// Delivers the value when one of its detectors finds a difference to the value before.
template <class Target, class Value>
class SignalSubscriberWithDetectors : public SignalDetail::Subscriber<Target> {
public:
    using Action = std::function<void(Target&, const Value&)>;
    SignalSubscriberWithDetectors(Target& target, std::vector<ChangeDetector<Value>> detectors, Action action)
        : SignalDetail::Subscriber<Target>(target), detectors(std::move(detectors)), action(std::move(action)) {}

    bool shouldFire(const AnyValue& value) override {
        const Value* now = value.as<Value>();
        if (!now) return false;
        const bool changed =
            !memo || std::any_of(detectors.begin(), detectors.end(), [&](const ChangeDetector<Value>& detector) {
                return detector.hasChanged(*memo, *now);
            });
        memo = *now;
        return changed;
    }
    void fire(const AnyValue& value) override {
        Target* target = this->target();
        const Value* typed = value.as<Value>();
        if (target && typed) action(*target, *typed);
    }

private:
    std::vector<ChangeDetector<Value>> detectors;
    Action action;
    std::optional<Value> memo;
};

/// Calls an action that takes no value.
template <class Target>
class VoidSignalSubscriber : public SignalDetail::Subscriber<Target> {
public:
    using Action = std::function<void(Target&)>;
    VoidSignalSubscriber(Target& target, Action action)
        : SignalDetail::Subscriber<Target>(target), action(std::move(action)) {}

    bool shouldFire(const AnyValue&) override { return true; }
    void fire(const AnyValue&) override {
        if (Target* target = this->target()) action(*target);
    }

private:
    Action action;
};

/// The value type of a signal that carries no value.
struct NoValue {
    bool operator==(const NoValue&) const = default;
};

/// A list of weakly held subscribers to which values of one type are sent.
///
/// A target subscribes once, is held weakly and never has to unsubscribe; the next subscription removes
/// the entries of dead targets. A send on the main thread delivers before it returns; from any other
/// thread it posts the delivery and returns. Delivery works on the list as it was at the send: an action
/// may subscribe, leave, destroy targets, or send again, and a nested delivery completes first.
///
/// Subscribe on the main thread only. A copy has a list of its own and shares the subscribers' memos.
template <class Value>
class Signal {
public:
    /// @param loop  must outlive the signal and what it has posted
    explicit Signal(MainLoop& loop) : loop(&loop) {}

    template <class Target>
    void subscribe(Target& target, std::type_identity_t<std::function<void(Target&, const Value&)>> action) {
        append<SignalSubscriberWithTarget<Target, Value>>(target, std::move(action));
    }

    /// For signals that carry no value.
    template <class Target>
        requires std::same_as<Value, NoValue>
    void subscribe(Target& target, void (Target::*action)()) { append<VoidSignalSubscriber<Target>>(target, action); }
    template <class Target>
        requires std::same_as<Value, NoValue>
    void subscribe(Target& target, std::type_identity_t<std::function<void(Target&)>> action) {
        append<VoidSignalSubscriber<Target>>(target, std::move(action));
    }

    template <CoreInitable Subset, class Target>
    void subscribeSubset(Target& target, std::type_identity_t<std::function<void(Target&, const Subset&)>> action) {
        append<SignalSubscriberWithSubset<Target, Subset>>(target, std::move(action));
    }

    /// @param paths  a tuple of whatever `ChangeDetector::of` takes
    template <class Target, class... Paths>
    void subscribeChanges(Target& target, std::tuple<Paths...> paths,
                          std::type_identity_t<std::function<void(Target&, const Value&)>> action) {
        auto detectors = std::apply(
            [](auto... path) { return std::vector<ChangeDetector<Value>>{ChangeDetector<Value>::of(path)...}; }, paths);
        append<SignalSubscriberWithDetectors<Target, Value>>(target, std::move(detectors), std::move(action));
    }

    /// Removes the target's subscriber, and every dead one.
    void unsubscribe(const SignalTarget& target) {
        std::erase_if(subs, [&](const auto& sub) { return sub->hasTarget(&target) || sub->hasTarget(nullptr); });
    }

    /// Sends to all subscribers. May be called on any thread.
    void send(const Value& value) const {
        if (loop->isMainThread()) {
            deliver(subs, value, [](const SignalSubscriber&) { return true; });
        } else {
            loop->post([list = subs, value] { deliver(list, value, [](const SignalSubscriber&) { return true; }); });
        }
    }
    void send() const requires std::same_as<Value, NoValue> { send(NoValue{}); }

    /// Sends to that target's subscriber only; the memos of others stay as they are. May be called on any
    /// thread that keeps the target alive for the length of the call.
    void send(const Value& value, const SignalTarget& target) const {
        const auto isMeant = [&target](const SignalSubscriber& sub) { return sub.hasTarget(&target); };
        if (loop->isMainThread()) {
            deliver(subs, value, isMeant);
        } else {
            loop->post([list = subs, value, isMeant, token = target.lifeToken()] {
                if (!token.expired()) deliver(list, value, isMeant);
            });
        }
    }
    void send(const SignalTarget& target) const requires std::same_as<Value, NoValue> { send(NoValue{}, target); }

    /// Whether any subscriber is alive. A caller may ask before it builds a costly value.
    bool hasSubscribers() const {
        return std::any_of(subs.begin(), subs.end(), [](const auto& sub) { return !sub->hasTarget(nullptr); });
    }

    /// How many entries the list holds, dead ones included.
    std::size_t entryCount() const { return subs.size(); }

private:
    using List = std::vector<std::shared_ptr<SignalSubscriber>>;

    template <class Subscriber, class Target, class... Args>
    void append(Target& target, Args&&... args) {
        static_assert(std::is_base_of_v<SignalTarget, Target>, "a subscriber derives from SignalTarget");
        const bool isTwice =
            std::any_of(subs.begin(), subs.end(), [&](const auto& sub) { return sub->hasTarget(&target); });
        if (isTwice) {
            Log("StateKit", "Signal").error(std::string("Failed to subscribe ") + plainTypeName<Target>() + " twice");
            return;
        }
        subs.push_back(std::make_shared<Subscriber>(target, std::forward<Args>(args)...));
        std::erase_if(subs, [](const auto& sub) { return sub->hasTarget(nullptr); });
    }

    template <class Filter>
    static void deliver(const List& subs, const Value& sent, Filter isMeant) {
        if (subs.empty()) return;
        const List list = subs;    // the actions may change the list
        const Value value = sent;  // and the object that `sent` refers to
        const AnyValue any(value);
        List firing;
        firing.reserve(list.size());
        for (const auto& sub : list)
            if (isMeant(*sub) && sub->shouldFire(any)) firing.push_back(sub);
        for (const auto& sub : firing) sub->fire(any);
    }

    MainLoop* loop;
    List subs;
};
