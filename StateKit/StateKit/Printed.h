#pragma once

#include "StateKit/Date.h"
#include "StateKit/Record.h"

#include <charconv>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

/// The printed form of a value, for people who look for faults: a record shows its fields by name,
/// `Person(publicKey: "ab…", isAdmin: false)`, a list stands in brackets. No program reads this form.
/// Works on records, lists, maps, optionals, texts, numbers, booleans, dates and enumerations (as
/// numbers). Any other type is printed by a function `void appendPrinted(std::string&, const Type&)`
/// in the type's own namespace; if a record or an enumeration has such a function, it is used instead.
///
/// In texts, quotes, backslashes and control characters are escaped, so that a printed value is one
/// line and can't steer a terminal by its control characters.
template <class Type>
std::string printed(const Type& value);

/// A type's plain name, without its namespace and its template arguments: "Person". An optional has the
/// name of the type that it may hold, a text the name "String".
template <class Type>
std::string plainTypeName();

namespace PrintDetail {

/// The plain name behind a mangled one.
std::string plainName(const std::type_info& type);

/// The text in quotes, escaped.
void appendQuoted(std::string& out, std::string_view text);

template <class Type>
inline constexpr bool isPair = false;
template <class First, class Second>
inline constexpr bool isPair<std::pair<First, Second>> = true;

template <class Type>
concept HasOwnPrint = requires(std::string& out, const Type& value) {
    appendPrinted(out, value);
};

/// Demangling takes longer than printing, so each name is made once.
template <class Type>
const std::string& recordName() {
    static const std::string name = plainTypeName<Type>();
    return name;
}

template <class Type>
void append(std::string& out, const Type& value) {
    if constexpr (HasOwnPrint<Type>) {
        appendPrinted(out, value);
    } else if constexpr (std::same_as<Type, bool>) {
        out += value ? "true" : "false";
    } else if constexpr (std::is_arithmetic_v<Type>) {
        char digits[64];
        out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    } else if constexpr (std::is_enum_v<Type>) {
        append(out, static_cast<std::int64_t>(value));
    } else if constexpr (std::same_as<Type, Date>) {
        append(out, value.sinceReference);
    } else if constexpr (std::convertible_to<const Type&, std::string_view>) {
        appendQuoted(out, value);
    } else if constexpr (isOptional<Type>) {
        if (value)
            append(out, *value);
        else
            out += "nil";
    } else if constexpr (Record<Type>) {
        out += recordName<Type>();
        out += '(';
        bool isFirst = true;
        forEachField<Type>([&](const auto& field) {
            if (!isFirst) out += ", ";
            isFirst = false;
            out += field.name;
            out += ": ";
            append(out, value.*field.member);
        });
        out += ')';
    } else if constexpr (requires { value.begin() != value.end(); }) {
        using Element = std::remove_cvref_t<decltype(*value.begin())>;
        out += '[';
        bool isFirst = true;
        for (const auto& element : value) {
            if (!isFirst) out += ", ";
            isFirst = false;
            if constexpr (isPair<Element>) {
                append(out, element.first);
                out += ": ";
                append(out, element.second);
            } else {
                append(out, element);
            }
        }
        if constexpr (isPair<Element>)
            if (isFirst) out += ':';  // an empty map is printed as [:], an empty list as []
        out += ']';
    } else {
        static_assert(std::is_void_v<Type>, "declare appendPrinted(std::string&, const Type&) beside the type");
    }
}

}  // namespace PrintDetail

template <class Type>
std::string printed(const Type& value) {
    std::string text;
    PrintDetail::append(text, value);
    return text;
}

template <class Type>
std::string plainTypeName() {
    if constexpr (isOptional<Type>)
        return plainTypeName<typename Type::value_type>();
    else if constexpr (std::same_as<Type, std::string>)
        return "String";
    else
        return PrintDetail::plainName(typeid(Type));
}
