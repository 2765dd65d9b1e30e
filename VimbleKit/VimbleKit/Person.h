#pragma once

#include "StateKit/Record.h"

#include <functional>
#include <string>
#include <tuple>

/// Somebody whom the server lists.
///
/// JSON: {"publicKey", "name", "emoji": text, "isAdmin": boolean}. `isOnline` is what the server last
/// said; it is never written, and false after reading.
struct Person {
    std::string publicKey;  // 64 lower-case hexadecimal characters
    std::string name;       // self-chosen; empty until they have sent one
    std::string emoji;      // self-chosen; empty until they have sent one
    bool isAdmin = false;
    bool isOnline = false;

    static constexpr auto fields =
        std::tuple{Field{"publicKey", &Person::publicKey}, Field{"name", &Person::name}, Field{"emoji", &Person::emoji},
                   Field{"isAdmin", &Person::isAdmin}, Field{"isOnline", &Person::isOnline, false}};

    /// `name`, or "anonymous" and the first six characters of the key for somebody without one.
    std::string displayName() const;
    /// `emoji`, or a neutral face.
    std::string displayEmoji() const;

    bool operator==(const Person&) const = default;
};

template <>
struct std::hash<Person> {
    std::size_t operator()(const Person& person) const { return hashOfFields(person); }
};
