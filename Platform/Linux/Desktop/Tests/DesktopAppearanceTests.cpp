#include "PlatformDesktop/DesktopAppearance.h"

#include "QtTestSupport/QtWait.h"

#include <QApplication>
#include <QDBusMessage>
#include <QDBusPendingReply>
#include <QDBusVirtualObject>
#include <QStyle>
#include <QStyleFactory>

#include <atomic>
#include <cmath>
#include <memory>

#include <gtest/gtest.h>

namespace {

const QString portalName = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString settings = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearance = QStringLiteral("org.freedesktop.appearance");
const QString colorScheme = QStringLiteral("color-scheme");

bool isDark(const QPalette& palette) { return palette.color(QPalette::Window).lightnessF() < 0.5F; }

/// The luminance that WCAG 2.1 defines, for the contrast below.
double luminance(const QColor& color) {
    const auto linear = [](double c) { return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

double contrast(const QColor& a, const QColor& b) {
    const double one = luminance(a) + 0.05;
    const double other = luminance(b) + 0.05;
    return std::max(one, other) / std::min(one, other);
}

/// A desktop portal that knows one setting, on a connection of its own.
class FakePortal : public QDBusVirtualObject {
public:
    explicit FakePortal(QVariant scheme) : scheme(std::move(scheme)) {
        bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("portal"));
        EXPECT_TRUE(bus.registerVirtualObject(portalPath, this));
        EXPECT_TRUE(bus.registerService(portalName));
    }
    ~FakePortal() override {
        bus.unregisterService(portalName);
        bus.unregisterObject(portalPath);
        bus = QDBusConnection(QString());
        QDBusConnection::disconnectFromBus(QStringLiteral("portal"));
    }

    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection&) override {
        if (message.interface() != settings || message.member() != QLatin1String("Read")) return false;
        EXPECT_EQ(message.arguments(), (QVariantList{appearance, colorScheme}));
        message.setDelayedReply(true);
        asked = message;
        reads++;
        if (scheme.isValid()) answer();
        return true;
    }

    /// Answers Read with the value in two QDBusVariants, as all portals do.
    void answer() {
        const QDBusVariant inner(scheme);
        bus.send(asked.createReply(QVariant::fromValue(QDBusVariant(QVariant::fromValue(inner)))));
    }

    void tell(const QVariant& value, const QString& group = appearance, const QString& key = colorScheme) {
        QDBusMessage signal = QDBusMessage::createSignal(portalPath, settings, QStringLiteral("SettingChanged"));
        signal << group << key << QVariant::fromValue(QDBusVariant(value));
        EXPECT_TRUE(bus.send(signal));
    }

    QVariant scheme;  // if invalid, the portal does not answer
    int reads = 0;

private:
    QDBusConnection bus{QString()};
    QDBusMessage asked;
};

class DesktopAppearanceOnBusTest : public ::testing::Test {
protected:
    void SetUp() override {
        QApplication::setStyle(QStringLiteral("Fusion"));
        QApplication::setPalette(QPalette());
        ASSERT_FALSE(isDark(QApplication::palette()));
        own = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("appearance"));
        ASSERT_TRUE(own.isConnected());
    }
    void TearDown() override {
        own = QDBusConnection(QString());
        QDBusConnection::disconnectFromBus(QStringLiteral("appearance"));
        QApplication::setPalette(QPalette());
        QApplication::setStyle(QStringLiteral("Fusion"));
    }

