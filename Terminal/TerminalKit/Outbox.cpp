#include "TerminalKit/Outbox.h"

#include "StateKit/SignalTarget.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <variant>

Outbox::Outbox(Kit& kit, MainLoop& loop, Drain drain, Handlers handlers)
    : kit(kit), loop(loop), drain(std::move(drain)), handlers(std::move(handlers)), refilled(loop.now()) {
    kit.observeEvents(*this, [](Outbox& outbox, const Event& event) { outbox.happened(event); });
    kit.observeOnline(*this, [](Outbox& outbox, const Online& online) {
        if (online != Online::online) outbox.linkEnded();
    });
}

bool Outbox::isReady() const {
    // `canSend` alone is not enough: it stays true for a while after the link has begun to close.
    return !isStopped && isListed && kit.canSend() && kit.state().connection == Connection::online;
}

void Outbox::happened(const Event& event) {
    if (std::holds_alternative<Events::CommandFailed>(event) ||
        std::holds_alternative<Events::CommandResponded>(event)) {
        if (answers == 0) return;
        --answers;
        handlers.changed();
    } else if (std::holds_alternative<Events::Roster>(event)) {
        const auto& listed = kit.socket()->serverPeople();
        isListed = std::any_of(listed.begin(), listed.end(),
                               [&](const MetaPerson& person) { return person.publicKey == kit.state().publicKey; });
        if (!isReady()) return;
        for (auto entry = queue.begin(); entry != queue.end();) {
            if (decide(*entry)) {
                ++entry;
            } else {
                queuedBytes -= entry->line.text.size();
                entry = queue.erase(entry);
            }
        }
        pumpSoon();
    }
}

void Outbox::linkEnded() {
    isListed = false;
    // The answers to earlier commands can't come any more.
    answers = 0;
    handlers.changed();
}

void Outbox::add(TypedLine line) {
    Entry entry{std::move(line), {}};
    if (isReady() && !decide(entry)) return;
    queuedBytes += entry.line.text.size();
    queue.push_back(std::move(entry));
    pumpSoon();
    handlers.changed();
}

/// Finds the addressee of a direct message. @return false if the line was refused
bool Outbox::decide(Entry& entry) {
    if (entry.line.kind != TypedLine::Kind::direct || entry.addressee) return true;
    try {
        entry.addressee = Addressee::parse(entry.line.text, kit.state());
        return true;
    } catch (const AddresseeError& error) {
        refuse(entry.line, error.what());
        return false;
    }
}

void Outbox::refuse(const TypedLine& line, const std::string& reason) {
    std::string typed;
    switch (line.kind) {
        case TypedLine::Kind::command: typed = "/"; break;
        case TypedLine::Kind::direct: typed = "@"; break;
        case TypedLine::Kind::room:
        case TypedLine::Kind::nothing: break;
    }
    handlers.refused(typed + line.text, reason);
}

void Outbox::pumpSoon() {
    // Send in a turn of its own: the engine may be in the middle of telling its observers something.
    if (std::exchange(isPumpPosted, true)) return;
    loop.post([self = Weak<Outbox>(this)] {
        if (!self) return;
        self->isPumpPosted = false;
        self->pump();
    });
}

void Outbox::refill() {
    const Date now = loop.now();
    // Clamp, since the clock may have been set back or far forward.
    const Seconds passed = std::clamp(now - refilled, 0.0, burst / linesPerSecond);
    allowance = std::min(burst, allowance + passed * linesPerSecond);
    refilled = now;
}

void Outbox::pump() {
    refill();
    while (isReady() && !queue.empty() && unprovedLines < mostUnproved && allowance >= 1) {
        Entry entry = std::move(queue.front());
        queue.pop_front();
        queuedBytes -= entry.line.text.size();
        allowance -= 1;
        say(entry);
    }
    if (isReady() && !queue.empty() && allowance < 1 && !paceTimer) {
        paceTimer = std::make_unique<Timer>(loop, 0.1, [this] {
            paceTimer.reset();
            pump();
        });
    }
    askForProof();
    handlers.changed();
}

void Outbox::say(const Entry& entry) {
    try {
        switch (entry.line.kind) {
            case TypedLine::Kind::nothing: return;
            case TypedLine::Kind::command:
                kit.command(entry.line.text);
                if (entry.line.expectsAnswer()) ++answers;
                break;
            case TypedLine::Kind::direct: kit.send(entry.addressee->text, entry.addressee->key); break;
            case TypedLine::Kind::room: kit.send(entry.line.text, Kit::roomKey); break;
        }
    } catch (const std::exception& error) {
        // A reader's key was not valid, or the text could not be coded.
        refuse(entry.line, error.what());
        return;
    }
    ++unprovedLines;
    if (entry.line.kind == TypedLine::Kind::command)
        handlers.sentCommand(entry.line.text);
    else if (entry.addressee)
        handlers.sent(entry.addressee->key, entry.addressee->text);
    else
        handlers.sent(Kit::roomKey, entry.line.text);
}

void Outbox::askForProof() {
    if (unprovedLines == 0 || std::exchange(isProofAsked, true)) return;
    drain(proofPatience, [self = Weak<Outbox>(this), lines = unprovedLines](bool isProved) {
        if (self) self->proofCame(lines, isProved);
    });
}

void Outbox::proofCame(std::size_t lines, bool isProved) {
    isProofAsked = false;
    unprovedLines -= lines;
    if (!isProved) {
        doubtfulLines += lines;
        handlers.doubted(lines);
    }
    pump();
}
