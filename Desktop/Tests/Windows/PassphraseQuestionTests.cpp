#include "DesktopKit/PassphraseQuestion.h"

#include "TestSupport/TestLoop.h"

#include <gtest/gtest.h>

#include <future>
#include <optional>
#include <string>
#include <thread>

namespace {

using Reason = SealedFileStore::Reason;

std::string text(const std::optional<Passphrase>& passphrase) {
    return passphrase ? std::string(passphrase->view().begin(), passphrase->view().end()) : "nothing";
}

class PassphraseQuestionTest : public testing::Test {
protected:
    /// Asks on another thread.
    std::future<std::string> askElsewhere() {
        return std::async(std::launch::async, [this] { return text(question.ask(Reason::existingFile)); });
    }
    /// Runs the loop until the question was put that many times.
    void runUntilPut(int times) {
        while (puts < times) {
            loop.run();
            std::this_thread::yield();
        }
    }

    TestLoop loop;
    int puts = 0;
    std::thread::id putOn;
    PassphraseQuestion question{loop, [this](Reason) {
                                    ++puts;
                                    putOn = std::this_thread::get_id();
                                    return std::optional(Passphrase(std::string("secret")));
                                }};
};

TEST_F(PassphraseQuestionTest, OnTheMainThreadItIsPutAtOnce) {
    EXPECT_EQ(text(question.ask(Reason::newFile)), "secret");
    EXPECT_EQ(puts, 1);
}

TEST_F(PassphraseQuestionTest, FromAnotherThreadItIsPutOnTheMainThread) {
    auto answer = askElsewhere();
    runUntilPut(1);
    EXPECT_EQ(answer.get(), "secret");
    EXPECT_EQ(putOn, std::this_thread::get_id());
}

TEST_F(PassphraseQuestionTest, WhoWaitsForAnAnswerWhenItIsClosedGetsNothing) {
    auto answer = askElsewhere();
    question.close();
    EXPECT_EQ(answer.get(), "nothing");
    loop.run();
    EXPECT_EQ(puts, 0);
}

TEST_F(PassphraseQuestionTest, OnceClosedItIsPutToNobody) {
    question.close();
    EXPECT_EQ(text(question.ask(Reason::existingFile)), "nothing");
    EXPECT_EQ(askElsewhere().get(), "nothing");
    loop.run();
    EXPECT_EQ(puts, 0);
}

}  // namespace
