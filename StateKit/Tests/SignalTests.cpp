#include "StateKit/Signal.h"

#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport/LogLines.h"
#include "TestSupport/TestLoop.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Weather {
    int degrees = 0;
    std::string sky;

    bool operator==(const Weather&) const = default;
};

/// Sees only the degrees of the weather.
struct Degrees {
    using StateType = Weather;
    explicit Degrees(const Weather* weather) : degrees(weather ? weather->degrees : -1) {}

    int degrees;
    bool operator==(const Degrees&) const = default;
};

/// Keeps what it is told.
template <class Value>
struct Listener : SignalTarget {
    std::vector<Value> heard;

    void hear(const Value& value) { heard.push_back(value); }
};

/// Counts how often it is called.
struct Counter : SignalTarget {
    int count = 0;

    void called() { ++count; }
};

struct SignalTest : testing::Test {
    TestLoop loop;
    Signal<int> numbers{loop};
    Signal<Weather> weather{loop};
    Signal<NoValue> bell{loop};

    void subscribe(Listener<int>& listener) { numbers.subscribe(listener, &Listener<int>::hear); }
};

TEST_F(SignalTest, EverySubscriberIsToldInTheOrderOfSubscription) {
    std::vector<std::string> order;
    Listener<int> a, b;
    numbers.subscribe(b, [&](Listener<int>&, const int& value) { order.push_back("b" + std::to_string(value)); });
    numbers.subscribe(a, [&](Listener<int>&, const int& value) { order.push_back("a" + std::to_string(value)); });
    numbers.send(1);
    numbers.send(2);
    EXPECT_THAT(order, ElementsAre("b1", "a1", "b2", "a2"));
}

TEST_F(SignalTest, SubscribingDeliversNothing) {
    Listener<int> listener;
    numbers.send(1);
    subscribe(listener);
    EXPECT_THAT(listener.heard, IsEmpty());
}

TEST_F(SignalTest, ASendToOneFromAnotherThreadIsDeliveredOnTheMainThreadIfTheTargetStillLives) {
    Listener<int> listener;
    auto gone = std::make_unique<Listener<int>>();
    subscribe(listener);
    numbers.subscribe(*gone, [](Listener<int>&, const int&) { FAIL(); });
    std::thread([&] {
        numbers.send(1, listener);
        numbers.send(2, *gone);
    }).join();
    EXPECT_THAT(listener.heard, IsEmpty());
    gone.reset();
    loop.run();
    EXPECT_THAT(listener.heard, ElementsAre(1));
}

TEST_F(SignalTest, ATargetThatSubscribesTwiceKeepsItsFirstActionAndIsLogged) {
    LogLines log;
    Listener<int> listener;
    subscribe(listener);
    numbers.subscribe(listener, [](Listener<int>&, const int&) { FAIL(); });
    EXPECT_EQ(numbers.entryCount(), 1u);
    numbers.send(1);
    EXPECT_THAT(listener.heard, ElementsAre(1));
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0], testing::StartsWith("error StateKit/Signal: Failed to subscribe "));
    EXPECT_THAT(lines[0], testing::EndsWith(" twice"));
    EXPECT_THAT(lines[0], testing::HasSubstr("Listener"));
}

TEST_F(SignalTest, TwiceCountsAcrossTheKindsOfSubscription) {
    LogLines log;
    Listener<Degrees> listener;
    weather.subscribeSubset<Degrees>(listener, &Listener<Degrees>::hear);
    weather.subscribe(listener, [](Listener<Degrees>&, const Weather&) { FAIL(); });
    weather.subscribeChanges(listener, std::tuple{&Weather::sky}, [](Listener<Degrees>&, const Weather&) { FAIL(); });
    weather.send({1, "blue"});
    EXPECT_EQ(listener.heard.size(), 1u);
    EXPECT_EQ(log.take().size(), 2u);
}

TEST_F(SignalTest, AFailedSubscriptionDoesNotRemoveTheDead) {
    LogLines log;
    Listener<int> listener;
    subscribe(listener);
    {
        Listener<int> dying;
        subscribe(dying);
    }
    subscribe(listener);
    EXPECT_EQ(numbers.entryCount(), 2u);
}

