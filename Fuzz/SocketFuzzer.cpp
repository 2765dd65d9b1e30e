// Drives the client, from the transport up, in a whole session: a server and people who say whatever the fuzzer
// wants, under real seals, and a user who acts meanwhile, also inside an observer's action.
//
// One input is left out: an answer to a command ("crsp") whose body is neither a record nor UTF-8, since it ends
// the process on purpose.

#include "FuzzSupport/FuzzInput.h"
#include "SocketWorld.h"

#include "Text/Text.h"

namespace {

constexpr int maxEvents = 200;

/// Any text, escaped if it is no UTF-8, since only UTF-8 has a JSON form.
std::string jsonText(FuzzInput& input) {
    const std::string text = input.text();
    return Text::isUtf8(text) ? text : Text::escaped(text);
}

std::vector<MetaPerson> list(FuzzInput& input) {
    std::vector<MetaPerson> people;
    for (std::size_t count = input.below(8); count > 0; --count) {
        const std::uint8_t choice = input.byte();
        const bool isAdmin = (choice & 0x40) != 0, isOnline = (choice & 0x80) != 0;
        const std::size_t who = choice % 8;
        // Mostly the keys of people, of whom number 0 is the user; otherwise any text, as a server may put one there.
        people.push_back({who < 7 ? SocketWorld::keyText(who) : jsonText(input), isAdmin, isOnline});
    }
    return people;
}

PackPlaintext record(FuzzInput& input) {
    const std::uint8_t shape = input.byte();
    PackPlaintext record{std::nullopt, jsonText(input), jsonText(input), std::nullopt};
    if (shape & 1) record.kind = shape & 2 ? "room" : jsonText(input);
    if (shape & 4) record.text = jsonText(input);
    return record;
}

Bytes serverMessage(FuzzInput& input) {
    static constexpr const char* kinds[] = {"list", "cerr", "crsp", "what"};
    const std::string kind = kinds[input.below(4)];
    Bytes message(kind.begin(), kind.end());
    const ByteView body = input.bytes();
    message.insert(message.end(), body.begin(), body.end());
    return message;
}

/// Makes the user do something.
void act(SocketWorld& world, FuzzInput& input) {
    switch (input.below(12)) {
        case 0: world.connect(); break;
        case 1: world.disconnect(); break;
        case 2: world.chooseServer(input.below(3)); break;
        case 3: world.setName(input.text()); break;
        case 4: world.setEmoji(input.text()); break;
        case 5: world.command(input.text()); break;
        case 6: world.sendToRoom(input.text()); break;
        case 7: {
            const std::size_t person = input.below(8);
            world.sendTo(person < 7 ? SocketWorld::keyText(person) : input.text(), input.text());
            break;
        }
        case 8: world.markRead(input.below(7)); break;
        case 9: world.markRoomRead(); break;
        case 10: world.save(); break;
        case 11: world.endSession(); break;
    }
}

void happen(SocketWorld& world, FuzzInput& input) {
    switch (input.below(24)) {
        case 0: world.rawFrame(input.bytes()); break;
        case 1: world.greet(input.below(2)); break;
        case 2: world.serverSays(ServerMessage::encodedList(list(input))); break;
        case 3: world.serverSays(serverMessage(input)); break;
        case 4: world.serverSays(input.bytes()); break;
        case 5: {
            const std::size_t person = input.below(7);
            world.personSays(person, record(input).encoded());
            break;
        }
        case 6: {
            const std::size_t person = input.below(7);
            world.personSays(person, input.bytes());
            break;
        }
        case 7: {
            const std::uint8_t place = input.byte();
            world.altered(place, input.byte());
            break;
        }
        case 8:
        case 9: world.link(SocketWorld::Turn::ready); break;
        case 10: world.link(SocketWorld::Turn::wait); break;
        case 11: world.link(SocketWorld::Turn::fail); break;
        case 12: world.link(SocketWorld::Turn::end); break;
        case 13: world.close(static_cast<std::uint16_t>(1000 + input.byte())); break;
        case 14: world.close(std::nullopt); break;
        case 15: world.advance(input.byte() * 0.25); break;
        case 16: world.path(input.flag()); break;
        case 17: world.sends(static_cast<FakeLink::Sends>(input.below(3))); break;
        case 18: world.completeSends(); break;
        // The user acts from inside the next action of an observer.
        case 19:
            world.duringNext([&world, next = input.bytes()] {
                FuzzInput inner(next.data(), next.size());
                act(world, inner);
            });
            break;
        default: act(world, input); break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    SocketWorld world;
    for (int events = 0; !input.isEmpty() && events < maxEvents; ++events) happen(world, input);
    world.end();
    return 0;
}
