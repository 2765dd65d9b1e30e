#include "DesktopViews/UpdateToast.h"

#include "DesktopViews/ElidedLabel.h"
#include "DesktopViews/Spinner.h"
#include "TestSupport/TestLoop.h"
#include "TranscriptKit/AuthorColor.h"

#include <QApplication>
#include <QImage>
#include <QPixmap>
#include <QPushButton>
#include <QTest>
#include <QVariantAnimation>

#include <gtest/gtest.h>

#include <memory>

namespace {

class UpdateToastTest : public testing::Test {
protected:
    UpdateToastTest() {
        ground.resize(200, 400);
        ground.show();
    }

    UpdateToast& make(ToastView::Style style) {
        toast = new UpdateToast(loop, style, &ground);
        toast->onInstall = [this] { ++installs; };
        toast->onDismissRequested = [this] {
            ++dismissals;
            toast->setMessage(std::nullopt);
        };
        return *toast;
    }

    QVariantAnimation& animation() { return *toast->findChild<QVariantAnimation*>(); }
    /// Moves the running slide to a time after its start.
    void slideTo(int ms) { animation().setCurrentTime(ms); }
    QString text() { return toast->findChild<ElidedLabel*>(QStringLiteral("textLabel"))->text(); }
    Spinner& spinner() { return *toast->findChild<Spinner*>(); }
    QPushButton& button() { return *toast->findChild<QPushButton*>(); }

