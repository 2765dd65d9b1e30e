#pragma once

#include "VimbleKit/SecretStore.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

/// What every secret store must do, wherever it keeps its items.
///
/// A store's test defines `Store`: `fresh()` gives a store with nothing in it, `again()` another store
/// with the same contents, as another run of the program would have.
template <class Store>
class SecretStoreSuite : public ::testing::Test {
protected:
    static Bytes bytes(std::string_view text) { return {text.begin(), text.end()}; }

    static SecretItem item(std::string_view data = "secret") {
        SecretItem made;
        made.service = "zorvane.Test";
        made.account = "identity.primary";
        made.label = "Test Secret";
        made.accessible = "whenUnlocked";
        made.data = bytes(data);
        return made;
    }

    static SecretQuery query() { return {"zorvane.Test", "identity.primary", {}, {}, false}; }

    Store store;
    std::unique_ptr<SecretStore> secrets = store.fresh();
};

TYPED_TEST_SUITE_P(SecretStoreSuite);

TYPED_TEST_P(SecretStoreSuite, AnEmptyStoreFindsNothing) {
    auto& secrets = *this->secrets;
    EXPECT_EQ(secrets.copyMatching(this->query()).status, SecretStatuses::itemNotFound);
    EXPECT_EQ(secrets.copyMatching({{}, {}, "Test Secret", {}, false}).status, SecretStatuses::itemNotFound);
    EXPECT_EQ(secrets.update(this->query(), this->bytes("x")), SecretStatuses::itemNotFound);
    EXPECT_EQ(secrets.remove(this->query()), SecretStatuses::itemNotFound);
    EXPECT_EQ(secrets.accessGroups(), std::nullopt);
}

TYPED_TEST_P(SecretStoreSuite, WhatWasAddedIsFoundWholeAlsoByTheNextRun) {
    ASSERT_EQ(this->secrets->add(this->item()), SecretStatuses::ok);
    for (int run = 0; run < 2; ++run) {
        const auto found = this->secrets->copyMatching(this->query());
        ASSERT_EQ(found.status, SecretStatuses::ok);
        EXPECT_EQ(found.item, this->item());
        this->secrets = this->store.again();
    }
}

TYPED_TEST_P(SecretStoreSuite, AnItemIsFoundByItsLabelAlone) {
    ASSERT_EQ(this->secrets->add(this->item()), SecretStatuses::ok);
    EXPECT_EQ(this->secrets->copyMatching({{}, {}, "Test Secret", {}, false}).item, this->item());
    EXPECT_EQ(this->secrets->copyMatching({{}, {}, "Test", {}, false}).status, SecretStatuses::itemNotFound);
    EXPECT_EQ(this->secrets->copyMatching({"zorvane.Test", {}, "Other", {}, false}).status,
              SecretStatuses::itemNotFound);
}

TYPED_TEST_P(SecretStoreSuite, AnyBytesAreKept) {
    auto odd = this->item();
    odd.data = Bytes{0, 1, 2, 0, 255, 128, '\n', 0};
    ASSERT_EQ(this->secrets->add(odd), SecretStatuses::ok);
    EXPECT_EQ(this->secrets->copyMatching(this->query()).item.data, odd.data);
    ASSERT_EQ(this->secrets->update(this->query(), Bytes{}), SecretStatuses::ok);
    EXPECT_EQ(this->secrets->copyMatching(this->query()).item.data, Bytes{});
}

TYPED_TEST_P(SecretStoreSuite, AnItemOfTheSameIdentityIsADuplicateAndTheFirstStays) {
    ASSERT_EQ(this->secrets->add(this->item()), SecretStatuses::ok);
    auto second = this->item("other");
    second.label = "Another Label";
    second.accessible = "always";
    EXPECT_EQ(this->secrets->add(second), SecretStatuses::duplicateItem);
    EXPECT_EQ(this->secrets->copyMatching(this->query()).item, this->item());
}

