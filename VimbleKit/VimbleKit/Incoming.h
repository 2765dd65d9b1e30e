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

/// Folds what arrives from the server into the state and into events. It needs no link, no disk and no
/// keys.
///
/// Main thread only. Each commit is published on its own; events are sent after the commits that they
/// report. An observer may destroy this object, the store and the signal during a commit or an event.
class Incoming : public SignalTarget {
public:
    /// @param loop, core, events  must outlive this object
    Incoming(const MainLoop& loop, Core<State>& core, const Signal<Event>& events)
        : loop(loop), core(core), events(events) {}

    /// Takes the server's list. A person who is no longer on it is removed, with the name and emoji that they
    /// had sent; the conversation with them stays.
    void receivedPeople(const std::vector<MetaPerson>& list);

    /// Takes a pack from a person. Drops it if its author is not on the list or its contents are no record.
    void receivedPack(const Pack& pack);

private:
    static void applyPeople(State& state, const std::vector<MetaPerson>& list);
    void applyPack(const std::string& key, const PackPlaintext& record, Date when);

    const MainLoop& loop;
    Core<State>& core;
    const Signal<Event>& events;
};
