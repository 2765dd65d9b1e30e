#include "TerminalKit/Addressee.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::HasSubstr;
using testing::Not;
using Code = AddresseeError::Code;

namespace {

const std::string a1 = "aaaaaa1" + std::string(57, '1');
const std::string a2 = "aaaaaa2" + std::string(57, '2');
const std::string b = "bbbbbb" + std::string(58, '3');
const std::string stranger(64, 'f');

State people(std::initializer_list<std::pair<std::string, std::string>> namesOfKeys) {
    State state;
    for (const auto& [key, name] : namesOfKeys) state.people.set(key, Person{key, name, "", false, true});
    return state;
}

AddresseeError failure(std::string_view line, const State& state) {
    try {
        const Addressee found = Addressee::parse(line, state);
        ADD_FAILURE() << line << " goes to " << found.key;
    } catch (const AddresseeError& error) {
        return error;
    }
    return {Code::noWho, ""};
}

}  // namespace

TEST(AddresseeTest, AWholeKeyNeedsNobodyListed) {
    EXPECT_EQ(Addressee::parse(stranger + " hi", State()), (Addressee{stranger, "hi"}));
    const std::string capitals(64, 'F');
    EXPECT_EQ(Addressee::parse(capitals + " hi", State()), (Addressee{stranger, "hi"}));
}

TEST(AddresseeTest, TheBeginningOfAKeyIsSixCharactersOrMore) {
    const State state = people({{a1, ""}, {b, ""}});
    EXPECT_EQ(Addressee::parse("bbbbbb hi", state), (Addressee{b, "hi"}));
    EXPECT_EQ(Addressee::parse("AAAAAA1 hi", state), (Addressee{a1, "hi"}));
    EXPECT_EQ(failure("bbbbb hi", state).code, Code::unknown);
    EXPECT_EQ(failure("cccccc hi", state).code, Code::unknown);
    EXPECT_EQ(failure(b + "3 hi", state).code, Code::unknown);
}

TEST(AddresseeTest, ABeginningThatFitsSeveralIsRefusedWithTheirKeys) {
    const State state = people({{a1, "Ann"}, {a2, ""}, {b, "Bob"}});
    const AddresseeError error = failure("aaaaaa hi", state);
    EXPECT_EQ(error.code, Code::ambiguous);
    EXPECT_THAT(error.what(), HasSubstr(a1));
    EXPECT_THAT(error.what(), HasSubstr(a2));
    EXPECT_THAT(error.what(), Not(HasSubstr(b)));
}

TEST(AddresseeTest, ANameIsTakenAsItStandsBlanksAndAll) {
    const State state = people({{a1, "Ann"}, {b, "Bob van Dyk"}});
    EXPECT_EQ(Addressee::parse("Ann hi", state), (Addressee{a1, "hi"}));
    EXPECT_EQ(Addressee::parse("Bob van Dyk   hi there ", state), (Addressee{b, "hi there "}));
    EXPECT_EQ(failure("ann hi", state).code, Code::unknown);
    EXPECT_EQ(failure("Annhi there", state).code, Code::unknown);
    EXPECT_EQ(failure("Bob hi", state).code, Code::unknown);
}

TEST(AddresseeTest, SomebodyWithoutANameIsCalledAsTheyAreShown) {
    EXPECT_EQ(Addressee::parse("anonymousbbbbbb hi", people({{b, ""}})), (Addressee{b, "hi"}));
}

TEST(AddresseeTest, AKeyBeatsAName) {
    const State state = people({{a1, ""}, {b, "aaaaaa1"}});
    EXPECT_EQ(Addressee::parse("aaaaaa1 hi", state), (Addressee{a1, "hi"}));
    EXPECT_EQ(Addressee::parse("\"aaaaaa1\" hi", state), (Addressee{b, "hi"}));
    // A word of hexadecimal letters that begins no key is a name like any other.
    EXPECT_EQ(Addressee::parse("decade hi", people({{b, "decade"}})), (Addressee{b, "hi"}));
}

TEST(AddresseeTest, TwoOfOneNameAreRefusedWithTheirKeys) {
    const AddresseeError error = failure("Ann hi", people({{a1, "Ann"}, {a2, "Ann"}, {b, "Bob"}}));
    EXPECT_EQ(error.code, Code::ambiguous);
    EXPECT_THAT(error.what(), HasSubstr(a1));
    EXPECT_THAT(error.what(), HasSubstr(a2));
    EXPECT_THAT(error.what(), Not(HasSubstr("quotes")));
}

TEST(AddresseeTest, NobodyGetsAMessageByTakingALongerName) {
    const State state = people({{a1, "Ann"}, {b, "Ann I"}});
    const AddresseeError error = failure("Ann I love you", state);
    EXPECT_EQ(error.code, Code::ambiguous);
    EXPECT_THAT(error.what(), HasSubstr(a1));
    EXPECT_THAT(error.what(), HasSubstr(b));
    EXPECT_EQ(Addressee::parse("\"Ann\" I love you", state), (Addressee{a1, "I love you"}));
    EXPECT_EQ(Addressee::parse("\"Ann I\" hi", state), (Addressee{b, "hi"}));
    EXPECT_EQ(Addressee::parse("Ann hello", state), (Addressee{a1, "hello"}));
}

TEST(AddresseeTest, WhatLacksAPartIsRefused) {
    const State state = people({{a1, "Ann"}});
    EXPECT_EQ(failure("", state).code, Code::noWho);
    EXPECT_EQ(failure(" hi", state).code, Code::noWho);
    EXPECT_EQ(failure("\"Ann hi", state).code, Code::noWho);
    EXPECT_EQ(failure("\"\" hi", state).code, Code::unknown);
    EXPECT_EQ(failure("Ann", state).code, Code::noText);
    EXPECT_EQ(failure("Ann  ", state).code, Code::noText);
    EXPECT_EQ(failure("\"Ann\"", state).code, Code::noText);
    EXPECT_EQ(failure(a1, state).code, Code::noText);
    EXPECT_EQ(failure("aaaaaa1", state).code, Code::noText);
}

TEST(AddresseeTest, NamesInAnErrorAreEscapedAndNotManyAreShown) {
    State state;
    for (int i = 0; i < 50; ++i) {
        const std::string key = "cccccc" + std::to_string(100 + i) + std::string(55, '0');
        state.people.set(key, Person{key, "\x1b[2J", "", false, true});
    }
    const AddresseeError error = failure("cccccc hi", state);
    EXPECT_THAT(error.what(), Not(HasSubstr("\x1b")));
    EXPECT_THAT(error.what(), HasSubstr("and 42 more"));
    EXPECT_LT(std::string(error.what()).size(), 1500u);
}