TEST_F(SignalTest, ADeadTargetIsNotToldAndGoesWithTheNextSubscription) {
    Listener<int> listener, later;
    auto dying = std::make_unique<Listener<int>>();
    subscribe(listener);
    subscribe(*dying);
    dying.reset();
    numbers.send(1);
    EXPECT_EQ(numbers.entryCount(), 2u);
    subscribe(later);
    EXPECT_EQ(numbers.entryCount(), 2u);
    EXPECT_THAT(listener.heard, ElementsAre(1));
}

TEST_F(SignalTest, ASendToTheDeadCallsNothingAndKeepsTheirEntries) {
    {
        Listener<int> a, b;
        subscribe(a);
        subscribe(b);
    }
    EXPECT_FALSE(numbers.hasSubscribers());
    numbers.send(1);
    EXPECT_EQ(numbers.entryCount(), 2u);
}

TEST_F(SignalTest, ANewObjectInTheMemoryOfADeadOneIsNotTakenForIt) {
    LogLines log;
    alignas(Listener<int>) std::byte memory[sizeof(Listener<int>)];
    auto* first = new (memory) Listener<int>;
    subscribe(*first);
    first->~Listener();
    auto* second = new (memory) Listener<int>;
    numbers.send(1);
    numbers.send(2, *second);
    EXPECT_THAT(second->heard, IsEmpty());
    subscribe(*second);
    EXPECT_THAT(log.take(), IsEmpty());
    numbers.send(3);
    EXPECT_THAT(second->heard, ElementsAre(3));
    second->~Listener();
}

TEST_F(SignalTest, UnsubscribingRemovesTheTargetAndTheDead) {
    Listener<int> listener, leaving, stranger;
    subscribe(listener);
    subscribe(leaving);
    {
        Listener<int> dying;
        subscribe(dying);
    }
    numbers.unsubscribe(leaving);
    EXPECT_EQ(numbers.entryCount(), 1u);
    numbers.send(1);
    EXPECT_THAT(leaving.heard, IsEmpty());
    EXPECT_THAT(listener.heard, ElementsAre(1));
    numbers.unsubscribe(stranger);
    EXPECT_EQ(numbers.entryCount(), 1u);
    subscribe(leaving);
    numbers.send(2);
    EXPECT_THAT(leaving.heard, ElementsAre(2));
}

TEST_F(SignalTest, ATargetThatDiesInTheMiddleOfADeliveryIsNotTold) {
    Listener<int> killer;
    auto victim = std::make_unique<Listener<int>>();
    bool wasTold = false;
    numbers.subscribe(killer, [&](Listener<int>&, const int&) { victim.reset(); });
    numbers.subscribe(*victim, [&](Listener<int>&, const int&) { wasTold = true; });
    numbers.send(1);
    EXPECT_FALSE(wasTold);
}

TEST_F(SignalTest, ATargetMayDieInItsOwnAction) {
    auto listener = std::make_unique<Listener<int>>();
    const std::string kept = "captured by the action and used after the death";
    std::string seen;
    numbers.subscribe(*listener, [&listener, &seen, kept](Listener<int>&, const int&) {
        listener.reset();
        seen = kept;
    });
    numbers.send(1);
    EXPECT_EQ(seen, kept);
}

TEST_F(SignalTest, WhoSubscribesInTheMiddleOfADeliveryHearsOnlyTheNext) {
    Listener<int> listener, late;
    numbers.subscribe(listener, [&](Listener<int>&, const int& value) {
        if (value == 1) subscribe(late);
    });
    numbers.send(1);
    EXPECT_THAT(late.heard, IsEmpty());
    numbers.send(2);
    EXPECT_THAT(late.heard, ElementsAre(2));
}

TEST_F(SignalTest, WhoIsUnsubscribedInTheMiddleOfADeliveryStillHearsThisOne) {
    Listener<int> listener, leaving;
    numbers.subscribe(listener, [&](Listener<int>&, const int&) { numbers.unsubscribe(leaving); });
    subscribe(leaving);
    numbers.send(1);
    EXPECT_THAT(leaving.heard, ElementsAre(1));
    numbers.send(2);
    EXPECT_THAT(leaving.heard, ElementsAre(1));
}

