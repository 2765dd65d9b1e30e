#include "AccessibleTree.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusObjectPath>

#include <utility>

namespace {

constexpr char accessible[] = "org.a11y.atspi.Accessible";
constexpr char root[] = "/org/a11y/atspi/accessible/root";

// Numbers of the interface: AtspiStateType, AtspiCoordType.
constexpr std::uint64_t checkedState = 1ULL << 4;
constexpr std::uint64_t enabledState = 1ULL << 8;
constexpr std::uint64_t focusedState = 1ULL << 12;
constexpr std::uint64_t showingState = 1ULL << 25;
constexpr uint ofScreen = 0;

constexpr int patienceMs = 10000;  // a window that draws ten thousand rows may be slow to answer

QString toQt(const std::string& text) { return QString::fromStdString(text); }

/// Makes a Qt application, without which Qt's bus connections do not work. Nothing else uses it.
void needApplication() {
    static int count = 1;
    static char name[] = "EndToEndTests";
    static char* arguments[] = {name, nullptr};
    if (QCoreApplication::instance() == nullptr) static QCoreApplication application(count, arguments);
}

}  // namespace

AccessibleTree::AccessibleTree(std::string sessionBus) : sessionBus(std::move(sessionBus)) { needApplication(); }

AccessibleTree::~AccessibleTree() {
    if (!connection.empty()) QDBusConnection::disconnectFromBus(toQt(connection));
}

bool AccessibleTree::connect() {
    if (!connection.empty()) return true;
    const QString session = QStringLiteral("session of ") + toQt(sessionBus);
    const QDBusMessage question =
        QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                       QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress"));
    const QDBusMessage answer = QDBusConnection::connectToBus(toQt(sessionBus), session).call(question);
    QDBusConnection::disconnectFromBus(session);
    if (answer.type() != QDBusMessage::ReplyMessage) return false;
    const QString address = answer.arguments().value(0).toString();
    if (!QDBusConnection::connectToBus(address, address).isConnected()) return false;
    connection = address.toStdString();
    return true;
}

QDBusMessage AccessibleTree::call(const Item& item, const char* interface, const char* method,
                                  const QList<QVariant>& arguments) {
    if (!connect()) return {};
    QDBusMessage question = QDBusMessage::createMethodCall(toQt(item.program), toQt(item.path),
                                                           QLatin1String(interface), QLatin1String(method));
    question.setArguments(arguments);
    return QDBusConnection(toQt(connection)).call(question, QDBus::Block, patienceMs);
}

std::string AccessibleTree::property(const Item& item, const char* interface, const char* name) {
    const QDBusMessage answer = call(item, "org.freedesktop.DBus.Properties", "Get",
                                     {QString::fromLatin1(interface), QString::fromLatin1(name)});
    const QVariant value = answer.arguments().value(0);
    return value.value<QDBusVariant>().variant().toString().toStdString();
}

std::vector<AccessibleTree::Item> AccessibleTree::children(const Item& item) {
    std::vector<Item> found;
    const QVariant value = call(item, accessible, "GetChildren").arguments().value(0);
    if (value.metaType() != QMetaType::fromType<QDBusArgument>()) return found;
    const QDBusArgument list = value.value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
        QString program;
        QDBusObjectPath path;
        list.beginStructure();
        list >> program >> path;
        list.endStructure();
        found.push_back({.name = {}, .role = {}, .program = program.toStdString(), .path = path.path().toStdString()});
    }
    list.endArray();
    return found;
}

std::uint64_t AccessibleTree::states(const Item& item) {
    const QVariant value = call(item, accessible, "GetState").arguments().value(0);
    if (value.metaType() != QMetaType::fromType<QDBusArgument>()) return 0;
    const auto words = qdbus_cast<QList<uint>>(value);
    return words.value(0) | static_cast<std::uint64_t>(words.value(1)) << 32;
}

void AccessibleTree::describe(Item& item) {
    item.name = property(item, accessible, "Name");
    item.role = call(item, accessible, "GetRoleName").arguments().value(0).toString().toStdString();
}

std::vector<AccessibleTree::Item> AccessibleTree::windows() {
    std::vector<Item> found;
    const Item registry{.name = {}, .role = {}, .program = "org.a11y.atspi.Registry", .path = root};
    for (const Item& program : children(registry)) {
        for (Item& window : children(program)) {
            if ((states(window) & showingState) == 0) continue;
            describe(window);
            found.push_back(std::move(window));
        }
    }
    return found;
}

std::vector<AccessibleTree::Item> AccessibleTree::items(const std::string& window) {
    std::vector<Item> found;
    for (const Item& each : windows())
        if (window.empty() || each.name == window) addShown(each, found);
    return found;
}

void AccessibleTree::addShown(const Item& parent, std::vector<Item>& found) {
    for (Item& item : children(parent)) {
        if ((states(item) & showingState) == 0) continue;
        describe(item);
        if (item.role == "menu bar") continue;
        found.push_back(item);
        addShown(item, found);
    }
}

std::optional<AccessibleTree::Place> AccessibleTree::place(const Item& item) {
    const QVariant value =
        call(item, "org.a11y.atspi.Component", "GetExtents", {QVariant::fromValue(ofScreen)}).arguments().value(0);
    if (value.metaType() != QMetaType::fromType<QDBusArgument>()) return std::nullopt;
    const QDBusArgument argument = value.value<QDBusArgument>();
    Place place;
    argument.beginStructure();
    argument >> place.x >> place.y >> place.width >> place.height;
    argument.endStructure();
    return place;
}

std::string AccessibleTree::text(const Item& item) {
    const QDBusMessage answer = call(item, "org.a11y.atspi.Text", "GetText", {0, -1});
    if (answer.type() != QDBusMessage::ReplyMessage) return {};
    return answer.arguments().value(0).toString().toStdString();
}

bool AccessibleTree::isFocused(const Item& item) { return (states(item) & focusedState) != 0; }

bool AccessibleTree::isChecked(const Item& item) { return (states(item) & checkedState) != 0; }

bool AccessibleTree::isEnabled(const Item& item) { return (states(item) & enabledState) != 0; }
