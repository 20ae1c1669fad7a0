#include "platform/linux/SecretServiceStore.h"

#include "library/LockedSnippets.h"
#include "platform/fake/FakeOwnerAuth.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <libsecret/secret.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

// These tests talk to a real gnome-keyring: ctest starts them under dbus-run-session through
// with-keyring.sh, and the items go to the keyring's in-memory "session" collection.
namespace quillet {
namespace {

// Another program's items: the same attributes under a schema name of its own.
const SecretSchema otherTool = {
    "org.example.OtherTool",
    SECRET_SCHEMA_NONE,
    {
        {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
        {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
        {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
    },
    0,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

// A look-up by attributes alone, as command-line secret tools do it.
const SecretSchema byAttributes = {
    "org.example.AnyTool",
    SECRET_SCHEMA_DONT_MATCH_NAME,
    {
        {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
        {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
        {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
    },
    0,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

// The items of every collection with service and account, found independently of the store.
int countItems(const std::string& service, const std::string& account) {
    GHashTable* attributes = g_hash_table_new(g_str_hash, g_str_equal);
    g_hash_table_insert(attributes, const_cast<char*>("service"),
                        const_cast<char*>(service.c_str()));
    g_hash_table_insert(attributes, const_cast<char*>("account"),
                        const_cast<char*>(account.c_str()));
    GError* error = nullptr;
    GList* items = secret_service_search_sync(nullptr, nullptr, attributes, SECRET_SEARCH_ALL,
                                              nullptr, &error);
    g_hash_table_unref(attributes);
    if (error != nullptr) {
        ADD_FAILURE() << error->message;
        g_error_free(error);
        return -1;
    }
    int count = static_cast<int>(g_list_length(items));
    g_list_free_full(items, g_object_unref);
    return count;
}

// Stores an item as another program would, with the schema it uses.
void storeAsAnotherTool(const SecretSchema& schema, const std::string& service,
                        const std::string& account, const std::string& text) {
    GError* error = nullptr;
    secret_password_store_sync(&schema, SECRET_COLLECTION_SESSION, "other tool", text.c_str(),
                               nullptr, &error, "service", service.c_str(), "account",
                               account.c_str(), nullptr);
    if (error != nullptr) {
        ADD_FAILURE() << error->message;
        g_error_free(error);
    }
}

// What a plain attribute lookup finds, as a command-line secret tool would do it.
std::string lookUp(const std::string& service, const std::string& account) {
    GError* error = nullptr;
    gchar* found =
        secret_password_lookup_sync(&byAttributes, nullptr, &error, "service", service.c_str(),
                                    "account", account.c_str(), nullptr);
    std::string text = found != nullptr ? found : "(none)";
    secret_password_free(found);
    if (error != nullptr) {
        text = error->message;
        g_error_free(error);
    }
    return text;
}

class SecretServiceStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("QUILLET_TEST_KEYRING") == nullptr) {
            FAIL() << "no test keyring; run this test through ctest (with-keyring.sh)";
        }
    }

    SecretServiceStore store{SECRET_COLLECTION_SESSION};
    const std::string service = "com.quillet.test";
    const std::string account = Uuid::random().text();
};

TEST_F(SecretServiceStoreTest, WrittenTextReadsBackAndOtherToolsFindIt) {
    const std::string text = "Zeile 1\nZeile 2 \u2014 \u00fc\u00e9 \U0001F511";
    SecretResult written = store.write(service, account, text);
    ASSERT_TRUE(written.ok()) << written.error;

    SecretResult read = store.read(service, account);
    ASSERT_TRUE(read.ok()) << read.error;
    EXPECT_EQ(read.text, text);
    EXPECT_EQ(lookUp(service, account), text);

    ASSERT_TRUE(store.write(service, account, "").ok());
    read = store.read(service, account);
    EXPECT_EQ(read.status, SecretStatus::ok);
    EXPECT_EQ(read.text, "");
}

TEST_F(SecretServiceStoreTest, WritingAgainUpdatesTheOneItem) {
    ASSERT_TRUE(store.write(service, account, "first").ok());
    ASSERT_TRUE(store.write(service, account, "second").ok());
    EXPECT_EQ(countItems(service, account), 1);
    EXPECT_EQ(store.read(service, account).text, "second");

    // Another store object, as after a restart, still finds and updates the same item.
    SecretServiceStore later(SECRET_COLLECTION_SESSION);
    ASSERT_TRUE(later.write(service, account, "third").ok());
    EXPECT_EQ(countItems(service, account), 1);
    EXPECT_EQ(store.read(service, account).text, "third");
}

TEST_F(SecretServiceStoreTest, CopiesLeftByOtherWritersAreFoldedIntoOne) {
    storeAsAnotherTool(otherTool, service, account, "stale one");
    storeAsAnotherTool(byAttributes, service, account, "stale two");
    ASSERT_EQ(countItems(service, account), 2);
    SecretResult first = store.write(service, account, "mine");
    ASSERT_TRUE(first.ok()) << first.error;
    EXPECT_EQ(countItems(service, account), 1);
    EXPECT_EQ(store.read(service, account).text, "mine");
}

TEST_F(SecretServiceStoreTest, ItemsAreKeptApartByServiceAndAccount) {
    const std::string other = Uuid::random().text();
    ASSERT_TRUE(store.write(service, account, "a").ok());
    ASSERT_TRUE(store.write(service, other, "b").ok());
    ASSERT_TRUE(store.write("com.quillet.elsewhere", account, "c").ok());
    EXPECT_EQ(store.read(service, account).text, "a");
    EXPECT_EQ(store.read(service, other).text, "b");
    EXPECT_EQ(store.read("com.quillet.elsewhere", account).text, "c");

    EXPECT_EQ(store.remove(service, account).status, SecretStatus::ok);
    EXPECT_EQ(store.read(service, account).status, SecretStatus::missing);
    EXPECT_EQ(store.remove(service, account).status, SecretStatus::missing);
    EXPECT_EQ(countItems(service, account), 0);
    EXPECT_EQ(store.read(service, other).text, "b");
    EXPECT_EQ(store.read("com.quillet.elsewhere", account).text, "c");
}

constexpr std::string_view noBusChild = "--without-session-bus";

// Run in a child process whose session bus address leads nowhere: every operation fails with a
// message, and nothing throws or hangs.
int checkWithoutSessionBus() {
    SecretServiceStore store(SECRET_COLLECTION_SESSION);
    const std::string account = Uuid::random().text();
    int failures = 0;
    for (const SecretResult& r :
         {store.read("com.quillet.test", account), store.write("com.quillet.test", account, "x"),
          store.remove("com.quillet.test", account)}) {
        if (r.status != SecretStatus::failed ||
            r.error.find("The Secret Service is not available") == std::string::npos) {
            ++failures;
        }
    }
    return failures;
}

TEST_F(SecretServiceStoreTest, FailuresAreReportedNotThrown) {
    SecretServiceStore noCollection("quillet-no-such-collection");
    SecretResult result = noCollection.write(service, account, "x");
    EXPECT_EQ(result.status, SecretStatus::failed);
    EXPECT_NE(result.error.find("quillet-no-such-collection"), std::string::npos) << result.error;
    EXPECT_EQ(noCollection.read(service, account).status, SecretStatus::failed);
    EXPECT_EQ(countItems(service, account), 0);

    // A fresh process, since this one's bus connection is shared and already open.
    pid_t child = ::fork();
    if (child == 0) {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/quillet-test-bus", 1);
        ::unsetenv("DISPLAY");
        ::execl("/proc/self/exe", "test_SecretServiceStore", noBusChild.data(), nullptr);
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(SecretServiceStoreTest, LockedSnippetsKeepTheirTextUnderTheirUpperCaseId) {
    FakeOwnerAuth auth;
    LockedSnippets locked(store, auth);
    Snippet snippet = Snippet::make();
    snippet.abbreviation = ";pin";
    snippet.content = "4711";

    std::string error;
    auto stored = locked.lock(snippet, error);
    ASSERT_TRUE(stored) << error;
    EXPECT_EQ(stored->content, "");
    EXPECT_EQ(lookUp("com.quillet.app.locked", snippet.id.text()), "4711");
    EXPECT_EQ(countItems("com.quillet.app.locked", snippet.id.text()), 1);

    Unlocked unlocked = locked.unlockForUse(*stored, pasteReason(";pin"));
    ASSERT_TRUE(unlocked.snippet) << unlocked.message;
    EXPECT_EQ(unlocked.snippet->content, "4711");

    ASSERT_TRUE(locked.deleteText(snippet.id).ok());
    Unlocked gone = locked.unlockForUse(*stored, pasteReason(";pin"));
    EXPECT_EQ(gone.outcome, Unlocked::Outcome::missing);
}

} // namespace
} // namespace quillet

int main(int argc, char** argv) {
    if (argc == 2 && argv[1] == quillet::noBusChild) {
        return quillet::checkWithoutSessionBus();
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