TEST_F(SignalTest, ATargetMayUnsubscribeItselfInItsAction) {
    Listener<int> listener;
    numbers.subscribe(listener, [&](Listener<int>& self, const int& value) {
        numbers.unsubscribe(self);
        self.heard.push_back(value);
    });
    numbers.send(1);
    numbers.send(2);
    EXPECT_THAT(listener.heard, ElementsAre(1));
}

TEST_F(SignalTest, ANestedSendCompletesBeforeTheOuterGoesOn) {
    Listener<int> nesting, after;
    numbers.subscribe(nesting, [&](Listener<int>& self, const int& value) {
        self.heard.push_back(value);
        if (value == 1) numbers.send(2);
    });
    subscribe(after);
    numbers.send(1);
    EXPECT_THAT(nesting.heard, ElementsAre(1, 2));
    EXPECT_THAT(after.heard, ElementsAre(2, 1));
}

TEST_F(SignalTest, ASubsetSubscriberNeverSeesTheOlderSubsetAfterTheNewerOfANestedSend) {
    Listener<int> nesting;
    Listener<Degrees> after;
    weather.subscribe(nesting, [&](Listener<int>&, const Weather& value) {
        if (value.degrees == 1) weather.send({2, ""});
    });
    std::vector<int> degrees;
    weather.subscribeSubset<Degrees>(
        after, [&](Listener<Degrees>&, const Degrees& value) { degrees.push_back(value.degrees); });
    weather.send({1, ""});
    EXPECT_THAT(degrees, ElementsAre(2, 2));
}

TEST_F(SignalTest, EveryoneIsFilteredBeforeTheFirstActionRuns) {
    // The nested send finds the memo already at 1 and does not fire for the same degrees again.
    Listener<int> nesting;
    Listener<Degrees> after;
    weather.subscribe(nesting, [&](Listener<int>&, const Weather& value) {
        if (value.sky.empty()) weather.send({1, "blue"});
    });
    weather.subscribeSubset<Degrees>(after, &Listener<Degrees>::hear);
    weather.send({1, ""});
    EXPECT_EQ(after.heard.size(), 1u);
}

TEST_F(SignalTest, AValueThatTheActionChangesAtItsSourceIsDeliveredAsItWasSent) {
    int source = 1;
    Listener<int> changing, after;
    numbers.subscribe(changing, [&](Listener<int>&, const int&) { source = 2; });
    subscribe(after);
    numbers.send(source);
    EXPECT_THAT(after.heard, ElementsAre(1));
}

TEST_F(SignalTest, TheSignalMayDieInTheMiddleOfADelivery) {
    auto dying = std::make_unique<Signal<int>>(loop);
    Listener<int> killer, after;
    dying->subscribe(killer, [&](Listener<int>&, const int&) { dying.reset(); });
    dying->subscribe(after, &Listener<int>::hear);
    dying->send(1);
    EXPECT_THAT(after.heard, ElementsAre(1));
}

TEST_F(SignalTest, ASendToOneReachesNobodyElse) {
    Listener<int> a, b;
    subscribe(a);
    subscribe(b);
    numbers.send(1, b);
    EXPECT_THAT(a.heard, IsEmpty());
    EXPECT_THAT(b.heard, ElementsAre(1));
}

TEST_F(SignalTest, ASubsetSentToOneFiresOnceForTheSameState) {
    Listener<Degrees> listener;
    weather.subscribeSubset<Degrees>(listener, &Listener<Degrees>::hear);
    weather.send({1, "blue"}, listener);
    weather.send({1, "blue"}, listener);
    weather.send({1, "grey"}, listener);
    EXPECT_EQ(listener.heard.size(), 1u);
}

TEST_F(SignalTest, ASendToOneLeavesTheMemosOfOthers) {
    Listener<Degrees> a, b;
    weather.subscribeSubset<Degrees>(a, &Listener<Degrees>::hear);
    weather.subscribeSubset<Degrees>(b, &Listener<Degrees>::hear);
    weather.send({1, ""}, a);
    weather.send({1, ""});
    EXPECT_EQ(a.heard.size(), 1u);
    EXPECT_EQ(b.heard.size(), 1u);
}

