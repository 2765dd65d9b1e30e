#include "ChatterSamples.h"
#include "DesktopViews/TranscriptChange.h"

#include <gtest/gtest.h>

using namespace ChatterSamples;

TEST(TranscriptChangeTest, RowsAtTheEndAloneAreAnAppend) {
    const Transcript before = varied(600);
    const TranscriptChange change(before, with(before, text("more")));
    EXPECT_TRUE(change.isAppend());
    EXPECT_FALSE(change.isNothing());
    EXPECT_EQ(change.sameAtBeginning(), 600U);
}

TEST(TranscriptChangeTest, ATranscriptThatSharesNothingIsComparedByItsRows) {
    const Transcript before = varied(600);
    EXPECT_TRUE(TranscriptChange(before, varied(600)).isNothing());
    EXPECT_TRUE(TranscriptChange(before, with(varied(600), text("more"))).isAppend());
    EXPECT_TRUE(TranscriptChange({}, before).isAppend());
}

TEST(TranscriptChangeTest, FewerRowsAreNoAppend) {
    const Transcript before = varied(600);
    const TranscriptChange change(before, shortened(before, 599));
    EXPECT_FALSE(change.isAppend());
    EXPECT_EQ(change.newRow(598), 598U);
    EXPECT_EQ(change.newRow(599), std::nullopt);
}

TEST(TranscriptChangeTest, RowsBehindAnInsertionKeepTheirDistanceFromTheEnd) {
    Transcript before;
    Transcript after;
    for (int i = 0; i < 10; ++i) {
        if (i == 5) after.items.push_back(activity("between"));
        before.items.push_back(text(std::to_string(i)));
        after.items.push_back(text(std::to_string(i)));
    }
    const TranscriptChange change(before, after);
    EXPECT_FALSE(change.isAppend());
    EXPECT_EQ(change.newRow(4), 4U);
    EXPECT_EQ(change.newRow(5), 6U);
    EXPECT_EQ(change.newRow(9), 10U);
}

TEST(TranscriptChangeTest, AMessageWithANewEmojiIsTheSameRow) {
    Transcript before;
    Transcript after;
    for (int i = 0; i < 10; ++i) {
        before.items.push_back(text(std::to_string(i)));
        after.items.push_back(Transcript::Text{std::to_string(i), at(12, 0), "🦁", ann, ann});
    }
    after.items.push_back(activity("Ann emoji → 🦁"));
    const TranscriptChange change(before, after);
    EXPECT_FALSE(change.isAppend());
    EXPECT_EQ(change.sameAtBeginning(), 0U);
    EXPECT_EQ(change.newRow(7), 7U);
}
