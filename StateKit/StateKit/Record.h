#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>

/// One field of a record: its name, as in JSON and in print, and where it is.
///
/// A record lists its fields once, in a constant tuple named `fields`, and from that list come its
/// JSON form, its printed form and its hash:
///
///     static constexpr auto fields = std::tuple{Field{"author", &Message::author}, ...};
template <class Owner, class Member>
struct Field {
    constexpr Field(const char* name, Member Owner::*member, bool isStored = true)
        : name(name), member(member), isStored(isStored) {}

    const char* name;
    Member Owner::*member;
    bool isStored;  // false: not in the JSON form, neither written nor read
};

/// Whether a type is a `std::optional`, which JSON, print and the disk treat apart: a field of it may be missing.
template <class Type>
inline constexpr bool isOptional = false;
template <class Type>
inline constexpr bool isOptional<std::optional<Type>> = true;

template <class Type>
concept Record = requires {
    Type::fields;
};

/// Calls `visit` with each field of the record type, in order.
template <Record Type, class Visit>
constexpr void forEachField(Visit&& visit) {
    std::apply([&](const auto&... field) { (visit(field), ...); }, Type::fields);
}

/// A hash over all fields, in order, those that are not stored included.
template <Record Type>
std::size_t hashOfFields(const Type& value) {
    std::size_t result = 0;
    forEachField<Type>([&](const auto& field) {
        const auto& member = value.*field.member;
        const std::size_t hash = std::hash<std::remove_cvref_t<decltype(member)>>()(member);
        result ^= hash + 0x9e3779b97f4a7c15u + (result << 6) + (result >> 2);
    });
    return result;
}