TEST_F(SignalTest, SubsetSubscribersHearOnlyChangesOfTheirSubset) {
    Listener<Degrees> listener;
    weather.subscribeSubset<Degrees>(listener, &Listener<Degrees>::hear);
    for (const char* sky : {"blue", "grey", "black", "blue"}) weather.send({5, sky});
    weather.send({6, "blue"});
    weather.send({5, "blue"});
    ASSERT_EQ(listener.heard.size(), 3u);
    EXPECT_EQ(listener.heard[1].degrees, 6);
}

TEST_F(SignalTest, DetectorsHearTheFirstValueAndThenOnlyChangesOfTheirAspects) {
    Listener<Weather> listener;
    weather.subscribeChanges(listener,
                             std::tuple{&Weather::sky, [](const Weather& value) { return value.degrees / 10; }},
                             &Listener<Weather>::hear);
    weather.send({1, "blue"});
    weather.send({2, "blue"});
    weather.send({2, "grey"});
    weather.send({12, "grey"});
    weather.send({13, "grey"});
    EXPECT_THAT(listener.heard, ElementsAre(Weather{1, "blue"}, Weather{2, "grey"}, Weather{12, "grey"}));
}

TEST_F(SignalTest, DetectorsCompareWithTheLastValueAlsoIfItDidNotFire) {
    // No step is larger than 2, so the detector sees no leap; compared with the 1, it would see one at 4.
    Listener<Weather> listener;
    ChangeDetector<Weather> leap{[](const Weather& old, const Weather& now) { return now.degrees - old.degrees > 2; }};
    SignalSubscriberWithDetectors<Listener<Weather>, Weather> subscriber(listener, {leap}, &Listener<Weather>::hear);
    for (int degrees : {1, 2, 4, 6}) {
        const Weather value{degrees, ""};
        EXPECT_EQ(subscriber.shouldFire(AnyValue(value)), degrees == 1) << degrees;
    }
}

TEST_F(SignalTest, NoDetectorsFireForTheFirstValueAndNeverAgain) {
    Listener<Weather> listener;
    weather.subscribeChanges(listener, std::tuple{}, &Listener<Weather>::hear);
    weather.send({1, "blue"});
    weather.send({2, "grey"});
    EXPECT_EQ(listener.heard.size(), 1u);
}

