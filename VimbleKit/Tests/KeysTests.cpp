#include "TestSupport/FakeServer.h"
#include "TestSupport/LogLines.h"
#include "TestSupport/MemorySecretStore.h"
#include "VimbleKit/Keys.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

const std::string oneText(64, '1');
const std::string twoText(64, '2');
const std::string group = "TEAM.zorvane.PrivateKeyIdentity";

Bytes bytesOfText(std::string_view text) { return Bytes(text.begin(), text.end()); }

SecretItem synchronisedItem(std::string_view text, std::optional<std::string> accessGroup = {}) {
    SecretItem item;
    item.service = "zorvane.Vimble";
    item.account = "identity.primary";
    item.accessGroup = std::move(accessGroup);
    item.synchronizable = true;
    item.data = bytesOfText(text);
    return item;
}

SecretItem labelledItem(std::string_view text, std::optional<std::string> accessGroup = {}) {
    SecretItem item;
    item.service = "old service";
    item.account = "old account";
    item.label = "zorvane.Vimble NaCl Secret Key";
    item.accessGroup = std::move(accessGroup);
    item.data = bytesOfText(text);
    return item;
}

SecretItem presentItem(std::string_view text) {
    MemorySecretStore store;
    store.put(text);
    return store.items.front();
}

/// How an operation ends: "ok", or what it raised.
template <class Operation>
std::string outcome(Operation&& operation) {
    try {
        operation();
        return "ok";
    } catch (const KeysError& error) {
        switch (error.code) {
            case KeysError::Code::securityError: return "security " + std::to_string(error.status);
            case KeysError::Code::badKeyFormat: return "format";
            case KeysError::Code::notFound: return "not found";
        }
    }
    return "";
}

// Every kind of store that can't answer: locked, denied, absent, slow, damaged, and numbers of any other kind.
const SecretStatus failures[] = {SecretStatuses::userCanceled,
                                 SecretStatuses::notAvailable,
                                 SecretStatuses::authFailed,
                                 SecretStatuses::interactionNotAllowed,
                                 SecretStatuses::decode,
                                 SecretStatuses::internalError,
                                 SecretStatuses::duplicateItem,
                                 -1,
                                 1,
                                 -25301};

TEST(KeysTest, WithoutAnyItemAnIdentityIsMadeAndStored) {
    MemorySecretStore store;
    EXPECT_FALSE(Keys::load(store));
    EXPECT_TRUE(store.items.empty());

    const Keys keys = Keys::loadOrGenerate(store);
    ASSERT_EQ(store.items.size(), 1u);
    EXPECT_EQ(store.items[0], presentItem(Nacl::hex(keys.secretKey.view())));
    EXPECT_EQ(Keys::loadOrGenerate(store), keys);
    EXPECT_EQ(store.items.size(), 1u);
}

TEST(KeysTest, ThePublicKeyIsDerived) {
    MemorySecretStore store;
    store.put(oneText);
    const auto keys = Keys::load(store);
    ASSERT_TRUE(keys);
    EXPECT_EQ(Nacl::hex(keys->secretKey.view()), oneText);
    EXPECT_EQ(keys->publicKey, Nacl::publicKey(keys->secretKey));
    EXPECT_EQ(keys->publicKeyText(), Nacl::hex(keys->publicKey));
    EXPECT_EQ(keys->publicKeyText().size(), 64u);
}

TEST(KeysTest, TwoGeneratedKeysDiffer) { EXPECT_FALSE(Keys::generate() == Keys::generate()); }

TEST(KeysTest, AnyFailureOfTheStoreIsRaisedAndNeverMakesAKey) {
    for (const SecretStatus status : failures) {
        for (const bool hasKey : {false, true}) {
            MemorySecretStore store;
            if (hasKey) store.put(oneText);
            const auto before = store.items;
            store.failAll(status);
            EXPECT_EQ(outcome([&] { (void)Keys::load(store); }), "security " + std::to_string(status));
            EXPECT_EQ(outcome([&] { Keys::loadOrGenerate(store); }), "security " + std::to_string(status));
            EXPECT_EQ(store.items, before);
        }
    }
}

TEST(KeysTest, AFailureAtAnyOfTheReadsOfALoadIsRaised) {
    // Present, synchronised with and without group, labelled without and with group.
    for (std::size_t call = 1; call <= 5; ++call) {
        MemorySecretStore store;
        store.groups = {{group}};
        store.failCall(call, SecretStatuses::interactionNotAllowed);
        EXPECT_EQ(outcome([&] { Keys::loadOrGenerate(store); }), "security -25308") << call;
        EXPECT_TRUE(store.items.empty()) << call;
        EXPECT_EQ(store.calls.size(), call);
    }
}

