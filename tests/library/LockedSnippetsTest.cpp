#include "library/LockedSnippets.h"

#include "platform/fake/FakeOwnerAuth.h"
#include "platform/fake/FakeSecretStore.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

class LockedSnippetsTest : public ::testing::Test {
protected:
    FakeSecretStore secrets;
    FakeOwnerAuth auth;
    LockedSnippets locked{secrets, auth};

    Snippet bank = [] {
        Snippet s = Snippet::make();
        s.id = *Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
        s.abbreviation = ";bank";
        s.locked = true;
        return s;
    }();

    void store(const std::string& text) {
        secrets.items[{"com.quillet.app.locked", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"}] = text;
    }
};

TEST_F(LockedSnippetsTest, AnUnlockedSnippetIsUsedAsItIsWithoutAsking) {
    Snippet plain = Snippet::make();
    plain.abbreviation = ";hi";
    plain.content = "Hello";
    Unlocked result = locked.unlockForUse(plain, pasteReason(";hi"));
    EXPECT_EQ(result.outcome, Unlocked::Outcome::ok);
    EXPECT_EQ(result.snippet, plain);
    EXPECT_TRUE(auth.reasons.empty());
    EXPECT_EQ(secrets.reads, 0);
}

TEST_F(LockedSnippetsTest, AConfirmedUnlockGivesTheStoredText) {
    store("IBAN DE00 1234\nBIC XYZ");
    Unlocked result = locked.unlockForUse(bank, pasteReason(bank.abbreviation));
    ASSERT_EQ(result.outcome, Unlocked::Outcome::ok) << result.message;
    ASSERT_TRUE(result.snippet);
    EXPECT_EQ(result.snippet->content, "IBAN DE00 1234\nBIC XYZ");
    EXPECT_EQ(result.snippet->abbreviation, ";bank");
    EXPECT_TRUE(result.snippet->locked);
    EXPECT_EQ(auth.reasons, std::vector<std::string>{"paste \u201c;bank\u201d"});
}

TEST_F(LockedSnippetsTest, NoTextWithoutConfirmationAndNothingIsReadBefore) {
    store("secret");
    for (auto answer : {AuthResult::Outcome::refused, AuthResult::Outcome::unavailable}) {
        auth.answer = answer;
        Unlocked result = locked.unlockForUse(bank, pasteReason(bank.abbreviation));
        EXPECT_EQ(result.outcome, Unlocked::Outcome::refused);
        EXPECT_FALSE(result.snippet);
        EXPECT_FALSE(result.message.empty());
    }
    EXPECT_EQ(secrets.reads, 0);
}

TEST_F(LockedSnippetsTest, AMissingItemOrAStoreErrorGivesNoTextAfterConfirmation) {
    // A locked snippet that came from another computer has no item here.
    Unlocked missing = locked.unlockForUse(bank, pasteReason(bank.abbreviation));
    EXPECT_EQ(missing.outcome, Unlocked::Outcome::missing);
    EXPECT_FALSE(missing.snippet);
    EXPECT_NE(missing.message.find("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"), std::string::npos);

    store("secret");
    secrets.failure = "The Secret Service is not available.";
    Unlocked failed = locked.unlockForUse(bank, pasteReason(bank.abbreviation));
    EXPECT_EQ(failed.outcome, Unlocked::Outcome::failed);
    EXPECT_FALSE(failed.snippet);
    EXPECT_EQ(failed.message, "The Secret Service is not available.");
    EXPECT_EQ(auth.reasons.size(), 2U);
}

TEST_F(LockedSnippetsTest, TextsLiveUnderTheServiceAndTheUpperCaseId) {
    ASSERT_TRUE(locked.writeText(bank.id, "first").ok());
    ASSERT_TRUE(locked.writeText(bank.id, "second").ok());
    ASSERT_EQ(secrets.items.size(), 1U);
    EXPECT_EQ(secrets.items.begin()->first,
              (std::pair<std::string, std::string>{"com.quillet.app.locked",
                                                   "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"}));
    EXPECT_EQ(locked.readText(bank.id).text, "second");

    EXPECT_EQ(locked.deleteText(bank.id).status, SecretStatus::ok);
    EXPECT_EQ(locked.deleteText(bank.id).status, SecretStatus::missing);
    EXPECT_EQ(locked.readText(bank.id).status, SecretStatus::missing);
}

TEST_F(LockedSnippetsTest, LockingMovesTheContentIntoTheStoreOrChangesNothing) {
    Snippet open = Snippet::make();
    open.abbreviation = ";pin";
    open.content = "4711";

    secrets.failure = "The keyring collection \"default\" is locked.";
    std::string error;
    EXPECT_FALSE(locked.lock(open, error));
    EXPECT_EQ(error, "The keyring collection \"default\" is locked.");
    EXPECT_TRUE(secrets.items.empty());

    secrets.failure.reset();
    auto result = locked.lock(open, error);
    ASSERT_TRUE(result);
    EXPECT_TRUE(result->locked);
    EXPECT_EQ(result->content, "");
    EXPECT_EQ(result->abbreviation, ";pin");
    EXPECT_EQ(locked.readText(open.id).text, "4711");

    Unlocked back = locked.unlockForUse(*result, pasteReason(";pin"));
    ASSERT_TRUE(back.snippet);
    EXPECT_EQ(back.snippet->content, "4711");
}

} // namespace
} // namespace quillet
