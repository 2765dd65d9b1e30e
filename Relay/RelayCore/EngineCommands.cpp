// The commands that members send to the relay, and the members themselves.

#include "RelayCore/Engine.h"

#include <algorithm>
#include <set>
#include <string>

void RelayCore::Engine::command(LinkState& link, const PackView& pack, Date now) {
    if (isOverBounds(link)) return touch(link);
    Bytes text;
    try {
        text = link.sharedKey->open(pack.ciphertext, pack.nonce);
    } catch (const NaclError&) {
        ++counters.refusedGarbage;
        return refuse(link, "That pack does not open.");
    }
    ++counters.commands;
    obey(link, Command::parsed(textOf(text)), now);
}

void RelayCore::Engine::obey(LinkState& link, const Command& command, Date now) {
    const auto named = [&] { return Nacl::hex(command.key); };
    const auto isForAdmins = [](CommandKind kind) {
        return kind == CommandKind::add || kind == CommandKind::remove || kind == CommandKind::admin ||
               kind == CommandKind::unadmin;
    };
    if (isForAdmins(command.kind) && !link.member->isAdmin) return refuse(link, "Only an admin may do that.");
    Member* member = isForAdmins(command.kind) ? members.find(command.key) : nullptr;
    if (isForAdmins(command.kind) && command.kind != CommandKind::add && !member)
        return refuse(link, "There is no member " + named() + ".");
    const auto isLastAdmin = [&] { return member->isAdmin && members.adminCount() == 1; };
    const auto setAdmin = [&](bool isAdmin) {
        store.putMember({member->key, isAdmin});
        member->isAdmin = isAdmin;
        listChanged(now);
    };

    switch (command.kind) {
        case CommandKind::list: return sendList(link);
        case CommandKind::help: return answer(link, commandHelp);
        case CommandKind::who: {
            std::string text = std::to_string(members.count()) + " members:";
            for (const Member* each : members.all()) {
                text += "\n" + Nacl::hex(each->key);
                if (each->isAdmin) text += " admin";
                if (each->isOnline()) text += " online";
            }
            return answer(link, text);
        }
        case CommandKind::add:
            if (member) return answer(link, named() + " is a member already.");
            store.putMember({command.key, false});
            addMember({command.key, false});
            listChanged(now);
            return answer(link, "Added " + named() + ".");
        case CommandKind::remove: {
            if (isLastAdmin()) return refuse(link, "That is the last admin: make somebody else an admin first.");
            store.removeMember(member->key);
            answer(link, "Removed " + named() + ".");
            return removeMember(*member, now);
        }
        case CommandKind::admin:
            if (member->isAdmin) return answer(link, named() + " is an admin already.");
            setAdmin(true);
            return answer(link, named() + " is an admin now.");
        case CommandKind::unadmin:
            if (!member->isAdmin) return answer(link, named() + " is no admin.");
            if (isLastAdmin()) return refuse(link, "That is the last admin: make somebody else an admin first.");
            setAdmin(false);
            return answer(link, named() + " is no admin any more.");
        case CommandKind::missingKey: return refuse(link, "That command needs a key. Try help.");
        case CommandKind::badKey: return refuse(link, "That is no public key of 64 hexadecimal characters. Try help.");
        case CommandKind::unknown: return refuse(link, "Unknown command. Try help.");
    }
}

void RelayCore::Engine::addMember(const StoredMember& stored) {
    Member& member = members.add(stored);
    // A new member starts with all tokens that the limit allows: `takeToken` cuts this number down to it.
    member.tokens = 1e18;
    mailroom.look(member);
}

void RelayCore::Engine::removeMember(Member& member, Date now) {
    while (!member.links.empty())
        close(*member.links.back(), CloseCode::policyViolation, "removed", &RelayCounters::closedRemoved, now);
    mailroom.forget(member);
    members.remove(member);
    listChanged(now);
}

void RelayCore::Engine::membersChanged(Date now) {
    if (!failure && !isStopping) reloadMembers(now);
}

void RelayCore::Engine::reloadMembers(Date now) {
    const auto stored = store.members();
    std::set<PublicKey> kept;
    for (const StoredMember& each : stored) kept.insert(each.key);
    const auto before = members.all();
    for (Member* member : before)
        if (!kept.contains(member->key)) removeMember(*member, now);
    for (const StoredMember& each : stored) {
        Member* member = members.find(each.key);
        if (!member) {
            addMember(each);
            listChanged(now);
        } else if (member->isAdmin != each.isAdmin) {
            member->isAdmin = each.isAdmin;
            listChanged(now);
        }
    }
}