TEST(KeysTest, AnItemThatIsNoKeyCountsAsAbsentAndIsOverwritten) {
    for (const std::string& bad : {std::string(62, '1'), std::string(66, '1'), std::string(63, '1') + "g",
                                   std::string("\xff\xfe"), std::string(), std::string(64, 'z')}) {
        MemorySecretStore store;
        store.put(bad);
        EXPECT_FALSE(Keys::load(store)) << bad;
        EXPECT_EQ(store.items[0].data, bytesOfText(bad));
        const Keys keys = Keys::loadOrGenerate(store);
        ASSERT_EQ(store.items.size(), 1u);
        EXPECT_EQ(store.items[0].data, bytesOfText(Nacl::hex(keys.secretKey.view())));
    }
}

TEST(KeysTest, AnItemWithoutDataCountsAsAbsent) {
    MemorySecretStore store;
    store.put(oneText);
    store.items[0].data.reset();
    EXPECT_FALSE(Keys::load(store));
}

TEST(KeysTest, AnItemThatIsNoKeyLetsTheOlderPlacesBeSearched) {
    MemorySecretStore store;
    store.put("no key");
    store.items.push_back(synchronisedItem(oneText));
    EXPECT_EQ(Nacl::hex(Keys::load(store)->secretKey.view()), oneText);
    EXPECT_EQ(store.items, (std::vector{presentItem(oneText)}));
}

TEST(KeysTest, ASynchronisedItemIsMovedToThePresentOne) {
    MemorySecretStore store;
    store.items.push_back(synchronisedItem(oneText));
    const auto keys = Keys::load(store);
    ASSERT_TRUE(keys);
    EXPECT_EQ(Nacl::hex(keys->secretKey.view()), oneText);
    EXPECT_EQ(store.items, (std::vector{presentItem(oneText)}));

    store.restartCount();
    EXPECT_EQ(Keys::load(store), keys);
    EXPECT_EQ(store.calls, (std::vector<std::string>{"copyMatching"}));
}

TEST(KeysTest, TheSynchronisedItemOfTheGroupComesFirst) {
    MemorySecretStore store;
    store.groups = {{"TEAM.other", group}};
    store.items.push_back(synchronisedItem(twoText));
    store.items.push_back(synchronisedItem(oneText, group));
    EXPECT_EQ(Nacl::hex(Keys::load(store)->secretKey.view()), oneText);
    EXPECT_EQ(store.items, (std::vector{synchronisedItem(twoText), presentItem(oneText)}));
}

TEST(KeysTest, AGroupIsOursByItsWholeNameOrBehindAPoint) {
    const struct {
        std::vector<std::string> groups;
        bool isFound;
    } rows[] = {{{"zorvane.PrivateKeyIdentity"}, true},
                {{"A.B.zorvane.PrivateKeyIdentity"}, true},
                {{"xzorvane.PrivateKeyIdentity"}, false},
                {{"zorvane.PrivateKeyIdentity.x"}, false},
                {{}, false}};
    for (const auto& row : rows) {
        MemorySecretStore store;
        store.groups = row.groups;
        (void)Keys::load(store);
        EXPECT_EQ(store.calls.size(), row.isFound ? 5u : 3u);
    }
}

TEST(KeysTest, ALabelledItemIsMovedToThePresentOne) {
    MemorySecretStore store;
    store.items.push_back(labelledItem(oneText));
    EXPECT_EQ(Nacl::hex(Keys::load(store)->secretKey.view()), oneText);
    EXPECT_EQ(store.items, (std::vector{presentItem(oneText)}));
}

TEST(KeysTest, ALabelledItemOfTheGroupIsMovedToo) {
    MemorySecretStore store;
    store.groups = {{group}};
    store.items.push_back(labelledItem(oneText, group));
    EXPECT_EQ(Nacl::hex(Keys::load(store)->secretKey.view()), oneText);
    EXPECT_EQ(store.items, (std::vector{presentItem(oneText)}));
}

TEST(KeysTest, ALabelledItemThatIsNoKeyIsPassedOver) {
    for (const std::string& bad : {std::string("11"), std::string(66, '1'), std::string("no key")}) {
        MemorySecretStore store;
        store.items.push_back(labelledItem(bad));
        EXPECT_FALSE(Keys::load(store)) << bad;
        EXPECT_EQ(store.items, (std::vector{labelledItem(bad)}));
    }
}

TEST(KeysTest, AFailingRemovalAfterAMoveIsOfNoConsequence) {
    MemorySecretStore store;
    store.items.push_back(synchronisedItem(oneText));
    // Present, synchronised; search and add of the save; remove.
    store.failCall(5, SecretStatuses::authFailed);
    const auto keys = Keys::load(store);
    ASSERT_TRUE(keys);
    EXPECT_EQ(store.calls.back(), "remove");
    EXPECT_EQ(store.items, (std::vector{synchronisedItem(oneText), presentItem(oneText)}));
    store.failNone();
    EXPECT_EQ(Keys::load(store), keys);
}

