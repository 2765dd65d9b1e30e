#include "DesktopKit/UserSecrets.h"

#include "TestSupport/MemorySecretStore.h"
#include "TestSupport/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Reason = SealedFileStore::Reason;

/// A store that opens with the passphrase "right", and asks until it has been opened.
class AskingStore : public MemorySecretStore {
public:
    explicit AskingStore(SealedFileStore::AskPassphrase ask) : ask(std::move(ask)) {}

    Found copyMatching(const SecretQuery& query) override {
        if (!isOpen) {
            const auto answer = ask(Reason::existingFile);
            if (!answer) return {SecretStatuses::userCanceled, {}};
            const std::string text(answer->view().begin(), answer->view().end());
            if (text != "right") return {SecretStatuses::authFailed, {}};
            isOpen = true;
        }
        return MemorySecretStore::copyMatching(query);
    }

private:
    const SealedFileStore::AskPassphrase ask;
    bool isOpen = false;
};

class UserSecretsTest : public testing::Test {
protected:
    void make(std::optional<std::filesystem::path> file, std::optional<std::string> given = {}) {
        std::optional<Passphrase> passphrase;
        if (given) passphrase.emplace(std::move(*given));
        secrets = std::make_unique<UserSecrets>(
            UserSecretsEnvironment{.loop = loop,
                                   .makeStore =
                                       [this](const auto& chosen, SealedFileStore::AskPassphrase ask) {
                                           storeFile = chosen;
                                           auto made = std::make_unique<AskingStore>(std::move(ask));
                                           store = made.get();
                                           return made;
                                       },
                                   .askUser = [this](Reason, const std::filesystem::path& asked,
                                                     bool wasWrong) -> std::optional<Passphrase> {
                                       questions.push_back(asked.string() + (wasWrong ? " again" : ""));
                                       if (answers.empty()) return std::nullopt;
                                       std::string answer = answers.front();
                                       answers.erase(answers.begin());
                                       return Passphrase(std::move(answer));
                                   }},
            std::move(file), std::move(passphrase));
    }

    TestLoop loop;
    std::optional<std::filesystem::path> storeFile;
    AskingStore* store = nullptr;
    std::vector<std::string> questions;
    std::vector<std::string> answers;
    std::unique_ptr<UserSecrets> secrets;
};

TEST_F(UserSecretsTest, TheDesktopsKeeperIsNotUnlockedHere) {
    make(std::nullopt);
    EXPECT_TRUE(secrets->unlock());
    EXPECT_FALSE(storeFile);
    EXPECT_THAT(store->calls, IsEmpty());
    EXPECT_THAT(questions, IsEmpty());
}

TEST_F(UserSecretsTest, UnlockingPutsAFirstKeyIntoTheFile) {
    make("file");
    answers = {"right"};
    EXPECT_TRUE(secrets->unlock());
    EXPECT_EQ(storeFile, "file");
    EXPECT_EQ(&secrets->store(), store);
    EXPECT_EQ(store->items.size(), 1u);
    EXPECT_THAT(questions, ElementsAre("file"));
}

TEST_F(UserSecretsTest, AWrongAnswerIsAskedForAgainUntilItIsRight) {
    make("file");
    answers = {"wrong", "Right", "right"};
    EXPECT_TRUE(secrets->unlock());
    EXPECT_THAT(questions, ElementsAre("file", "file again", "file again"));
}

TEST_F(UserSecretsTest, AGivenPassphraseIsTriedFirstAndOnce) {
    make("file", "right");
    EXPECT_TRUE(secrets->unlock());
    EXPECT_THAT(questions, IsEmpty());

    make("file", "wrong");
    answers = {"wrong", "right"};
    EXPECT_TRUE(secrets->unlock());
    EXPECT_THAT(questions, ElementsAre("file again", "file again"));
}

TEST_F(UserSecretsTest, AUserWhoGivesUpIsAskedNoFurther) {
    make("file");
    answers = {"wrong"};
    EXPECT_FALSE(secrets->unlock());
    EXPECT_THAT(questions, ElementsAre("file", "file again"));
}

TEST_F(UserSecretsTest, AnotherTroubleIsLeftToWhoeverReadsTheKeyNext) {
    make("file", "right");
    store->failAll(SecretStatuses::decode);
    EXPECT_TRUE(secrets->unlock());
    EXPECT_THAT(questions, IsEmpty());
}

TEST_F(UserSecretsTest, OnceItIsClosedNobodyIsAsked) {
    make("file");
    answers = {"right"};
    secrets->close();
    EXPECT_FALSE(secrets->unlock());
    EXPECT_THAT(questions, IsEmpty());
}

}  // namespace
