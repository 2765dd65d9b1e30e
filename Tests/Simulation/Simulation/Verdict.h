#pragma once

#include "Simulation/World.h"

/// Checks that all is as it should be, once everything has come to rest. Broken promises go to the journal.
void judge(World& world);

/// Checks that everybody knows the others' present names. Only after everybody has said something: a change
/// of name is sent only once, and may have been lost like any other pack.
void judgeNames(World& world);