TEST_F(SignalTest, AValueOfAnotherTypeIsDroppedInSilence) {
    LogLines log;
    Listener<Weather> listener;
    SignalSubscriberWithTarget<Listener<Weather>, Weather> plain(listener, &Listener<Weather>::hear);
    const std::string foreign = "foreign";
    EXPECT_TRUE(plain.shouldFire(AnyValue(foreign)));
    plain.fire(AnyValue(foreign));
    SignalSubscriberWithSubset<Listener<Weather>, Degrees> subset(listener,
                                                                  [](Listener<Weather>&, const Degrees&) { FAIL(); });
    EXPECT_FALSE(subset.shouldFire(AnyValue(foreign)));
    subset.fire(AnyValue(foreign));
    SignalSubscriberWithDetectors<Listener<Weather>, Weather> detectors(listener, {}, &Listener<Weather>::hear);
    EXPECT_FALSE(detectors.shouldFire(AnyValue(foreign)));
    detectors.fire(AnyValue(foreign));
    EXPECT_THAT(listener.heard, IsEmpty());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(SignalTest, HasTargetIsTrueForTheLiveTargetAndForNullOnceItIsGone) {
    auto target = std::make_unique<Counter>();
    Counter stranger;
    VoidSignalSubscriber<Counter> subscriber(*target, &Counter::called);
    const SignalTarget* identity = target.get();
    EXPECT_TRUE(subscriber.hasTarget(identity));
    EXPECT_FALSE(subscriber.hasTarget(&stranger));
    EXPECT_FALSE(subscriber.hasTarget(nullptr));
    target.reset();
    EXPECT_FALSE(subscriber.hasTarget(identity));
    EXPECT_TRUE(subscriber.hasTarget(nullptr));
}

TEST_F(SignalTest, ASignalWithoutAValueCallsItsActions) {
    Counter a, b;
    bell.subscribe(a, &Counter::called);
    bell.subscribe(b, [](Counter& self) { self.count += 10; });
    bell.send();
    bell.send(a);
    EXPECT_EQ(a.count, 2);
    EXPECT_EQ(b.count, 10);
}

TEST_F(SignalTest, ACopyHasAListOfItsOwn) {
    Listener<int> a, b;
    subscribe(a);
    Signal<int> copy = numbers;
    copy.subscribe(b, &Listener<int>::hear);
    numbers.send(1);
    copy.send(2);
    EXPECT_THAT(a.heard, ElementsAre(1, 2));
    EXPECT_THAT(b.heard, ElementsAre(2));
}

TEST_F(SignalTest, CopiesShareTheMemosOfTheirSubscribers) {
    Listener<Degrees> listener;
    weather.subscribeSubset<Degrees>(listener, &Listener<Degrees>::hear);
    const Signal<Weather> copy = weather;
    weather.send({1, ""});
    copy.send({1, ""});
    EXPECT_EQ(listener.heard.size(), 1u);
}

TEST_F(SignalTest, ACopyOfATargetIsAnotherTarget) {
    Listener<int> listener;
    subscribe(listener);
    Listener<int> copy = listener;
    numbers.send(1);
    EXPECT_THAT(copy.heard, IsEmpty());
    subscribe(copy);
    numbers.send(2);
    EXPECT_THAT(copy.heard, ElementsAre(2));
    copy = listener;
    numbers.send(3);
    EXPECT_THAT(copy.heard, ElementsAre(1, 2, 3));
}

TEST_F(SignalTest, ASendFromAnotherThreadIsDeliveredByTheLoopInTheOrderOfTheSends) {
    Listener<int> listener;
    subscribe(listener);
    std::thread sender([&] {
        numbers.send(1);
        numbers.send(2);
        numbers.send(3);
    });
    sender.join();
    EXPECT_THAT(listener.heard, IsEmpty());
    loop.run();
    EXPECT_THAT(listener.heard, ElementsAre(1, 2, 3));
}

TEST_F(SignalTest, ASendFromAnotherThreadGoesToTheListAsItWasThen) {
    Listener<int> early, late;
    subscribe(early);
    std::thread([&] { numbers.send(1); }).join();
    subscribe(late);
    numbers.unsubscribe(early);
    loop.run();
    EXPECT_THAT(early.heard, ElementsAre(1));
    EXPECT_THAT(late.heard, IsEmpty());
}

TEST_F(SignalTest, ATargetThatDiesBeforeAPostedDeliveryIsNotTold) {
    bool wasTold = false;
    auto listener = std::make_unique<Listener<int>>();
    numbers.subscribe(*listener, [&](Listener<int>&, const int&) { wasTold = true; });
    std::thread([&] { numbers.send(1); }).join();
    listener.reset();
    loop.run();
    EXPECT_FALSE(wasTold);
}

TEST_F(SignalTest, HasSubscribersOnlyWhileOneLives) {
    EXPECT_FALSE(numbers.hasSubscribers());
    {
        Listener<int> listener;
        subscribe(listener);
        EXPECT_TRUE(numbers.hasSubscribers());
    }
    EXPECT_FALSE(numbers.hasSubscribers());
}

struct Announcer {
    virtual ~Announcer() = default;
    virtual int announce() = 0;
};
struct Speaker : Counter, Announcer {
    int announce() override { return 42; }
};

TEST(WeakTest, KnowsWhenItsObjectHasGone) {
    auto speaker = std::make_unique<Speaker>();
    const Weak<Speaker> weak = speaker.get();
    const Weak<Announcer> announcer = speaker.get();
    EXPECT_EQ(weak.get(), speaker.get());
    EXPECT_EQ(announcer->announce(), 42);
    EXPECT_TRUE(bool(weak));
    speaker.reset();
    EXPECT_EQ(weak.get(), nullptr);
    EXPECT_EQ(announcer.get(), nullptr);
    EXPECT_FALSE(bool(announcer));
}

TEST(WeakTest, OfNothingIsNothing) {
    EXPECT_EQ(Weak<Counter>().get(), nullptr);
    EXPECT_EQ(Weak<Counter>(nullptr).get(), nullptr);
    EXPECT_EQ(Weak<Counter>(static_cast<Counter*>(nullptr)).get(), nullptr);
}

}  // namespace
