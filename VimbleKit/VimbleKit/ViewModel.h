#pragma once

#include "StateKit/CoreInitable.h"
#include "VimbleKit/State.h"

#include <concepts>

/// A subset of the engine's state, made for a view: what `Kit::observeModel` takes.
template <class Model>
concept ViewModel = CoreInitable<Model> && std::same_as<typename Model::StateType, State>;
