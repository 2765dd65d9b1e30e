#include "VimbleKit/Chat.h"
#include "VimbleKit/DomainJson.h"
#include "VimbleKit/Person.h"
#include "VimbleWire/ServerMessage.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

template <class Type>
std::string encoded(const Type& value) {
    return std::string(Json::encode(value).view());
}

template <class Type>
Type decoded(std::string_view json) {
    return Json::decode<Type>(bytesOf(json));
}

template <class Type>
std::string failure(std::string_view json) {
    try {
        (void)decoded<Type>(json);
        return "none";
    } catch (const JsonError& error) {
        return error.what();
    }
}

TEST(DomainJsonTest, APersonGoesWithoutBeingOnline) {
    const Person person{"ab", "Ada \"A\"", "🦊", true, true};
    EXPECT_EQ(encoded(person), R"({"publicKey":"ab","name":"Ada \"A\"","emoji":"🦊","isAdmin":true})");
    Person back = decoded<Person>(encoded(person));
    EXPECT_NE(back, person);
    EXPECT_FALSE(back.isOnline);
    back.isOnline = true;
    EXPECT_EQ(back, person);
}

TEST(DomainJsonTest, APersonsBeingOnlineIsNotRead) {
    const auto person =
        decoded<Person>(R"({"isOnline":true,"extra":[1],"isAdmin":false,"emoji":"","name":"","publicKey":"k"})");
    EXPECT_EQ(person, (Person{"k", "", "", false, false}));
    EXPECT_NE(failure<Person>(R"({"publicKey":"k","name":"","emoji":""})"), "none");
    EXPECT_NE(failure<Person>(R"({"publicKey":"k","name":"","emoji":"","isAdmin":1})"), "none");
    EXPECT_NE(failure<Person>(R"({"publicKey":"k","name":null,"emoji":"","isAdmin":true})"), "none");
}

TEST(DomainJsonTest, ConnectionsAreObjectsWithOneKey) {
    EXPECT_EQ(encoded(Connection::setup), R"({"setup":{}})");
    EXPECT_EQ(encoded(Connection::online), R"({"online":{}})");
    EXPECT_EQ(encoded(Connection::offline), R"({"offline":{}})");
    for (const Connection connection : {Connection::setup, Connection::online, Connection::offline})
        EXPECT_EQ(decoded<Connection>(encoded(connection)), connection);
    EXPECT_EQ(decoded<Connection>(R"({"offline":{"x":1}})"), Connection::offline);
    EXPECT_EQ(decoded<Connection>(R"({"later":5,"online":{}})"), Connection::online);
}

TEST(DomainJsonTest, AConnectionWithoutExactlyOneCaseFails) {
    const char* text = "Invalid number of keys found, expected one.";
    EXPECT_EQ(failure<Connection>(R"({"setup":{},"online":{}})"), text);
    EXPECT_EQ(failure<Connection>("{}"), text);
    EXPECT_EQ(failure<Connection>(R"({"Setup":{}})"), text);
    EXPECT_NE(failure<Connection>(R"({"online":3})"), "none");
    EXPECT_NE(failure<Connection>(R"({"online":[]})"), "none");
    EXPECT_NE(failure<Connection>(R"("online")"), "none");
}

TEST(DomainJsonTest, AChatNeedsItsReadCount) {
    const Chat chat{{{"a", "one", {800000000.123456789}}, {"b", "two\n", {-0.5}}}, 1};
    EXPECT_EQ(decoded<Chat>(encoded(chat)), chat);
    EXPECT_EQ(encoded(Chat{}), R"({"messages":[],"readCount":0})");
    EXPECT_NE(failure<Chat>(R"({"messages":[]})"), "none");
    EXPECT_NE(failure<Chat>(R"({"messages":{},"readCount":0})"), "none");
    EXPECT_EQ(decoded<Chat>(R"({"readCount":-3,"messages":[]})").readCount, -3);
}

TEST(DomainJsonTest, TimestampsAreExactDoubles) {
    for (const double seconds : {0.0, 817387200.123456, 1.0 / 3.0, 5e-324, 1.7976931348623157e308, -817387200.1}) {
        const Message message{"a", "t", {seconds}};
        EXPECT_EQ(decoded<Message>(encoded(message)).timestamp.sinceReference, seconds);
    }
    EXPECT_THROW(encoded(Message{"a", "t", {std::nan("")}}), JsonError);
    EXPECT_EQ(decoded<Message>(R"({"author":"a","text":"t","timestamp":5})").timestamp, Date{5});
    EXPECT_NE(failure<Message>(R"({"author":"a","text":"t","timestamp":"5"})"), "none");
}

TEST(DomainJsonTest, PeopleAndConversationsAreObjectsByKey) {
    SharedMap<std::string, Person> people{{"k2", {"k2", "B", "", false, false}}, {"k1", {"k1", "A", "", true, false}}};
    EXPECT_EQ(encoded(people), R"({"k1":{"publicKey":"k1","name":"A","emoji":"","isAdmin":true},)"
                               R"("k2":{"publicKey":"k2","name":"B","emoji":"","isAdmin":false}})");
    EXPECT_EQ((decoded<SharedMap<std::string, Person>>(encoded(people))), people);
    EXPECT_EQ((decoded<SharedMap<std::string, Chat>>("{}").size()), 0u);
}

TEST(DomainJsonTest, AMetaPersonGoesBothWays) {
    const MetaPerson person{"ab", false, true};
    EXPECT_EQ(encoded(person), R"({"publicKey":"ab","isAdmin":false,"isOnline":true})");
    EXPECT_EQ(decoded<MetaPerson>(encoded(person)), person);
    EXPECT_NE(failure<MetaPerson>(R"({"publicKey":"ab","isAdmin":false})"), "none");
}

TEST(DomainJsonTest, AnEndpointIsItsUrlUnderOneKey) {
    EXPECT_EQ(encoded(Endpoint("https://a.b/c")), R"({"url":"https://a.b/c"})");
    EXPECT_EQ(decoded<Endpoint>(R"({"url":"https://a.b/c"})"), Endpoint("https://a.b/c"));
    EXPECT_EQ(decoded<Endpoint>(R"({"url":"vimble://a.b"})"), Endpoint("https://a.b"));
    for (const char* json : {R"({"url":""})", R"({"url":"a b"})", R"({"url":3})", "{}", R"("https://a.b")"})
        EXPECT_NE(failure<Endpoint>(json), "none") << json;
}

TEST(DomainJsonTest, AKitErrorIsItsCodeAndPerhapsAnExplanation) {
    EXPECT_EQ(encoded(KitError(KitError::Code::notFound, "x")), R"({"code":"notFound","explanation":"x"})");
    EXPECT_EQ(encoded(KitError(KitError::Code::network)), R"({"code":"network"})");
    EXPECT_EQ(decoded<KitError>(R"({"code":"network"})"), KitError(KitError::Code::network));
    EXPECT_EQ(decoded<KitError>(R"({"explanation":"y","code":"service"})"), KitError(KitError::Code::service, "y"));
    EXPECT_NE(failure<KitError>(R"({"code":"Network"})"), "none");
    EXPECT_NE(failure<KitError>(R"({"explanation":"y"})"), "none");
}

}  // namespace
