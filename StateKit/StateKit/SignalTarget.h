#pragma once

#include <cstddef>
#include <memory>

/// The base of every class that subscribes to a `Signal`.
///
/// A `Signal` holds its targets weakly, so that no target ever has to unsubscribe. The weak hold is on a
/// token that dies with the target and not on a `shared_ptr` to it, because a target may be a window
/// that its parent owns, or a plain object on a test's stack.
///
/// Main thread only. A copy is another target: it has a token of its own.
class SignalTarget {
public:
    SignalTarget() : token(std::make_shared<char>()) {}
    SignalTarget(const SignalTarget&) : SignalTarget() {}
    SignalTarget& operator=(const SignalTarget&) { return *this; }

    /// Expires when this object dies, so that those who hold it weakly can tell whether it still lives.
    std::weak_ptr<const void> lifeToken() const { return token; }

protected:
    ~SignalTarget() = default;

private:
    std::shared_ptr<const void> token;
};

/// A reference that knows when its object has gone: for delegates, and for callbacks that may outlive
/// what they call. Main thread only.
template <class Object>
class Weak {
public:
    Weak() = default;
    Weak(std::nullptr_t) {}
    /// @param object  a `SignalTarget`, or something that is one and implements `Object`
    template <class Derived>
    Weak(Derived* object) : address(object) {
        if (object) token = object->lifeToken();
    }

    /// @param object  an interface that `target` implements by a private base
    Weak(Object* object, const SignalTarget& target) : address(object), token(target.lifeToken()) {}

    /// The object, or null once it has gone.
    Object* get() const { return token.expired() ? nullptr : address; }
    explicit operator bool() const { return get() != nullptr; }
    Object* operator->() const { return get(); }

private:
    Object* address = nullptr;
    std::weak_ptr<const void> token;
};
