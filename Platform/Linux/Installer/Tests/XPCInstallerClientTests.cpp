#include "PlatformCore/XPCInstallerClient.h"

#include "QtTestSupport/PrivateBus.h"
#include "QtTestSupport/QtWait.h"
#include "TestSupport/FakeHost.h"
#include "TestSupport/TemporaryFolder.h"
#include "UpdateKit/InstallerXPC.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace {

using ::testing::HasSubstr;
using Error = InstallerClientError;

constexpr const char* serviceName = "zorvane.Test.UpdateKitInstallerXPC";

/// A service that answers as it is told to.
class ScriptedService : public QDBusVirtualObject {
public:
    using Answer = std::function<QDBusMessage(const QDBusMessage& call)>;
    explicit ScriptedService(Answer answer) : answer(std::move(answer)) {}

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        call = message;
        if (answer)
            connection.send(answer(message));
        else
            message.setDelayedReply(true);
        return true;
    }

    Answer answer;
    std::optional<QDBusMessage> call;
};

class XPCInstallerClientTest : public ::testing::Test {
public:
    ~XPCInstallerClientTest() override {
        pending.reset();
        QDBusConnection::disconnectFromBus(QStringLiteral("service"));
    }

protected:
    XPCInstallerClientTest() { host.bundle["CFBundleIdentifier"] = "zorvane.Test"; }

    void serve(ScriptedService& service) {
        QDBusConnection connection =
            QDBusConnection::connectToBus(QString::fromStdString(bus.address()), QStringLiteral("service"));
        ASSERT_TRUE(connection.registerVirtualObject(QLatin1String(InstallerXPC::objectPath), &service));
        ASSERT_TRUE(connection.registerService(QLatin1String(serviceName)));
    }

    void send(XPCInstallerClient& client) {
        pending = client.install({"/tmp/a b/New.app", "/opt/Vimble.app", 412}, [this](Outcome<Done> outcome) {
            ++told;
            try {
                (void)outcome.take();
            } catch (const Error& failure) {
                error = failure;
            }
            // Drop the handle within the completion, as a caller may.
            pending.reset();
        });
        EXPECT_EQ(told, 0);
    }
    /// @return the error; nothing if the update was installed
    std::optional<Error> install(XPCInstallerClient& client) {
        send(client);
        EXPECT_TRUE(turnUntil([&] { return told > 0; }));
        EXPECT_EQ(told, 1);
        return error;
    }
    std::optional<Error> answered(const ScriptedService::Answer& answer) {
        ScriptedService service(answer);
        serve(service);
        XPCInstallerClient client(host, std::nullopt, bus.address());
        return install(client);
    }

    TemporaryFolder folder;
    PrivateBus bus{folder.path};
    FakeHost host;
    std::shared_ptr<void> pending;
    int told = 0;
    std::optional<Error> error;
};

TEST_F(XPCInstallerClientTest, TheRequestTravelsAndSuccessComesBack) {
    ScriptedService service([](const QDBusMessage& call) { return call.createReply({QStringList(), false}); });
    serve(service);
    XPCInstallerClient client(host, std::nullopt, bus.address());
    EXPECT_EQ(install(client), std::nullopt);
    ASSERT_TRUE(service.call);
    EXPECT_EQ(service.call->member(), QStringLiteral("InstallUpdate"));
    EXPECT_EQ(service.call->interface(), QLatin1String(InstallerXPC::interface));
    EXPECT_EQ(service.call->arguments(), QVariantList({QStringLiteral("file:///tmp/a%20b/New.app"),
                                                       QStringLiteral("file:///opt/Vimble.app"), 412}));
}

TEST_F(XPCInstallerClientTest, AFailureComesWithItsTextAndWhetherItIsForTheUser) {
    EXPECT_EQ(answered([](const QDBusMessage& call) {
                  return call.createReply({QStringList(QStringLiteral("No room é")), true});
              }),
              Error::installationFailed("No room \xc3\xa9", true));
}

TEST_F(XPCInstallerClientTest, AFailureWithoutWordsIsAFailure) {
    EXPECT_EQ(answered([](const QDBusMessage& call) {
                  return call.createReply({QStringList(QString()), false});
              }),
              Error::installationFailed("", false));
}

TEST_F(XPCInstallerClientTest, WhoAnswersSomethingElseIsNoInstaller) {
    EXPECT_EQ(answered([](const QDBusMessage& call) {
                  return call.createReply({QStringLiteral("done"), false});
              }),
              Error::connectionFailed("Unable to connect to installer service"));
}

