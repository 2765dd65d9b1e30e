#include "Desk.h"

#include <QByteArray>
#include <QDataStream>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRect>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

using testing::HasSubstr;
using testing::Not;

namespace {

/// A desk with every kind of window open, each away from the place where it opens by itself.
class DesktopRestoreTest : public testing::Test {
protected:
    using Frames = std::multiset<std::string>;
    const std::vector<std::string> windows = {"People", "Console", "Room", "Bob"};

    void SetUp() override {
        world.startRelay();
        world.admit("ann", true);
        world.admit("bob");
        bob = world.client("bob");
        bob->lineWith("list of ");
        bob->write("/name Bob\n");
        ann.emplace(world, "ann");
        ann->start();
        ann->sees("People", "Bob, online");
    }

    void openAll() {
        ann->doubleClick("People", "Bob, online");
        ann->say("Bob", "between us");
        ann->activate("People");
        ann->press("ctrl+2");
        ann->expectActive("Console");
        ann->press("ctrl+3");
        ann->expectActive("Room");
        ann->say("Room", "for everybody");
        ann->place("People", 40, 60, 220, 420);
        ann->place("Console", 300, 480, 500, 260);
        ann->place("Room", 700, 40, 440, 330);
        ann->place("Bob", 310, 70, 370, 360);
        EXPECT_TRUE(ann->comesTrue(
            [&] { return world.isSaved("ann", "between us") && world.isSaved("ann", "for everybody"); }));
    }

    /// Where the windows are on the screen.
    Frames shown() {
        Frames frames;
        for (const std::string& window : windows)
            if (const auto id = ann->screen().window(window)) frames.insert(ann->screen().frame(*id));
        return frames;
    }

    /// Where the open windows are according to the saved file.
    Frames remembered() const {
        Frames frames;
        std::ifstream file(world.dataFolder("ann") / "app" / "WindowRecords.json");
        const std::string text(std::istreambuf_iterator<char>(file), {});
        const auto records = QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
        for (const QJsonValue& each : records[QLatin1String("windows")].toArray()) {
            const QJsonObject record = each.toObject();
            if (!record[QLatin1String("isOpen")].toBool()) continue;
            const QByteArray geometry = QByteArray::fromBase64(record[QLatin1String("frame")].toString().toLatin1());
            // The layout is that of QWidget::saveGeometry.
            QDataStream stream(geometry);
            stream.setVersion(QDataStream::Qt_4_0);
            quint32 magic = 0;
            quint16 major = 0, minor = 0;
            QRect outer, inner;
            stream >> magic >> major >> minor >> outer >> inner;
            frames.insert(std::to_string(inner.x()) + "," + std::to_string(inner.y()) + " " +
                          std::to_string(inner.width()) + "x" + std::to_string(inner.height()));
        }
        return frames;
    }

    void expectAllBackAt(const Frames& frames) {
        EXPECT_TRUE(ann->comesTrue([&] { return shown() == frames; }))
            << testing::PrintToString(shown()) << " instead of " << testing::PrintToString(frames);
        ann->sees("Bob", "between us");
        ann->sees("Room", "for everybody");
        ann->sees("People", "Bob, online");
    }

    ChatWorld world;
    std::unique_ptr<Process> bob;
    std::optional<Desk> ann;
};

}  // namespace

TEST_F(DesktopRestoreTest, AfterAQuitWindowsAndTextsAreWhereTheyWere) {
    openAll();
    const Frames frames = shown();
    EXPECT_EQ(frames.size(), windows.size());
    ann->picture("before-quit");
    ann->activate("Bob");
    ann->quit();

    ann->start();
    expectAllBackAt(frames);
    ann->picture("started-again");
    // The windows must not move by some pixels at each start.
    ann->activate("People");
    ann->quit();
    ann->start();
    expectAllBackAt(frames);
    ann->say("Bob", "still here");
    EXPECT_TRUE(bob->lineWith("still here"));

    // A window that was closed stays closed.
    ann->press("ctrl+w");
    EXPECT_TRUE(ann->comesTrue([&] { return !ann->hasWindow("Bob"); }));
    ann->activate("People");
    ann->quit();
    ann->start();
    ann->sees("People", "Bob, online");
    EXPECT_TRUE(ann->comesTrue([&] { return ann->hasWindow("Room") && ann->hasWindow("Console"); }));
    EXPECT_FALSE(ann->hasWindow("Bob"));
    ann->activate("People");
    ann->quit();
}

TEST_F(DesktopRestoreTest, AfterAKillWindowsAndTextsAreWhereTheyWere) {
    openAll();
    const Frames frames = shown();
    EXPECT_EQ(frames.size(), windows.size());
    EXPECT_TRUE(ann->comesTrue([&] { return remembered() == frames; }))
        << testing::PrintToString(remembered()) << " instead of " << testing::PrintToString(frames);
    ann->program().kill();
    EXPECT_TRUE(bob->lineWith(" went away"));
    bob->write("@" + world.key("ann") + " while you were dead\n");
    EXPECT_TRUE(world.waitForCount("packs_stored_total", 1));

    ann->start();
    expectAllBackAt(frames);
    ann->sees("Bob", "while you were dead");
    ann->picture("started-again");
    ann->activate("People");
    ann->quit();
}

TEST_F(DesktopRestoreTest, ASecondStartBringsTheRunningOneForward) {
    ann->activate("People");
    ann->press("ctrl+3");
    ann->expectActive("Room");
    std::string errors;
    EXPECT_EQ(world.run(ann->programStart(), nullptr, &errors), 0);
    EXPECT_THAT(errors, Not(HasSubstr("Sanitizer")));
    ann->expectActive("People");

    // Without a tray, closing the last window only minimises it, so that it can't be lost. A link brings it back too.
    ann->activate("Room");
    ann->press("ctrl+w");
    EXPECT_TRUE(ann->comesTrue([&] { return !ann->hasWindow("Room"); }));
    ann->activate("People");
    ann->press("ctrl+w");
    EXPECT_TRUE(ann->comesTrue([&] { return !ann->hasWindow("People"); }));
    EXPECT_EQ(world.run(ann->programStart({"vimble:hello"}), nullptr, &errors), 0);
    EXPECT_THAT(errors, Not(HasSubstr("Sanitizer")));
    ann->expectActive("People");
    ann->picture("forward");

    // With another data folder, a second program runs beside the first.
    world.admit("cleo");
    Process::Start other = ann->programStart();
    for (std::string& word : other.command) {
        if (word == world.dataFolder("ann").string()) word = world.dataFolder("cleo").string();
        if (word == world.secretFile("ann").string()) word = world.secretFile("cleo").string();
    }
    other.command.insert(other.command.end(), {"--server", world.server()});
    Process cleo(other);
    EXPECT_TRUE(cleo.exactLine("Transitioning Online"));
    cleo.signal(SIGTERM);
    EXPECT_EQ(cleo.wait(), 0);
    EXPECT_THAT(cleo.errors(), Not(HasSubstr("Sanitizer")));
    ann->activate("People");
    ann->quit();
}