TYPED_TEST_P(SecretStoreSuite, EachPartOfTheIdentityTellsItemsApart) {
    std::vector<SecretItem> items(5, this->item());
    items[1].service = "zorvane.Other";
    items[2].account = "identity.second";
    items[3].accessGroup = "team.group";
    items[4].synchronizable = true;
    for (std::size_t i = 0; i < items.size(); ++i) {
        items[i].data = Bytes{static_cast<std::uint8_t>('0' + i)};
        ASSERT_EQ(this->secrets->add(items[i]), SecretStatuses::ok) << i;
    }
    for (const SecretItem& item : items) EXPECT_EQ(this->secrets->add(item), SecretStatuses::duplicateItem);
    const auto found = [&](SecretQuery query) { return this->secrets->copyMatching(query).item.data; };
    EXPECT_EQ(found({"zorvane.Other", "identity.primary", {}, {}, false}), items[1].data);
    EXPECT_EQ(found({"zorvane.Test", "identity.second", {}, {}, false}), items[2].data);
    EXPECT_EQ(found({"zorvane.Test", "identity.primary", {}, "team.group", false}), items[3].data);
    EXPECT_EQ(found({"zorvane.Test", "identity.primary", {}, {}, true}), items[4].data);
    EXPECT_EQ(found({{}, {}, {}, "team.group", false}), items[3].data);
    EXPECT_EQ(found({{}, "identity.second", {}, {}, false}), items[2].data);
}

TYPED_TEST_P(SecretStoreSuite, AQueryWithoutSynchronizableOnlyMeansWhatIsNot) {
    auto synchronised = this->item();
    synchronised.synchronizable = true;
    ASSERT_EQ(this->secrets->add(synchronised), SecretStatuses::ok);
    EXPECT_EQ(this->secrets->copyMatching(this->query()).status, SecretStatuses::itemNotFound);
    EXPECT_EQ(this->secrets->copyMatching({{}, {}, "Test Secret", {}, false}).status, SecretStatuses::itemNotFound);
    auto query = this->query();
    query.synchronizable = true;
    EXPECT_EQ(this->secrets->copyMatching(query).item, synchronised);
}

TYPED_TEST_P(SecretStoreSuite, UpdateReplacesTheDataAndNothingElse) {
    ASSERT_EQ(this->secrets->add(this->item()), SecretStatuses::ok);
    ASSERT_EQ(this->secrets->update(this->query(), this->bytes("new and longer")), SecretStatuses::ok);
    auto expected = this->item("new and longer");
    EXPECT_EQ(this->secrets->copyMatching(this->query()).item, expected);
    EXPECT_EQ(this->store.again()->copyMatching(this->query()).item, expected);
}

TYPED_TEST_P(SecretStoreSuite, WhatIsRemovedIsGone) {
    auto other = this->item("other");
    other.account = "identity.second";
    ASSERT_EQ(this->secrets->add(this->item()), SecretStatuses::ok);
    ASSERT_EQ(this->secrets->add(other), SecretStatuses::ok);
    ASSERT_EQ(this->secrets->remove(this->query()), SecretStatuses::ok);
    EXPECT_EQ(this->secrets->copyMatching(this->query()).status, SecretStatuses::itemNotFound);
    EXPECT_EQ(this->secrets->copyMatching({{}, "identity.second", {}, {}, false}).item, other);
    EXPECT_EQ(this->secrets->add(this->item("again")), SecretStatuses::ok);
}

TYPED_TEST_P(SecretStoreSuite, EveryStatusHasALineOfText) {
    for (const SecretStatus status :
         {SecretStatuses::ok, SecretStatuses::duplicateItem, SecretStatuses::itemNotFound, SecretStatuses::userCanceled,
          SecretStatuses::notAvailable, SecretStatuses::authFailed, SecretStatuses::interactionNotAllowed,
          SecretStatuses::decode, SecretStatuses::internalError, SecretStatus{-4711}}) {
        const std::string text = this->secrets->errorMessage(status);
        EXPECT_FALSE(text.empty());
        EXPECT_EQ(text.find('\n'), std::string::npos);
    }
}

REGISTER_TYPED_TEST_SUITE_P(SecretStoreSuite, AnEmptyStoreFindsNothing, WhatWasAddedIsFoundWholeAlsoByTheNextRun,
                            AnItemIsFoundByItsLabelAlone, AnyBytesAreKept,
                            AnItemOfTheSameIdentityIsADuplicateAndTheFirstStays, EachPartOfTheIdentityTellsItemsApart,
                            AQueryWithoutSynchronizableOnlyMeansWhatIsNot, UpdateReplacesTheDataAndNothingElse,
                            WhatIsRemovedIsGone, EveryStatusHasALineOfText);
