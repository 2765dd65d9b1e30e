#include "RelayCore/Members.h"
#include "RelayCore/Parcel.h"

#include <deque>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace {

// The leak sanitizer checks that the last handle destroys the parcel.
class ParcelHandleTest : public testing::Test {
protected:
    ParcelHandle parcel() { return ParcelHandle::make(target, 7, Date{1000}, Bytes{1, 2, 3}, Parcel::State::queued); }

    Member target;
};

TEST_F(ParcelHandleTest, AParcelIsMadeWithOneHandle) {
    const ParcelHandle handle = parcel();
    EXPECT_EQ(handle.count(), 1u);
    EXPECT_EQ(handle->target, &target);
    EXPECT_EQ(handle->id, 7);
    EXPECT_EQ(handle->arrived, Date{1000});
    EXPECT_EQ(handle->frame, (Bytes{1, 2, 3}));
    EXPECT_EQ(handle->state, Parcel::State::queued);
}

TEST_F(ParcelHandleTest, EveryCopyCountsUntilItGoes) {
    const ParcelHandle handle = parcel();
    {
        const ParcelHandle copy = handle;
        EXPECT_EQ(&*copy, &*handle);
        EXPECT_EQ(handle.count(), 2u);
        const ParcelHandle again(*handle);
        EXPECT_EQ(handle.count(), 3u);
    }
    EXPECT_EQ(handle.count(), 1u);
}

TEST_F(ParcelHandleTest, AParcelOutlivesTheHandleThatItWasMadeWith) {
    auto first = std::make_unique<ParcelHandle>(parcel());
    const ParcelHandle second = *first;
    first.reset();
    EXPECT_EQ(second.count(), 1u);
    EXPECT_EQ(second->frame, (Bytes{1, 2, 3}));
}

TEST_F(ParcelHandleTest, MovingChangesNoCount) {
    ParcelHandle handle = parcel();
    const Parcel* const place = &*handle;
    const ParcelHandle moved = std::move(handle);
    EXPECT_EQ(&*moved, place);
    EXPECT_EQ(moved.count(), 1u);
}

TEST_F(ParcelHandleTest, AnAssignedHandleLetsGoOfWhatItHad) {
    const ParcelHandle first = parcel();
    const ParcelHandle second = parcel();
    ParcelHandle handle = first;
    handle = second;
    EXPECT_EQ(first.count(), 1u);
    EXPECT_EQ(second.count(), 2u);
    const ParcelHandle& itself = handle;
    handle = itself;
    EXPECT_EQ(second.count(), 2u);
    handle = ParcelHandle(first);
    EXPECT_EQ(first.count(), 2u);
    EXPECT_EQ(second.count(), 1u);
}

TEST_F(ParcelHandleTest, AQueueThatIsThinnedOutKeepsTheOthers) {
    std::deque<ParcelHandle> queue;
    std::vector<ParcelHandle> kept;
    for (int index = 0; index < 10; ++index) kept.push_back(queue.emplace_back(parcel()));
    std::erase_if(queue, [&](const ParcelHandle& each) { return &*each == &*kept[0] || &*each == &*kept[5]; });
    ASSERT_EQ(queue.size(), 8u);
    for (int index = 0; index < 10; ++index) EXPECT_EQ(kept[index].count(), index % 5 == 0 ? 1u : 2u) << index;
    EXPECT_EQ(&*queue.front(), &*kept[1]);
    EXPECT_EQ(&*queue.back(), &*kept[9]);
}

}  // namespace