    TestLoop loop;
    QWidget ground;
    UpdateToast* toast = nullptr;
    int installs = 0;
    int dismissals = 0;
};

TEST_F(UpdateToastTest, AnAttachedOneSlidesUpAlongTheWholeEdge) {
    make(ToastView::Style::attached);
    EXPECT_FALSE(toast->isVisible());
    toast->setMessage(UpdateToast::ReadyUpdate{"1.4.0"});
    EXPECT_TRUE(toast->isPresented());
    EXPECT_EQ(toast->geometry(), QRect(0, 400, 200, 48)) << "it begins below the edge";
    slideTo(90);
    EXPECT_GT(toast->y(), 352);
    // By the equation of the curve, 68.5 % of the way is done after half the time.
    EXPECT_NEAR(toast->y(), 400 - 48 * 0.685, 1.0);
    slideTo(180);
    EXPECT_EQ(toast->geometry(), QRect(0, 352, 200, 48));
    EXPECT_EQ(animation().duration(), 180);
}

TEST_F(UpdateToastTest, AFloatingOneKeepsItsDistanceAndGoesFullyBelowTheEdge) {
    make(ToastView::Style::floating);
    toast->setMessage(UpdateToast::Checking{});
    EXPECT_EQ(toast->geometry(), QRect(10, 410, 180, 40));
    slideTo(180);
    EXPECT_EQ(toast->geometry(), QRect(10, 350, 180, 40));
    toast->setMessage(std::nullopt);
    EXPECT_FALSE(toast->isPresented());
    EXPECT_TRUE(toast->isVisible()) << "on its way down";
    slideTo(180);
    EXPECT_EQ(toast->y(), 410);
    EXPECT_FALSE(toast->isVisible());
}

TEST_F(UpdateToastTest, ItFollowsTheSizeOfItsGround) {
    make(ToastView::Style::floating);
    toast->show(false);
    ground.resize(300, 200);
    EXPECT_EQ(toast->geometry(), QRect(10, 150, 280, 40));
    toast->hide(false);
    EXPECT_FALSE(toast->isVisible());
    ground.resize(100, 90);
    toast->show(false);
    EXPECT_EQ(toast->geometry(), QRect(10, 40, 80, 40));
}

TEST_F(UpdateToastTest, ShowAndHideAgainDoNothing) {
    make(ToastView::Style::attached);
    int slides = 0;
    toast->onVisibilityChanged = [&](ToastView&) { ++slides; };
    toast->hide(true);
    EXPECT_EQ(slides, 0);
    toast->show(true);
    slideTo(100);
    const int y = toast->y();
    toast->show(true);
    toast->show(false);
    EXPECT_EQ(toast->y(), y);
    EXPECT_EQ(slides, 1);
}

TEST_F(UpdateToastTest, TurnedRoundOnItsWayItGoesFromWhereItIs) {
    make(ToastView::Style::attached);
    toast->show(true);
    slideTo(60);
    const int y = toast->y();
    toast->hide(true);
    EXPECT_EQ(toast->y(), y);
    slideTo(180);
    EXPECT_FALSE(toast->isVisible());
}

TEST_F(UpdateToastTest, WhereNobodyLooksItDoesNotMove) {
    ground.hide();
    make(ToastView::Style::attached);
    toast->setMessage(UpdateToast::ReadyUpdate{"2.0.0"});
    EXPECT_EQ(toast->y(), 352);
    ground.show();
    EXPECT_TRUE(toast->isVisible());
}

TEST_F(UpdateToastTest, WithoutAGroundItIsUpOnceItHasOne) {
    UpdateToast loose(loop, ToastView::Style::floating);
    loose.setMessage(UpdateToast::Checking{});
    EXPECT_TRUE(loose.isPresented());
    EXPECT_FALSE(loose.isVisible());
    loose.attach(ground);
    loose.attach(ground);
    EXPECT_EQ(loose.geometry(), QRect(10, 350, 180, 40));
    QWidget other;
    other.resize(100, 100);
    loose.attach(other);
    EXPECT_EQ(loose.geometry(), QRect(10, 50, 80, 40));
    ground.resize(50, 50);
    EXPECT_EQ(loose.geometry(), QRect(10, 50, 80, 40));
    loose.setParent(nullptr);
}

TEST_F(UpdateToastTest, EachMessageHasItsWords) {
    make(ToastView::Style::floating);
    toast->setMessage(UpdateToast::MinimumSystemVersionRequired{"13.1.0"});
    EXPECT_EQ(text(), QStringLiteral("macOS 13.1.0 required to update"));
    EXPECT_FALSE(spinner().isSpinning());
    toast->setMessage(UpdateToast::Checking{});
    EXPECT_EQ(text(), QStringLiteral("Checking for Updates..."));
    EXPECT_TRUE(spinner().isSpinning());
    toast->setMessage(UpdateToast::NoUpdateAvailable{});
    EXPECT_EQ(text(), QStringLiteral("No Update Available"));
    EXPECT_FALSE(spinner().isSpinning());
    toast->setMessage(UpdateToast::ReadyUpdate{"1.4.0"});
    EXPECT_EQ(text(), QStringLiteral("v1.4.0"));
}

TEST_F(UpdateToastTest, WhatIsNewsForAMomentAsksToGoAfterFourSeconds) {
    make(ToastView::Style::floating);
    for (const UpdateToast::Message& message : {UpdateToast::Message(UpdateToast::MinimumSystemVersionRequired{"13"}),
                                                UpdateToast::Message(UpdateToast::NoUpdateAvailable{})}) {
        dismissals = 0;
        toast->setMessage(message);
        loop.advance(3.9);
        EXPECT_EQ(dismissals, 0);
        loop.advance(0.1);
        EXPECT_EQ(dismissals, 1);
        EXPECT_FALSE(toast->isPresented());
        loop.advance(10);
        EXPECT_EQ(dismissals, 1);
    }
}

TEST_F(UpdateToastTest, WhatLastsStays) {
    make(ToastView::Style::floating);
    toast->setMessage(UpdateToast::Checking{});
    loop.advance(100);
    toast->setMessage(UpdateToast::ReadyUpdate{"1"});
    loop.advance(100);
    EXPECT_EQ(dismissals, 0);
    EXPECT_TRUE(toast->isPresented());
}

TEST_F(UpdateToastTest, ANewerMessageCallsTheDismissalOff) {
    make(ToastView::Style::floating);
    toast->setMessage(UpdateToast::NoUpdateAvailable{});
    loop.advance(3);
    toast->setMessage(UpdateToast::Checking{});
    loop.advance(10);
    EXPECT_EQ(dismissals, 0);
}

TEST_F(UpdateToastTest, AnEqualMessageBeginsTheTimeAnew) {
    make(ToastView::Style::floating);
    toast->setMessage(UpdateToast::NoUpdateAvailable{});
    loop.advance(3);
    toast->setMessage(UpdateToast::NoUpdateAvailable{});
    loop.advance(3);
    EXPECT_EQ(dismissals, 0);
    loop.advance(1);
    EXPECT_EQ(dismissals, 1);
}

TEST_F(UpdateToastTest, ADeadOneIsNotDismissed) {
    make(ToastView::Style::floating);
    toast->setMessage(UpdateToast::NoUpdateAvailable{});
    delete toast;
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(UpdateToastTest, AClickOnAFloatingOneTakesItAwayWhateverItSays) {
    make(ToastView::Style::floating);
    for (const UpdateToast::Message& message :
         {UpdateToast::Message(UpdateToast::Checking{}), UpdateToast::Message(UpdateToast::NoUpdateAvailable{})}) {
        dismissals = 0;
        toast->setMessage(message);
        slideTo(180);
        QTest::mouseClick(toast, Qt::LeftButton);
        EXPECT_EQ(dismissals, 1);
        QTest::mouseClick(toast, Qt::LeftButton);
        EXPECT_EQ(dismissals, 1) << "there is no message any more";
    }
}

TEST_F(UpdateToastTest, AClickOnItsWordsIsAClickOnIt) {
    make(ToastView::Style::floating);
    toast->setMessage(UpdateToast::Checking{});
    slideTo(180);
    QTest::mouseClick(toast->window()->windowHandle(), Qt::LeftButton, {}, toast->geometry().center());
    EXPECT_EQ(dismissals, 1);
}

TEST_F(UpdateToastTest, OnAnAttachedOneOnlyTheButtonDoesSomething) {
    make(ToastView::Style::attached);
    toast->setMessage(UpdateToast::ReadyUpdate{"1.4.0"});
    slideTo(180);
    QTest::mouseClick(toast, Qt::LeftButton, {}, {60, 24});
    EXPECT_EQ(installs + dismissals, 0);
    EXPECT_EQ(button().text(), QStringLiteral("Update"));
    QTest::mouseClick(&button(), Qt::LeftButton);
    EXPECT_EQ(installs, 1);
    EXPECT_TRUE(toast->isPresented());
}

TEST_F(UpdateToastTest, WhatIsOutOfSightIsOutOfReachOfTheKeyboard) {
    make(ToastView::Style::attached);
    EXPECT_FALSE(button().isVisible());
    toast->show(false);
    EXPECT_TRUE(button().isVisible());
    toast->hide(false);
    EXPECT_FALSE(button().isVisible());
}

TEST_F(UpdateToastTest, AClickThatEndsElsewhereIsNone) {
    make(ToastView::Style::floating);
    toast->setMessage(UpdateToast::Checking{});
    slideTo(180);
    QTest::mousePress(toast, Qt::LeftButton, {}, {20, 20});
    QTest::mouseRelease(toast, Qt::LeftButton, {}, {20, -50});
    EXPECT_EQ(dismissals, 0);
}

TEST_F(UpdateToastTest, AnAttachedOneHasNoSpinner) {
    make(ToastView::Style::attached);
    toast->setMessage(UpdateToast::Checking{});
    EXPECT_FALSE(spinner().isSpinning());
}

TEST_F(UpdateToastTest, AVersionTurnsNoLineAround) {
    make(ToastView::Style::attached);
    toast->setMessage(UpdateToast::ReadyUpdate{"1.0\u202E\n2"});
    EXPECT_FALSE(text().contains(QChar(0x202E))) << text().toStdString();
    EXPECT_FALSE(text().contains(QLatin1Char('\n')));
}

TEST_F(UpdateToastTest, AnAttachedOneHasALineAboveIt) {
    make(ToastView::Style::attached);
    toast->show(false);
    const QImage attached = toast->grab().toImage();
    EXPECT_NE(attached.pixelColor(1, 0), attached.pixelColor(1, 3));
}

TEST_F(UpdateToastTest, TheWordOnTheButtonCanBeRead) {
    const auto rgb = [](const QColor& color) {
        return Rgb{static_cast<std::uint8_t>(color.red()), static_cast<std::uint8_t>(color.green()),
                   static_cast<std::uint8_t>(color.blue())};
    };
    make(ToastView::Style::attached);
    toast->setMessage(UpdateToast::ReadyUpdate{"1.4.0"});
    slideTo(180);
    for (const QColor& tint : {QColor(0x30, 0x8c, 0xc6), QColor(0xe9, 0x54, 0x20), QColor(0x2a, 0x2a, 0x2a)}) {
        QPalette desktop = ground.palette();
        desktop.setColor(QPalette::Highlight, tint);
        desktop.setColor(QPalette::HighlightedText, Qt::white);
        ground.setPalette(desktop);
        const QImage picture = button().grab().toImage();
        // Look at a column of pixels between the button's edge and the word.
        for (int y = 4; y < picture.height() - 4; ++y)
            EXPECT_GE(AuthorColor::contrast(rgb(picture.pixelColor(6, y)), {255, 255, 255}), 4.5)
                << tint.name().toStdString() << " at " << y;
    }
}

TEST_F(UpdateToastTest, AClickOnItIsNoClickOnWhatLiesBeneath) {
    struct Clicks : QObject {
        bool eventFilter(QObject*, QEvent* event) override {
            if (event->type() == QEvent::MouseButtonPress) ++count;
            return false;
        }
        int count = 0;
    } clicks;
    ground.installEventFilter(&clicks);
    make(ToastView::Style::attached);
    toast->show(false);
    QTest::mouseClick(toast, Qt::LeftButton, {}, {60, 24});
    EXPECT_EQ(clicks.count, 0);
    QTest::mouseClick(&ground, Qt::LeftButton, {}, {60, 24});
    EXPECT_EQ(clicks.count, 1);
}

TEST_F(UpdateToastTest, ItComesUpAboveWhatCameLater) {
    make(ToastView::Style::attached);
    QWidget later(&ground);
    toast->show(false);
    EXPECT_EQ(ground.children().last(), toast);
}

}  // namespace
