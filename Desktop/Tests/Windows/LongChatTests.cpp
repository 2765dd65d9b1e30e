#include "DesktopKit/ChatterVC.h"
#include "TalkWorld.h"

#include <QCoreApplication>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>

namespace {

using testing::Each;
using testing::SizeIs;

/// A talk with Ann of many messages.
class LongChatTest : public testing::Test {
protected:
    void open(std::size_t messageCount) {
        State state;
        state.endpoint = session.endpoint;
        state.people.set(keyTextOf(2), {keyTextOf(2), "Ann", "🐙", false, false});
        state.conversations.update(keyTextOf(2), [&](Chat& chat) {
            for (std::size_t i = 0; i < messageCount; ++i)
                chat.messages.push_back({keyTextOf(i % 3 == 0 ? 1 : 2),
                                         "message " + std::to_string(i),
                                         {780000000 + 600.0 * static_cast<double>(i)}});
        });
        state.save(session.folder.path);
        session.startConnected({listed(1), listed(2)});
        vc.emplace(*session.kit, session.loop, keyTextOf(2));
        vc->resize(512, 384);
    }
    ChatterView& view() { return vc->output(); }
    std::size_t texts() {
        const auto rows = TalkWorld::rows(view());
        return static_cast<std::size_t>(
            std::count_if(rows.begin(), rows.end(), [](const auto& row) { return row.starts_with("text: "); }));
    }
    std::string lastRow() { return TalkWorld::rows(view()).back(); }
    /// A picture without the right edge, where the scroll bar may not be laid out yet.
    QImage picture() { return view().viewport()->grab({0, 0, 400, 300}).toImage(); }

    Session session;
    std::optional<ChatterVC> vc;
};

TEST_F(LongChatTest, AShortChatIsThereAtOnce) {
    open(2000);
    EXPECT_EQ(texts(), 2000u);
}

TEST_F(LongChatTest, ALongOneShowsItsEndAndIsWholeOnceThatWasPainted) {
    open(5000);
    EXPECT_LT(texts(), 1000u);
    EXPECT_EQ(lastRow(), "text: message 4999");
    vc->show();
    const QImage before = picture();
    EXPECT_TRUE(view().isAtEnd());
    QCoreApplication::processEvents();
    EXPECT_EQ(texts(), 5000u);
    EXPECT_EQ(view().transcript(),
              buildTranscript(session.kit->state().conversations.find(keyTextOf(2)), session.kit->state().people, {}));
    EXPECT_TRUE(view().isAtEnd());
    EXPECT_EQ(picture(), before);
}

TEST_F(LongChatTest, WhatComesBeforeTheFirstPaintingIsShown) {
    open(5000);
    session.server().relay(keysOf(2), {std::nullopt, "Ann", "🐙", "news"});
    EXPECT_EQ(lastRow(), "text: news");
    EXPECT_LT(texts(), 1000u);
    vc->show();
    picture();
    session.server().relay(keysOf(2), {std::nullopt, "Ann", "🐙", "more news"});
    QCoreApplication::processEvents();
    EXPECT_EQ(texts(), 5002u);
    EXPECT_EQ(lastRow(), "text: more news");
    EXPECT_TRUE(view().isAtEnd());
}

}  // namespace
