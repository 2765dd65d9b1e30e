#pragma once

#include "StateKit/Date.h"
#include "StateKit/Record.h"
#include "StateKit/SharedList.h"
#include "StateKit/SharedMap.h"

#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

/// The printed form of a value, for people who look for faults: a record shows its fields by name,
/// `Person(publicKey: "ab…", isAdmin: false)`, a list stands in brackets. Its punctuation has no meaning.
/// Works on records, lists, maps, optionals, texts, numbers, booleans and dates.
template <class Type>
std::string printed(const Type& value);

/// A type's plain name, without its namespace: "Person".
template <class Type>
std::string plainTypeName();