TEST_F(XPCInstallerClientTest, WhoDoesNotKnowTheCallIsNoInstaller) {
    QDBusConnection other = bus.connection();
    ASSERT_TRUE(other.registerService(QLatin1String(serviceName)));
    XPCInstallerClient client(host, std::nullopt, bus.address());
    EXPECT_EQ(install(client), Error::connectionFailed("Unable to connect to installer service"));
}

TEST_F(XPCInstallerClientTest, AnErrorOfTheBusIsAFailedConnection) {
    EXPECT_EQ(answered([](const QDBusMessage& call) {
                  return call.createErrorReply(QStringLiteral("org.example.No"), QStringLiteral("not today"));
              }),
              Error::connectionFailed("not today"));
}

TEST_F(XPCInstallerClientTest, ABusOnWhichNobodyProvidesTheServiceIsAFailedConnection) {
    XPCInstallerClient client(host, std::nullopt, bus.address());
    const auto failure = install(client);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code(), Error::Code::connectionFailed);
    EXPECT_THAT(failure->what(), HasSubstr(std::string("Installation failed: The name ") + serviceName));
}

TEST_F(XPCInstallerClientTest, NoBusIsAFailedConnection) {
    XPCInstallerClient client(host, std::nullopt, "unix:path=" + (folder.path / "none").native());
    const auto failure = install(client);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code(), Error::Code::connectionFailed);
    EXPECT_FALSE(failure->payload().empty());
}

TEST_F(XPCInstallerClientTest, ABusThatDiesIsAFailedConnection) {
    ScriptedService service({});
    serve(service);
    XPCInstallerClient client(host, std::nullopt, bus.address());
    send(client);
    ASSERT_TRUE(turnUntil([&] { return service.call.has_value(); }));
    bus.kill();
    EXPECT_TRUE(turnUntil([&] { return told > 0; }));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), Error::Code::connectionFailed);
}

TEST_F(XPCInstallerClientTest, AServiceThatLeavesIsAFailedConnection) {
    ScriptedService service({});
    serve(service);
    XPCInstallerClient client(host, std::nullopt, bus.address());
    send(client);
    ASSERT_TRUE(turnUntil([&] { return service.call.has_value(); }));
    QDBusConnection::disconnectFromBus(QStringLiteral("service"));
    EXPECT_TRUE(turnUntil([&] { return told > 0; }));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), Error::Code::connectionFailed);
}

TEST_F(XPCInstallerClientTest, AServiceThatNeverAnswersIsAFailedConnectionAfterAWhile) {
    ScriptedService service({});
    serve(service);
    XPCInstallerClient client(host, std::nullopt, bus.address(), std::chrono::milliseconds(500));
    EXPECT_EQ(install(client), Error::connectionFailed("The installer service did not answer in time"));
    EXPECT_TRUE(service.call);
    QDBusConnection::disconnectFromBus(QStringLiteral("service"));
    EXPECT_FALSE(turnUntil([&] { return told > 1; }, 200));
}

TEST_F(XPCInstallerClientTest, WithoutAnIdentifierThereIsNoService) {
    const Error expected = Error::connectionFailed("Unable to determine installer XPC service name");
    XPCInstallerClient client(host, std::nullopt, bus.address());
    host.bundle["CFBundleIdentifier"] = "";
    EXPECT_EQ(install(client), expected);
    host.bundle.erase("CFBundleIdentifier");
    told = 0;
    EXPECT_EQ(install(client), expected);
}

TEST_F(XPCInstallerClientTest, AnOverrideTakesTheNamesPlace) {
    ScriptedService service([](const QDBusMessage& call) { return call.createReply({QStringList(), false}); });
    serve(service);
    host.bundle["CFBundleIdentifier"] = "elsewhere";
    XPCInstallerClient client(host, serviceName, bus.address());
    EXPECT_EQ(install(client), std::nullopt);
}

TEST_F(XPCInstallerClientTest, ANameThatIsNoneIsAFailedConnection) {
    XPCInstallerClient client(host, "no name at all", bus.address());
    const auto failure = install(client);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code(), Error::Code::connectionFailed);
}

TEST_F(XPCInstallerClientTest, ARequestThatIsDroppedTellsNobody) {
    ScriptedService service({});
    serve(service);
    XPCInstallerClient client(host, std::nullopt, bus.address());
    send(client);
    ASSERT_TRUE(turnUntil([&] { return service.call.has_value(); }));
    pending.reset();
    QDBusConnection::disconnectFromBus(QStringLiteral("service"));
    EXPECT_FALSE(turnUntil([&] { return told > 0; }, 200));
}

}  // namespace
