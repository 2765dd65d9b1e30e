#include "PlatformInstaller/OwnScope.h"

#include "StateKit/Log.h"
#include "Text/Text.h"

#include <QDBusArgument>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QList>

// The arguments of the service manager: properties "a(sv)", and further units "a(sa(sv))", of which we send none.
// Source: org.freedesktop.systemd1(5), StartTransientUnit.
struct UnitProperty {
    QString name;
    QDBusVariant value;
};
struct FurtherUnit {
    QString name;
    QList<UnitProperty> properties;
};
Q_DECLARE_METATYPE(UnitProperty)
Q_DECLARE_METATYPE(FurtherUnit)

QDBusArgument& operator<<(QDBusArgument& to, const UnitProperty& property) {
    to.beginStructure();
    to << property.name << property.value;
    to.endStructure();
    return to;
}
const QDBusArgument& operator>>(const QDBusArgument& from, UnitProperty& property) {
    from.beginStructure();
    from >> property.name >> property.value;
    from.endStructure();
    return from;
}
QDBusArgument& operator<<(QDBusArgument& to, const FurtherUnit& unit) {
    to.beginStructure();
    to << unit.name << unit.properties;
    to.endStructure();
    return to;
}
const QDBusArgument& operator>>(const QDBusArgument& from, FurtherUnit& unit) {
    from.beginStructure();
    from >> unit.name >> unit.properties;
    from.endStructure();
    return from;
}

namespace {

const QString manager = QStringLiteral("org.freedesktop.systemd1");
const QString managerPath = QStringLiteral("/org/freedesktop/systemd1");
const QString managerInterface = QStringLiteral("org.freedesktop.systemd1.Manager");

const Log scopeLog("UpdateKitInstaller", "scope");

QDBusMessage callFor(const QString& scope, pid_t process, const QString& applicationId) {
    const QList<UnitProperty> properties = {
        {QStringLiteral("Description"), QDBusVariant(applicationId)},
        {QStringLiteral("Slice"), QDBusVariant(QStringLiteral("app.slice"))},
        {QStringLiteral("CollectMode"), QDBusVariant(QStringLiteral("inactive-or-failed"))},
        {QStringLiteral("PIDs"), QDBusVariant(QVariant::fromValue(QList<uint>{static_cast<uint>(process)}))}};
    QDBusMessage call =
        QDBusMessage::createMethodCall(manager, managerPath, managerInterface, QStringLiteral("StartTransientUnit"));
    call.setArguments(
        {scope, QStringLiteral("fail"), QVariant::fromValue(properties), QVariant::fromValue(QList<FurtherUnit>())});
    // Do not start a service manager: if the user has one, it runs already.
    call.setAutoStartService(false);
    return call;
}

bool isAbsence(const QDBusError& error) {
    return error.type() == QDBusError::ServiceUnknown || error.type() == QDBusError::Disconnected ||
           error.name().endsWith(QLatin1String(".NameHasNoOwner"));
}

}  // namespace

OwnScope::OwnScope(const QDBusConnection& bus) : bus(bus) {
    qDBusRegisterMetaType<UnitProperty>();
    qDBusRegisterMetaType<QList<UnitProperty>>();
    qDBusRegisterMetaType<FurtherUnit>();
    qDBusRegisterMetaType<QList<FurtherUnit>>();
    qDBusRegisterMetaType<QList<uint>>();
    this->bus.connect(manager, managerPath, managerInterface, QStringLiteral("JobRemoved"), this,
                      SLOT(jobRemoved(QDBusMessage)));
}

void OwnScope::give(pid_t process, const QString& applicationId) {
    const QString scope = QStringLiteral("app-%1-%2.scope").arg(applicationId).arg(process);
    const QDBusMessage answer = bus.call(callFor(scope, process, applicationId), QDBus::Block,
                                         static_cast<int>(std::chrono::milliseconds(patience).count()));
    if (answer.type() != QDBusMessage::ReplyMessage || answer.signature() != QLatin1String("o")) {
        const QDBusError error(answer);
        if (!isAbsence(error))
            scopeLog.error("no scope for the application: " + Text::escaped(error.message().toStdString()));
        return;
    }
    const QString job = answer.arguments().at(0).value<QDBusObjectPath>().path();
    // Wait for the job: until it is done, the end of this process may end the application too.
    std::unique_lock lock(mutex);
    if (!changed.wait_for(lock, patience, [&] { return ended.contains(job); }))
        scopeLog.error("the scope of the application is not there yet");
}

void OwnScope::jobRemoved(const QDBusMessage& message) {
    if (message.signature() != QLatin1String("uoss")) return;
    const std::lock_guard lock(mutex);
    ended.insert(message.arguments().at(1).value<QDBusObjectPath>().path());
    changed.notify_all();
}
