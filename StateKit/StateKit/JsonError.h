#pragma once

#include <stdexcept>

/// Why a text was not the JSON form of a value, or why a value has none.
class [[nodiscard]] JsonError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
