#include "VimbleKit/KeyAccess.h"

#include "StateKit/WorkerThread.h"
#include "TestSupport/MemorySecretStore.h"
#include "TestSupport/TestLoop.h"
#include "TestSupport/TestWorker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string oneText(64, '1');
const std::string twoText(64, '2');

std::string storedText(const MemorySecretStore& store) {
    if (store.items.size() != 1 || !store.items[0].data) return "(" + std::to_string(store.items.size()) + " items)";
    return {store.items[0].data->begin(), store.items[0].data->end()};
}

/// Notes the outcomes: the secret key, or the reason why there is none.
struct Listener : SignalTarget {
    std::vector<std::string> told;

    static void hear(Listener& self, const KeyAccess::Outcome& outcome) {
        const Keys* keys = std::get_if<Keys>(&outcome);
        self.told.push_back(keys != nullptr ? Nacl::hex(keys->secretKey.view())
                                            : std::get<KeysError>(outcome).reason());
    }
};

class KeyAccessTest : public testing::Test {
protected:
    KeyAccessTest() { store.put(oneText); }

    void finish() {
        worker.runAll();
        loop.run();
    }

    TestLoop loop;
    MemorySecretStore store;
    TestWorker worker;
    std::optional<KeyAccess> access{std::in_place, loop, store, worker};
    Listener listener;
};

TEST_F(KeyAccessTest, AnOperationIsDoneByTheWorkerAndToldByTheLoop) {
    access->loadOrGenerate(listener, Listener::hear);
    EXPECT_THAT(store.calls, IsEmpty());
    worker.runAll();
    EXPECT_FALSE(store.calls.empty());
    EXPECT_THAT(listener.told, IsEmpty());
    loop.run();
    EXPECT_THAT(listener.told, ElementsAre(oneText));
}

TEST_F(KeyAccessTest, OperationsAreDoneAndToldInTheirOrder) {
    access->loadOrGenerate(listener, Listener::hear);
    access->replace(twoText, listener, Listener::hear);
    access->loadOrGenerate(listener, Listener::hear);
    access->regenerate(listener, Listener::hear);
    finish();
    EXPECT_THAT(listener.told, ElementsAre(oneText, twoText, twoText, storedText(store)));
    EXPECT_NE(storedText(store), twoText);
}

TEST_F(KeyAccessTest, AFailureIsToldInTheWordsOfTheStore) {
    store.failAll(SecretStatuses::userCanceled);
    access->regenerate(listener, Listener::hear);
    access->replace(twoText, listener, Listener::hear);
    access->loadOrGenerate(listener, Listener::hear);
    finish();
    EXPECT_THAT(listener.told, ElementsAre("status -128", "status -128", "status -128"));
    EXPECT_EQ(storedText(store), oneText);
}

TEST_F(KeyAccessTest, ATextThatIsNoKeyIsRefusedWithoutBeingSaid) {
    const std::string bad = std::string(63, '1') + "x";
    access->replace(bad, listener, Listener::hear);
    finish();
    EXPECT_THAT(listener.told, ElementsAre("The text is no valid secret key"));
    EXPECT_EQ(storedText(store), oneText);
}

TEST_F(KeyAccessTest, WhatAnotherProgramHasStoredMeanwhileIsWhatIsTold) {
    access->loadOrGenerate(listener, Listener::hear);
    store.items.clear();
    store.put(twoText);
    finish();
    EXPECT_THAT(listener.told, ElementsAre(twoText));
}

TEST_F(KeyAccessTest, ATargetThatHasGoneIsToldNothingAndTheKeyIsWrittenAllTheSame) {
    {
        Listener gone;
        access->replace(twoText, gone, [](Listener&, const KeyAccess::Outcome&) { FAIL() << "it is gone"; });
    }
    access->loadOrGenerate(listener, Listener::hear);
    finish();
    EXPECT_EQ(storedText(store), twoText);
    EXPECT_THAT(listener.told, ElementsAre(twoText));
}

TEST_F(KeyAccessTest, AtTheEndWhatIsToBeWrittenIsWrittenAndNothingIsReadOrTold) {
    access->loadOrGenerate(listener, Listener::hear);
    access->replace(twoText, listener, Listener::hear);
    access->loadOrGenerate(listener, Listener::hear);
    access.reset();
    worker.step();
    EXPECT_THAT(store.calls, IsEmpty());
    worker.step();
    EXPECT_EQ(storedText(store), twoText);
    const auto calls = store.calls;
    finish();
    EXPECT_EQ(store.calls, calls);
    EXPECT_THAT(listener.told, IsEmpty());
}

TEST_F(KeyAccessTest, WhatIsWrittenOnceItIsAbandonedIsWrittenAndNotTold) {
    access->abandon();
    access->loadOrGenerate(listener, Listener::hear);
    access->replace(twoText, listener, Listener::hear);
    finish();
    EXPECT_EQ(storedText(store), twoText);
    EXPECT_EQ(store.calls, (std::vector<std::string>{"copyMatching", "update"}));
    EXPECT_THAT(listener.told, IsEmpty());
}

TEST_F(KeyAccessTest, ATargetMayBeginTheNextOperationOrEndEverything) {
    access->loadOrGenerate(listener, [this](Listener& self, const KeyAccess::Outcome&) {
        access->loadOrGenerate(self, [this](Listener& inner, KeyAccess::Outcome outcome) {
            access.reset();
            Listener::hear(inner, outcome);
        });
    });
    finish();
    EXPECT_THAT(listener.told, IsEmpty());
    finish();
    EXPECT_THAT(listener.told, ElementsAre(oneText));
    EXPECT_FALSE(access);
}

/// Notes the threads that call it.
class ThreadNotes : public MemorySecretStore {
public:
    ThreadNotes() {
        between = [this](std::size_t) { threads.insert(std::this_thread::get_id()); };
    }
    std::set<std::thread::id> threads;
};

TEST(KeyAccessOnAThreadTest, NoCallToTheStoreIsMadeByTheThreadThatAsks) {
    TestLoop loop;
    ThreadNotes store;
    Listener listener;
    {
        WorkerThread thread;
        KeyAccess access(loop, store, thread);
        access.loadOrGenerate(listener, Listener::hear);
        access.regenerate(listener, Listener::hear);
        access.replace(twoText, listener, Listener::hear);
        ASSERT_TRUE(thread.finish(std::chrono::minutes(1)));
        loop.run();
    }
    EXPECT_EQ(listener.told.size(), 3u);
    EXPECT_EQ(storedText(store), twoText);
    EXPECT_EQ(store.threads.size(), 1u);
    EXPECT_FALSE(store.threads.contains(std::this_thread::get_id()));
}

}  // namespace