TEST(KeysTest, AMoveThatFailsAtAnyCallLeavesTheOldItem) {
    for (const auto& old : {synchronisedItem(oneText), synchronisedItem(oneText, group), labelledItem(oneText),
                            labelledItem(oneText, group)}) {
        for (std::size_t call = 1;; ++call) {
            MemorySecretStore store;
            store.groups = {{group}};
            store.items.push_back(old);
            store.failCall(call, SecretStatuses::notAvailable);
            outcome([&] { Keys::loadOrGenerate(store); });
            if (store.calls.size() < call) break;  // the operation has no such call
            store.failNone();
            EXPECT_EQ(Nacl::hex(Keys::load(store)->secretKey.view()), oneText) << call;
        }
    }
}

TEST(KeysTest, RegeneratingStoresNewKeysInThePresentItem) {
    MemorySecretStore store;
    store.put(oneText);
    store.items[0].label = "a label of the first writing";
    store.items[0].accessible = "likewise";
    const Keys keys = Keys::regenerate(store);
    EXPECT_NE(Nacl::hex(keys.secretKey.view()), oneText);
    EXPECT_EQ(Keys::load(store), keys);
    ASSERT_EQ(store.items.size(), 1u);
    EXPECT_EQ(store.items[0].label, "a label of the first writing");
    EXPECT_EQ(store.items[0].accessible, "likewise");
}

TEST(KeysTest, RegeneratingOrReplacingThatFailsAtAnyCallLeavesTheOldKey) {
    const auto regenerate = [](SecretStore& store) { Keys::regenerate(store); };
    const auto replace = [](SecretStore& store) { Keys::replace(twoText, store); };
    for (const auto& operation :
         {std::function<void(SecretStore&)>(regenerate), std::function<void(SecretStore&)>(replace)}) {
        for (const SecretStatus status : failures) {
            for (std::size_t call = 1; call <= 2; ++call) {  // search, update
                MemorySecretStore store;
                store.put(oneText);
                store.failCall(call, status);
                EXPECT_EQ(outcome([&] { operation(store); }), "security " + std::to_string(status));
                EXPECT_EQ(store.calls.size(), call);
                EXPECT_EQ(store.items, (std::vector{presentItem(oneText)}));
            }
        }
        MemorySecretStore store;
        store.put(oneText);
        operation(store);
        EXPECT_EQ(store.calls, (std::vector<std::string>{"copyMatching", "update"}));
    }
}

TEST(KeysTest, WhateverCallFailsInWhateverOperationTheKeyIsTheOldOneOrTheNewOne) {
    const struct {
        const char* name;
        std::function<Keys(SecretStore&)> run;
        bool makesNewKey;
    } operations[] = {{"loadOrGenerate", [](SecretStore& store) { return Keys::loadOrGenerate(store); }, false},
                      {"regenerate", [](SecretStore& store) { return Keys::regenerate(store); }, true},
                      {"replace", [](SecretStore& store) { return Keys::replace(twoText, store); }, true}};
    for (const auto& operation : operations) {
        for (const SecretItem& place :
             {presentItem(oneText), synchronisedItem(oneText), synchronisedItem(oneText, group), labelledItem(oneText),
              labelledItem(oneText, group)}) {
            for (const SecretStatus status : failures) {
                for (std::size_t call = 1;; ++call) {
                    MemorySecretStore store;
                    store.groups = {{group}};
                    store.items.push_back(place);
                    store.failCall(call, status);
                    std::string expected = oneText;
                    const std::string end = outcome([&] {
                        const Keys keys = operation.run(store);
                        if (operation.makesNewKey) expected = Nacl::hex(keys.secretKey.view());
                    });
                    const bool hasFailed = store.calls.size() >= call;
                    store.failNone();
                    const auto found = Keys::load(store);
                    ASSERT_TRUE(found) << operation.name << ", call " << call << ", " << status;
                    EXPECT_EQ(Nacl::hex(found->secretKey.view()), expected)
                        << operation.name << ", call " << call << ", " << status << ": " << end;
                    if (!hasFailed) break;
                    ASSERT_LT(call, 20u);
                }
            }
        }
    }
}

TEST(KeysTest, TheReasonOfAFailureIsTheStoresWordsWhereItHasSome) {
    EXPECT_EQ(KeysError::securityError(-25293, "no entry").reason(), "no entry");
    EXPECT_EQ(KeysError::securityError(-25293, "").reason(), "The secret store failed:  (-25293)");
    EXPECT_EQ(KeysError::badKeyFormat("1").reason(), "The text is no valid secret key");
}

