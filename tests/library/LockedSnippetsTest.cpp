#include "library/LockedSnippets.h"

#include "platform/fake/FakeOwnerAuth.h"
#include "platform/fake/FakeSecretStore.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

class LockedSnippetsTest : public ::testing::Test {
protected:
    LockedSnippetsTest() { bank.id = *Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"); }

    FakeSecretStore secrets;
    FakeOwnerAuth auth;
    LockedSnippets locked{secrets, auth};
    Snippet bank = Snippet::make();
    const std::pair<std::string, std::string> item{"com.quillet.app.locked",
                                                   "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"};
};

TEST_F(LockedSnippetsTest, LockingMovesTheContentIntoOneItemOrChangesNothing) {
    bank.content = "IBAN DE00 1234\nBIC XYZ";
    secrets.failure = "The keyring collection \"default\" is locked.";
    std::string error;
    EXPECT_FALSE(locked.lock(bank, error));
    EXPECT_EQ(error, *secrets.failure);
    EXPECT_TRUE(secrets.items.empty());

    secrets.failure.reset();
    auto stored = locked.lock(bank, error);
    ASSERT_TRUE(stored);
    Snippet expected = bank;
    expected.locked = true;
    expected.content = "";
    EXPECT_EQ(*stored, expected);
    EXPECT_EQ(secrets.items, (decltype(secrets.items){{item, bank.content}}));
    EXPECT_EQ(locked.deleteText(bank.id).status, SecretStatus::ok);
    EXPECT_EQ(locked.deleteText(bank.id).status, SecretStatus::missing);
}

TEST_F(LockedSnippetsTest, TheStoredTextIsReadOnlyOnceTheOwnerConfirmed) {
    EXPECT_EQ(locked.unlockForUse(bank, pasteReason(";hi")).snippet, bank); // not locked
    bank.locked = true;
    for (auto answer : {AuthResult::Outcome::refused, AuthResult::Outcome::unavailable}) {
        auth.answer = answer;
        Unlocked result = locked.unlockForUse(bank, pasteReason(";bank"));
        EXPECT_EQ(result.outcome, Unlocked::Outcome::refused);
        EXPECT_FALSE(result.snippet);
    }
    EXPECT_EQ(secrets.reads, 0);
    EXPECT_EQ(auth.reasons, (std::vector<std::string>(2, "paste \u201c;bank\u201d")));

    // A locked snippet that came from another computer has no item here.
    auth.answer = AuthResult::Outcome::ok;
    EXPECT_EQ(locked.unlockForUse(bank, pasteReason(";bank")).outcome, Unlocked::Outcome::missing);
    secrets.items[item] = "IBAN DE00 1234\nBIC XYZ";
    Unlocked result = locked.unlockForUse(bank, pasteReason(";bank"));
    ASSERT_EQ(result.outcome, Unlocked::Outcome::ok) << result.message;
    Snippet expected = bank;
    expected.content = "IBAN DE00 1234\nBIC XYZ";
    EXPECT_EQ(result.snippet, expected);
    secrets.failure = "The Secret Service is not available.";
    EXPECT_EQ(locked.unlockForUse(bank, pasteReason(";bank")).outcome, Unlocked::Outcome::failed);
}

} // namespace
} // namespace quillet
