#pragma once

#include "Simulation/World.h"

/// Whether all is as it should be, once everything has come to rest. Broken promises go to the journal.
void judge(World& world);

/// Whether everybody knows the others by the names that they have: once all have said something, since
/// a change of name is told once, and can be missed like any other pack.
void judgeNames(World& world);
