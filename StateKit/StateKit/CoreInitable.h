#pragma once

#include <concepts>

/// A subset of a store's state. Its subscriber sees only this part, and is called only when it changes.
///
/// The type names its `StateType`, is built from a state or from none (a null pointer), and compares by
/// content.
template <class Subset>
concept CoreInitable = std::equality_comparable<Subset> && requires {
    typename Subset::StateType;
} && std::constructible_from<Subset, const typename Subset::StateType*>;