    /// Handles everything that the bus has for us up to now.
    void settle() {
        const QDBusPendingReply<QString> reply = own.asyncCall(QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId")));
        EXPECT_TRUE(turnUntil([&] { return reply.isFinished(); }));
        QCoreApplication::processEvents();
    }

    static bool becomes(bool dark) {
        return turnUntil([&] { return isDark(QApplication::palette()) == dark; });
    }

    QDBusConnection own{QString()};
};

// This must be the first test on the bus: a read in another test registers the types that the change signal needs, and
// would hide that they were not registered.
TEST_F(DesktopAppearanceOnBusTest, ItFollowsAChangeThereAndBackAgain) {
    const QPalette before = QApplication::palette();
    FakePortal portal(2U);
    const DesktopAppearance desktop(own);
    ASSERT_TRUE(turnUntil([&] { return portal.reads == 1; }));
    settle();
    EXPECT_FALSE(isDark(QApplication::palette()));

    portal.tell(1U);
    EXPECT_TRUE(becomes(true));
    portal.tell(0U);
    EXPECT_TRUE(becomes(false));
    EXPECT_EQ(QApplication::palette(), before);
    portal.tell(1U);
    EXPECT_TRUE(becomes(true));
    portal.tell(2U);
    EXPECT_TRUE(becomes(false));
    EXPECT_FALSE(desktop.isApplied());
}

TEST_F(DesktopAppearanceOnBusTest, APreferenceForDarkGivesALightApplicationADarkPalette) {
    FakePortal portal(1U);
    const DesktopAppearance desktop(own);
    EXPECT_TRUE(becomes(true));
    EXPECT_TRUE(desktop.isApplied());
}

TEST_F(DesktopAppearanceOnBusTest, APortalThatNeverAnswersChangesNothingUntilItTellsAChange) {
    FakePortal portal{QVariant()};
    const DesktopAppearance desktop(own);
    ASSERT_TRUE(turnUntil([&] { return portal.reads == 1; }));
    settle();
    EXPECT_FALSE(desktop.isApplied());
    portal.tell(1U);
    EXPECT_TRUE(becomes(true));
}

TEST_F(DesktopAppearanceOnBusTest, AnAnswerAfterAChangeIsOutOfDate) {
    FakePortal portal{QVariant()};
    const DesktopAppearance desktop(own);
    ASSERT_TRUE(turnUntil([&] { return portal.reads == 1; }));
    portal.tell(1U);
    ASSERT_TRUE(becomes(true));
    portal.scheme = 2U;
    portal.answer();
    settle();
    settle();
    EXPECT_TRUE(desktop.isApplied());
}

TEST_F(DesktopAppearanceOnBusTest, WithoutAPortalNothingChanges) {
    const DesktopAppearance desktop(own);
    settle();
    EXPECT_FALSE(desktop.isApplied());
    EXPECT_FALSE(isDark(QApplication::palette()));
}

TEST_F(DesktopAppearanceOnBusTest, APortalThatStartsLaterIsHeard) {
    const DesktopAppearance desktop(own);
    settle();
    FakePortal portal{QVariant()};
    settle();
    portal.tell(1U);
    EXPECT_TRUE(becomes(true));
}

TEST_F(DesktopAppearanceOnBusTest, AnApplicationThatIsDarkAlreadyIsLeftAlone) {
    const QPalette theirs(QColor(0x30, 0x20, 0x20));
    ASSERT_TRUE(isDark(theirs));
    QApplication::setPalette(theirs);
    FakePortal portal{QVariant()};
    const DesktopAppearance desktop(own);
    settle();
    const QPalette before = QApplication::palette();
    portal.tell(1U);
    portal.tell(7U, appearance, QStringLiteral("last"));
    settle();
    settle();
    EXPECT_FALSE(desktop.isApplied());
    portal.tell(2U);
    settle();
    settle();
    EXPECT_EQ(QApplication::palette(), before);
}

TEST_F(DesktopAppearanceOnBusTest, OtherSettingsAndOtherTypesAreNoPreferenceForDark) {
    FakePortal portal{QVariant()};
    const DesktopAppearance desktop(own);
    ASSERT_TRUE(turnUntil([&] { return portal.reads == 1; }));
    portal.tell(1U, QStringLiteral("org.gnome.desktop.interface"));
    portal.tell(1U, appearance, QStringLiteral("accent-color"));
    portal.tell(QStringLiteral("1"));
    portal.tell(1);
    portal.tell(3U);
    settle();
    settle();
    EXPECT_FALSE(desktop.isApplied());
    portal.tell(1U);
    EXPECT_TRUE(becomes(true));
}

TEST_F(DesktopAppearanceOnBusTest, AStyleWithColorsOfItsOwnGivesWayToFusionAndComesBack) {
    ASSERT_NE(QApplication::setStyle(QStringLiteral("owncolors")), nullptr);
    ASSERT_EQ(QApplication::style()->name(), QStringLiteral("owncolors"));
    FakePortal portal(1U);
    const DesktopAppearance desktop(own);
    ASSERT_TRUE(becomes(true));
    EXPECT_EQ(QApplication::style()->name().toLower(), QStringLiteral("fusion"));
    portal.tell(2U);
    ASSERT_TRUE(becomes(false));
    EXPECT_EQ(QApplication::style()->name(), QStringLiteral("owncolors"));
}

TEST_F(DesktopAppearanceOnBusTest, AStyleThatFollowsPalettesStays) {
    ASSERT_NE(QApplication::setStyle(QStringLiteral("Windows")), nullptr);
    FakePortal portal(1U);
    const DesktopAppearance desktop(own);
    ASSERT_TRUE(becomes(true));
    EXPECT_EQ(QApplication::style()->name().toLower(), QStringLiteral("windows"));
}

TEST_F(DesktopAppearanceOnBusTest, DestroyingItTakesTheColorsBack) {
    FakePortal portal(1U);
    auto desktop = std::make_unique<DesktopAppearance>(own);
    ASSERT_TRUE(becomes(true));
    desktop.reset();
    EXPECT_FALSE(isDark(QApplication::palette()));
}

TEST(DesktopAppearanceTest, WithoutABusNothingChanges) {
    const DesktopAppearance desktop(QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/bus"),
                                                                  QStringLiteral("DesktopAppearanceTest")));
    QCoreApplication::processEvents();
    EXPECT_FALSE(desktop.isApplied());
    QDBusConnection::disconnectFromBus(QStringLiteral("DesktopAppearanceTest"));
}

TEST(DesktopAppearanceTest, EveryTextOfTheDarkPaletteCanBeReadOnItsBackground) {
    const QPalette palette = DesktopAppearance::darkPalette();
    using Role = QPalette::ColorRole;
    const std::pair<Role, Role> pairs[] = {{QPalette::WindowText, QPalette::Window},
                                           {QPalette::Text, QPalette::Base},
                                           {QPalette::Text, QPalette::AlternateBase},
                                           {QPalette::ButtonText, QPalette::Button},
                                           {QPalette::HighlightedText, QPalette::Highlight},
                                           {QPalette::ToolTipText, QPalette::ToolTipBase},
                                           {QPalette::Link, QPalette::Base},
                                           {QPalette::LinkVisited, QPalette::Base},
                                           {QPalette::PlaceholderText, QPalette::Base},
                                           {QPalette::BrightText, QPalette::Window}};
    for (const auto& [text, background] : pairs)
        EXPECT_GE(contrast(palette.color(text), palette.color(background)), 4.5) << text << " on " << background;
    EXPECT_GE(contrast(palette.color(QPalette::Disabled, QPalette::Text), palette.color(QPalette::Base)), 3);
}

}  // namespace
