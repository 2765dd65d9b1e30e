#include "DesktopKit/WindowRestoration.h"
#include "StateKit/Disk.h"
#include "TestSupport/TemporaryFolder.h"
#include "TestSupport/TestLoop.h"

#include <QCoreApplication>
#include <QScreen>
#include <QWidget>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using testing::SizeIs;

class WindowRestorationTest : public testing::Test {
protected:
    WindowRecords stored() const { return Disk(folder.path, "app").load<WindowRecords>(); }
    void store(WindowRecords records) const { Disk(folder.path, "app").save(records); }

    TestLoop loop;
    TemporaryFolder folder;
};

TEST_F(WindowRestorationTest, AMoveIsWrittenAQuarterOfASecondLater) {
    WindowRestoration restoration(loop, folder.path);
    QWidget window;
    restoration.watch(window, "one");
    window.show();
    loop.advance(0.3);
    const WindowRecords before = stored();
    ASSERT_THAT(before.windows, SizeIs(1));
    EXPECT_TRUE(before.windows[0].isOpen);

    window.move(window.pos() + QPoint(17, 23));
    QCoreApplication::processEvents();
    loop.advance(0.2);
    EXPECT_EQ(stored(), before);
    loop.advance(0.1);
    EXPECT_NE(stored().windows[0].frame, before.windows[0].frame);
}

TEST_F(WindowRestorationTest, AWindowThatDiesIsForgottenAndOneThatHidesKeepsItsFrame) {
    WindowRestoration restoration(loop, folder.path);
    QWidget stays;
    auto goes = std::make_unique<QWidget>();
    restoration.watch(stays, "stays");
    restoration.watch(*goes, "goes", "key");
    stays.show();
    goes->show();
    loop.advance(0.3);
    ASSERT_THAT(stored().windows, SizeIs(2));
    EXPECT_EQ(stored().windows[1].withKey, "key");

    const std::string frame = stored().windows[0].frame;
    stays.hide();
    goes.reset();
    loop.advance(0.3);
    ASSERT_THAT(stored().windows, SizeIs(1));
    EXPECT_FALSE(stored().windows[0].isOpen);
    EXPECT_EQ(stored().windows[0].frame, frame);
}

TEST_F(WindowRestorationTest, BehindTheEndNothingIsWrittenAnyMore) {
    WindowRestoration restoration(loop, folder.path);
    QWidget window;
    restoration.watch(window, "one");
    window.show();
    restoration.finish();
    const WindowRecords atTheEnd = stored();
    EXPECT_TRUE(atTheEnd.windows.at(0).isOpen);
    window.hide();
    loop.advance(1);
    EXPECT_EQ(stored(), atTheEnd);
}

TEST_F(WindowRestorationTest, AMaximisedWindowComesBackMaximised) {
    {
        WindowRestoration restoration(loop, folder.path);
        QWidget window;
        restoration.watch(window, "one");
        window.showMaximized();
        restoration.finish();
    }
    WindowRestoration restoration(loop, folder.path);
    QWidget window;
    const WindowRecord* record = restoration.remembered("one");
    ASSERT_NE(record, nullptr);
    EXPECT_TRUE(WindowRestoration::place(window, *record));
    EXPECT_TRUE(window.isMaximized());
}

TEST_F(WindowRestorationTest, AWindowOfAScreenThatIsGoneComesBackWhereItCanBeSeen) {
    WindowRecord record{"one", "", "", true, false};
    {
        QWidget far;
        far.setGeometry(20000, 15000, 400, 300);
        record.frame = far.saveGeometry().toBase64().toStdString();
    }
    QWidget window;
    EXPECT_TRUE(WindowRestoration::place(window, record));
    EXPECT_TRUE(window.screen()->availableGeometry().intersects(window.geometry()));
}

TEST_F(WindowRestorationTest, AFrameThatIsNoneIsLeftAlone) {
    QWidget window;
    window.setGeometry(10, 20, 300, 200);
    for (const char* frame : {"", "nonsense", "////", "AAAA"})
        EXPECT_FALSE(WindowRestoration::place(window, {"one", "", frame, true, false})) << frame;
    EXPECT_EQ(window.geometry(), QRect(10, 20, 300, 200));
}

TEST_F(WindowRestorationTest, OfMoreWindowsThanAnybodyHasOnlySomeAreRead) {
    WindowRecords many;
    for (int i = 0; i < 1000; ++i) many.windows.push_back({std::to_string(i), "", "", true, false});
    store(many);
    EXPECT_THAT(WindowRestoration(loop, folder.path).remembered(), SizeIs(200));
}

}  // namespace
