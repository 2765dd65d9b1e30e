#pragma once

#include <concepts>

/// A subset of a store's state: what a subscriber sees of it, and is told of only when it changes.
///
/// Names its `StateType`, is built from a state or from none (a null pointer), and compares by content.
template <class Subset>
concept CoreInitable = std::equality_comparable<Subset> && requires {
    typename Subset::StateType;
} && std::constructible_from<Subset, const typename Subset::StateType*>;
