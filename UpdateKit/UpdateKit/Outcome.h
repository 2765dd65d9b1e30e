#pragma once

#include <exception>
#include <functional>
#include <type_traits>
#include <utility>
#include <variant>

/// The result of an operation that completes later: its value, or the exception that it would have thrown.
template <class Value>
class [[nodiscard]] Outcome {
public:
    Outcome(Value value) : content(std::in_place_index<0>, std::move(value)) {}
    Outcome(std::exception_ptr error) : content(std::in_place_index<1>, std::move(error)) {}

    template <class Error>
    static Outcome failure(Error error) {
        return Outcome(std::make_exception_ptr(std::move(error)));
    }

    /// Runs a function that returns the value, or throws.
    template <class Function>
    static Outcome of(Function&& function) {
        try {
            if constexpr (std::is_void_v<std::invoke_result_t<Function>>) {
                function();
                return Outcome(Value{});
            } else {
                return Outcome(function());
            }
        } catch (...) {
            return Outcome(std::current_exception());
        }
    }

    bool hasValue() const { return content.index() == 0; }

    /// Takes the value out. Once.
    /// @throws what the operation failed with
    Value take() {
        if (!hasValue()) std::rethrow_exception(std::get<1>(content));
        return std::move(std::get<0>(content));
    }

    /// Null if there is a value.
    std::exception_ptr error() const { return hasValue() ? nullptr : std::get<1>(content); }

private:
    std::variant<Value, std::exception_ptr> content;
};

/// The value of an operation that yields none.
struct Done {};

/// Receives the outcome of an operation, at most once: an operation that is called off drops it uncalled.
template <class Value>
using Completion = std::function<void(Outcome<Value>)>;
