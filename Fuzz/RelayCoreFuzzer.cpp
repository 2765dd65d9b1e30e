// Drives the relay's logic with any sequence of events. An event takes two bytes, and more if it needs them. The
// highest bit of its first byte ends the turn after it.

#include "FuzzSupport/FuzzInput.h"
#include "RelayWorld.h"

namespace {

// More links or events would reach nothing new, and take longer.
constexpr std::size_t maxLinks = 60;
constexpr int maxEvents = 300;

std::string commandText(RelayWorld& world, FuzzInput& input) {
    static constexpr const char* verbs[] = {"add ", "remove ", "admin ", "unadmin ", "who", "help", "list", ""};
    const std::uint8_t choice = input.byte();
    const std::string verb = verbs[choice & 7];
    if ((choice & 7) < 4) return verb + world.keyText((choice >> 3) % RelayKeys::people);
    return verb.empty() ? input.text() : verb;
}

void happen(RelayWorld& world, FuzzInput& input) {
    const std::uint8_t event = input.byte();
    const std::uint8_t choice = input.byte();
    const std::size_t link = world.linkCount() ? choice % world.linkCount() : 0;
    const auto person = [&] { return input.below(RelayKeys::people); };
    switch ((event & 0x7F) % 18) {
        case 0:
            if (world.linkCount() < maxLinks) world.open(choice % 3);
            break;
        case 1: world.authenticate(link, person()); break;
        case 2: {
            // Open and authenticate a link in one event: most bugs can only be reached after both.
            const std::size_t number = world.linkCount();
            if (number == maxLinks) break;
            world.open(choice % 3);
            world.authenticate(number, person());
            break;
        }
        case 3: world.sendPack(link, person(), input.byte()); break;
        case 4: world.sendPack(link, person(), 30'000 + 350 * std::size_t(input.byte())); break;
        case 5: {
            const std::size_t author = person();
            world.sendAs(link, author, person());
            break;
        }
        case 6: world.command(link, commandText(world, input)); break;
        case 7: world.raw(link, input.bytes()); break;
        case 8:
        case 9: world.pong(link); break;
        case 10: world.wrongPong(link, input.byte()); break;
        case 11: world.drop(link); break;
        case 12: world.changeMember(choice % RelayKeys::people, input.byte() % 3); break;
        case 13: world.failStoreAt(1 + choice % 8); break;
        case 14: world.repairStore(); break;
        case 15: world.advance(choice * 0.004); break;
        case 16:
            // While its store fails, the relay tries it every second: simulating a month of that would take too long.
            if (choice == 255) world.repairStore();
            world.advance(choice == 255 ? 31 * 86400.0 : choice * 0.5);
            break;
        case 17: world.restart(); break;
    }
    if (event & 0x80) world.endTurn();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    RelayWorld world;
    for (int events = 0; !input.isEmpty() && events < maxEvents; ++events) happen(world, input);
    world.end();
    return 0;
}
