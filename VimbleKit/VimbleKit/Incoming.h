#pragma once

#include "StateKit/Core.h"
#include "StateKit/MainLoop.h"
#include "StateKit/Signal.h"
#include "VimbleKit/Event.h"
#include "VimbleKit/State.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <string>
#include <vector>

/// Folds what arrives from the server into the state and into events: the engine's heart, which needs
/// no link, no disk and no keys.
///
/// Main thread only. Each commit publishes by itself; events go out after the commits that they report.
/// Observers may destroy this object, store and signal with it, in the middle of either.
class Incoming : public SignalTarget {
public:
    /// @param loop, core, events  must outlive this object
    Incoming(const MainLoop& loop, Core<State>& core, const Signal<Event>& events)
        : loop(loop), core(core), events(events) {}

    /// The server's list. Who is no longer on it goes, with the name and emoji that they had sent; their
    /// conversation stays.
    void receivedPeople(const std::vector<MetaPerson>& list);

    /// A pack from a person. One from nobody on the list, or that holds no record, is dropped.
    void receivedPack(const Pack& pack);

private:
    static void applyPeople(State& state, const std::vector<MetaPerson>& list);
    void applyPack(const std::string& key, const PackPlaintext& record, Date when);

    const MainLoop& loop;
    Core<State>& core;
    const Signal<Event>& events;
};
