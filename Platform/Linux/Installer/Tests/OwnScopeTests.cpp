// The real installer on a bus with a service manager. The test plays that one, since a real one serves a whole login.

#include "InstallerFixture.h"
#include "QtTestSupport/QtWait.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDBusVirtualObject>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr char managerName[] = "org.freedesktop.systemd1";
constexpr char managerPath[] = "/org/freedesktop/systemd1";
constexpr char managerInterface[] = "org.freedesktop.systemd1.Manager";

/// Takes a request for a unit as the real manager does, and ends the unit's job when told to.
class ServiceManager : public QDBusVirtualObject {
public:
    explicit ServiceManager(QDBusConnection bus) : bus(bus) {
        EXPECT_TRUE(this->bus.registerVirtualObject(QLatin1String(managerPath), this));
        EXPECT_TRUE(this->bus.registerService(QLatin1String(managerName)));
    }
    ~ServiceManager() override {
        bus.unregisterService(QLatin1String(managerName));
        bus.unregisterObject(QLatin1String(managerPath));
    }

    QString introspect(const QString&) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.member() != QLatin1String("StartTransientUnit")) return false;
        signature = message.signature().toStdString();
        if (refuses) {
            connection.send(message.createErrorReply(QDBusError::AccessDenied, QStringLiteral("no units for you")));
            return true;
        }
        unit = message.arguments().at(0).toString().toStdString();
        mode = message.arguments().at(1).toString().toStdString();
        const auto properties = message.arguments().at(2).value<QDBusArgument>();
        properties.beginArray();
        while (!properties.atEnd()) {
            QString name;
            QDBusVariant value;
            properties.beginStructure();
            properties >> name >> value;
            properties.endStructure();
            if (name == QLatin1String("PIDs")) processes = qdbus_cast<QList<uint>>(value.variant());
        }
        properties.endArray();
        connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(job))));
        return true;
    }

    /// Reports that the unit is there, with the process in it.
    void finish() {
        QDBusMessage signal = QDBusMessage::createSignal(QLatin1String(managerPath), QLatin1String(managerInterface),
                                                         QStringLiteral("JobRemoved"));
        signal.setArguments(
            {uint(7), QVariant::fromValue(QDBusObjectPath(job)), QString::fromStdString(unit), QStringLiteral("done")});
        bus.send(signal);
    }

    bool refuses = false;
    std::string signature, unit, mode;
    QList<uint> processes;

private:
    const QString job = QStringLiteral("/org/freedesktop/systemd1/job/7");
    QDBusConnection bus;
};

class OwnScopeTest : public InstallerFixture {
protected:
    std::string newProcess() const {
        for (const std::string& name : namesIn(reports))
            if (name != std::to_string(application)) return name;
        return "none";
    }
};

TEST_F(OwnScopeTest, TheNewApplicationStandsInAScopeOfItsOwnBeforeTheServiceEnds) {
    startAll();
    ServiceManager manager(bus->connection());
    const auto result = ask(request());
    ASSERT_TRUE(turnUntil([&] { return !manager.unit.empty(); })) << bus->log();
    (void)reportOfNewOne();
    EXPECT_EQ(manager.signature, "ssa(sv)a(sa(sv))");
    EXPECT_EQ(manager.unit, "app-zorvane.Vimble-" + newProcess() + ".scope");
    EXPECT_EQ(manager.mode, "fail");
    ASSERT_THAT(manager.processes, SizeIs(1));
    EXPECT_EQ(std::to_string(manager.processes.front()), newProcess());
    EXPECT_FALSE(result->isOver);
    EXPECT_TRUE(bus->processOf(serviceName)) << "it ends, and the application with it";
    manager.finish();
    EXPECT_TRUE(turnUntil([&] { return result->isOver; })) << bus->log();
    EXPECT_EQ(result->error, std::nullopt);
    EXPECT_THAT(bus->logLines("scope"), IsEmpty());
    EXPECT_THAT(namesIn(apps), ElementsAre("Vimble.app"));
}

TEST_F(OwnScopeTest, AManagerThatRefusesIsGoneWithout) {
    startAll();
    ServiceManager manager(bus->connection());
    manager.refuses = true;
    EXPECT_EQ(install(request()), std::nullopt) << bus->log();
    (void)reportOfNewOne();
    EXPECT_THAT(bus->logLines("UpdateKitInstaller/scope: no scope for the application: no units for you"), SizeIs(1))
        << bus->log();
}

TEST_F(OwnScopeTest, AManagerThatNeverFinishesIsNotWaitedForLong) {
    startAll();
    const ServiceManager manager(bus->connection());
    EXPECT_EQ(install(request()), std::nullopt) << bus->log();
    (void)reportOfNewOne();
    EXPECT_THAT(bus->logLines("UpdateKitInstaller/scope: the scope of the application is not there yet"), SizeIs(1))
        << bus->log();
}

TEST_F(OwnScopeTest, WithoutAManagerNothingIsSaidOfIt) {
    startAll();
    EXPECT_EQ(install(request()), std::nullopt) << bus->log();
    (void)reportOfNewOne();
    EXPECT_THAT(bus->logLines("scope"), IsEmpty());
}

}  // namespace
