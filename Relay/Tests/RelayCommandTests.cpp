// What admins and others ask of the relay over the chat.

#include "RelayCore/Command.h"
#include "RelayWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class RelayCommandTest : public testing::Test {
protected:
    RelayCommandTest() {
        world.admit(ada, true);
        world.admit(bob);
    }
    std::string ask(TestLink& link, const std::string& command) {
        const auto before = link.answers.size();
        world.say(link, command);
        world.turn();
        return link.answers.size() == before ? "" : link.answers.back();
    }

    Somebody ada{"ada"};
    Somebody bob{"bob"};
    Somebody eve{"eve"};
    RelayWorld world;
};

TEST_F(RelayCommandTest, HelpNamesEveryCommand) {
    const std::string answer = ask(world.join(bob), "help");
    EXPECT_THAT(answer, StartsWith("crsp "));
    for (const char* word : {"help", "add KEY", "remove KEY", "admin KEY", "unadmin KEY", "who"})
        EXPECT_THAT(answer, HasSubstr(word));
}

TEST_F(RelayCommandTest, AnUnknownCommandIsAnErrorThatPointsAtHelp) {
    TestLink& link = world.join(bob);
    for (const char* text : {"dance", "", "help me", "LIST", "who is there", "\xff\xfe"})
        EXPECT_EQ(ask(link, text), "cerr Unknown command. Try help.") << text;
    EXPECT_EQ(ask(link, std::string(100000, ' ')), "cerr Unknown command. Try help.");
}

TEST_F(RelayCommandTest, ListIsAnsweredWithTheListAgain) {
    TestLink& link = world.join(bob);
    EXPECT_EQ(ask(link, "list"), "");
    EXPECT_EQ(link.lists.size(), 2u);
}

TEST_F(RelayCommandTest, WhoShowsMembersAdminsAndWhoIsThere) {
    EXPECT_EQ(ask(world.join(bob), "who"), "crsp 2 members:\n" + ada.hex() + " admin\n" + bob.hex() + " online");
}

TEST_F(RelayCommandTest, OnlyAdminsManageMembers) {
    TestLink& link = world.join(bob);
    for (const std::string word : {"add ", "remove ", "admin ", "unadmin "})
        EXPECT_EQ(ask(link, word + bob.hex()), "cerr Only an admin may do that.");
    EXPECT_EQ(world.store.people.size(), 2u);
}

TEST_F(RelayCommandTest, AddAdmitsAndIsKept) {
    TestLink& link = world.join(ada);
    EXPECT_EQ(ask(link, "add " + eve.hex()), "crsp Added " + eve.hex() + ".");
    EXPECT_EQ(ask(link, "add " + eve.hex()), "crsp " + eve.hex() + " is a member already.");
    EXPECT_TRUE(world.store.member(eve.key()));
    EXPECT_FALSE(world.join(eve).closeCode);
    world.advance(0.1);
    EXPECT_TRUE(link.knows(eve));
}

TEST_F(RelayCommandTest, KeysAreChecked) {
    TestLink& link = world.join(ada);
    const std::string bad = "cerr That is no public key of 64 hexadecimal characters. Try help.";
    EXPECT_EQ(ask(link, "add"), "cerr That command needs a key. Try help.");
    EXPECT_EQ(ask(link, "add " + eve.hex().substr(1)), bad);
    EXPECT_EQ(ask(link, "add " + eve.hex() + "0"), bad);
    EXPECT_EQ(ask(link, "add " + std::string(64, 'x')), bad);
    EXPECT_EQ(ask(link, "add " + eve.hex() + " " + bob.hex()), bad);
    // This key is a point that gives the same shared secret with every other key.
    EXPECT_EQ(ask(link, "add " + std::string(64, '0')), bad);
    EXPECT_EQ(ask(link, "  add\t" + eve.hex() + " \n"), "crsp Added " + eve.hex() + ".");
}

TEST_F(RelayCommandTest, AdminAndUnadminChangeWhatTheListSays) {
    TestLink& link = world.join(ada);
    EXPECT_EQ(ask(link, "admin " + eve.hex()), "cerr There is no member " + eve.hex() + ".");
    EXPECT_EQ(ask(link, "unadmin " + bob.hex()), "crsp " + bob.hex() + " is no admin.");
    EXPECT_EQ(ask(link, "admin " + bob.hex()), "crsp " + bob.hex() + " is an admin now.");
    EXPECT_EQ(ask(link, "admin " + bob.hex()), "crsp " + bob.hex() + " is an admin already.");
    world.advance(0.1);
    EXPECT_THAT(link.lists.back(), ElementsAre(MetaPerson{ada.hex(), true, true}, MetaPerson{bob.hex(), true, false}));
    EXPECT_EQ(ask(link, "unadmin " + ada.hex()), "crsp " + ada.hex() + " is no admin any more.");
    EXPECT_EQ(ask(link, "unadmin " + bob.hex()), "cerr Only an admin may do that.");
    const std::vector<StoredMember> expected{{ada.key(), false}, {bob.key(), true}};
    EXPECT_EQ(world.store.people, expected);
}

TEST_F(RelayCommandTest, TheLastAdminStays) {
    TestLink& link = world.join(ada);
    const std::string refusal = "cerr That is the last admin: make somebody else an admin first.";
    EXPECT_EQ(ask(link, "remove " + ada.hex()), refusal);
    EXPECT_EQ(ask(link, "unadmin " + ada.hex()), refusal);
    EXPECT_FALSE(link.closeCode);
    ask(link, "admin " + bob.hex());
    world.say(link, "remove " + ada.hex());
    EXPECT_EQ(link.closeCode, CloseCode::policyViolation);
    EXPECT_FALSE(world.store.member(ada.key()));
}

TEST_F(RelayCommandTest, ACommandThatDoesNotOpenIsAnError) {
    TestLink& link = world.join(ada);
    Bytes frame = RelayWorld::packOf(ada, *link.serverKey, "who");
    frame.back() ^= 1;
    world.frame(link, frame);
    EXPECT_THAT(link.answers, ElementsAre("cerr That pack does not open."));
}

TEST_F(RelayCommandTest, AFailingStoreLeavesTheMembersAsTheyWere) {
    for (const std::string& command : {"add " + eve.hex(), "remove " + bob.hex(), "admin " + bob.hex()}) {
        TestLink& link = world.join(ada);
        world.store.failAfter(0);
        EXPECT_EQ(ask(link, command), "");
        EXPECT_EQ(link.closeCode, CloseCode::internalError);
        world.store.repair();
        world.advance(2);
        EXPECT_THAT(world.join(ada).lists.back(),
                    ElementsAre(MetaPerson{ada.hex(), true, true}, MetaPerson{bob.hex(), false, false}));
    }
}

TEST(CommandTest, KeysAreTakenInEitherCase) {
    const Somebody ada("ada");
    std::string upper = ada.hex();
    for (char& letter : upper) letter = static_cast<char>(std::toupper(letter));
    EXPECT_EQ(memberKey(upper), ada.key());
}

}  // namespace