TEST(KeysTest, SavingTheFirstKeyThatFailsAtAnyCallStoresNothing) {
    for (std::size_t call = 1; call <= 2; ++call) {  // search, add
        MemorySecretStore store;
        store.failCall(call, SecretStatuses::authFailed);
        EXPECT_EQ(outcome([&] { keysOf(1).save(store); }), "security -25293");
        EXPECT_TRUE(store.items.empty());
    }
}

TEST(KeysTest, AnItemThatAppearsBetweenSearchAndAddIsUpdated) {
    MemorySecretStore store;
    store.between = [&](std::size_t call) {
        if (call == 2) store.put(twoText);
    };
    keysOf(0x11).save(store);
    EXPECT_EQ(store.calls, (std::vector<std::string>{"copyMatching", "add", "update"}));
    EXPECT_EQ(store.items, (std::vector{presentItem(oneText)}));
}

TEST(KeysTest, AnUpdateAfterALostRaceThatFailsIsRaised) {
    MemorySecretStore store;
    store.between = [&](std::size_t call) {
        if (call == 2) store.put(twoText);
    };
    store.failCall(3, SecretStatuses::authFailed);
    EXPECT_EQ(outcome([&] { keysOf(0x11).save(store); }), "security -25293");
    EXPECT_EQ(store.items, (std::vector{presentItem(twoText)}));
}

TEST(KeysTest, AnItemThatVanishesBetweenSearchAndUpdateIsAFailure) {
    MemorySecretStore store;
    store.put(twoText);
    store.between = [&](std::size_t call) {
        if (call == 2) store.items.clear();
    };
    EXPECT_EQ(outcome([&] { keysOf(0x11).save(store); }), "security -25300");
}

TEST(KeysTest, KeysFromTextTakeEitherCaseAndAreStoredInLower) {
    const std::string lower = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
    const std::string upper = "0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF";
    EXPECT_EQ(Keys(lower), Keys(upper));
    MemorySecretStore store;
    Keys::replace(upper, store);
    EXPECT_EQ(store.items, (std::vector{presentItem(lower)}));
}

TEST(KeysTest, TextThatIsNoKeyIsRefusedWithItselfAsPayload) {
    MemorySecretStore store;
    store.put(oneText);
    for (const std::string& bad :
         {std::string(), std::string(62, 'a'), std::string(63, 'a'), std::string(65, 'a'), std::string(63, 'a') + "g",
          std::string(63, 'a') + " ", std::string(62, 'a') + "ä", std::string(128, 'a')}) {
        for (const bool isReplacing : {false, true}) {
            try {
                if (isReplacing)
                    Keys::replace(bad, store);
                else
                    Keys keys(bad);
                ADD_FAILURE() << bad;
            } catch (const KeysError& error) {
                EXPECT_EQ(error.code, KeysError::Code::badKeyFormat);
                EXPECT_EQ(error.payload(), bad);
            }
        }
    }
    EXPECT_TRUE(store.calls.empty());
    EXPECT_EQ(store.items, (std::vector{presentItem(oneText)}));
}

TEST(KeysTest, ThePayloadIsInNoMessageAndInNoLog) {
    LogLines log;
    MemorySecretStore store;
    const std::string nearlyAKey = std::string(62, 'a') + "bq";
    try {
        Keys::replace(nearlyAKey, store);
        FAIL();
    } catch (const std::exception& error) {
        const std::string text = error.what();
        EXPECT_FALSE(text.empty());
        for (std::size_t i = 0; i + 4 <= nearlyAKey.size(); ++i)
            EXPECT_EQ(text.find(nearlyAKey.substr(i, 4)), std::string::npos);
    }
    EXPECT_TRUE(log.take().empty());
}

TEST(KeysTest, AStatusIsToldInTheStoresWords) {
    MemorySecretStore store;
    store.failAll(SecretStatuses::interactionNotAllowed);
    try {
        (void)Keys::load(store);
        FAIL();
    } catch (const KeysError& error) {
        EXPECT_STREQ(error.what(), "The secret store failed: status -25308 (-25308)");
        EXPECT_EQ(error.payload(), "");
    }
}

TEST(KeysTest, BothPlacesOfTheLabelledItemAreTried) {
    MemorySecretStore store;
    store.groups = {{group}};
    store.items.push_back(labelledItem("no key"));
    store.items.push_back(labelledItem(oneText, group));
    EXPECT_EQ(Nacl::hex(Keys::load(store)->secretKey.view()), oneText);
    EXPECT_EQ(store.items, (std::vector{presentItem(oneText)}));
}

}  // namespace
