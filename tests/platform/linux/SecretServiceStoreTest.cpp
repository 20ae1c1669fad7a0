#include "platform/linux/SecretServiceStore.h"

#include "library/Uuid.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <libsecret/secret.h>

// These tests talk to a real gnome-keyring: ctest starts them under dbus-run-session through
// with-keyring.sh, and the items go to the keyring's in-memory "session" collection.
namespace quillet {
namespace {

// Items with a "service" and an "account", under a schema name of another program's.
SecretSchema schema(const char* name, SecretSchemaFlags flags) {
    SecretSchema s{};
    s.name = name;
    s.flags = flags;
    s.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
    s.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
    return s;
}

const SecretSchema otherTool = schema("org.example.OtherTool", SECRET_SCHEMA_NONE);
// A look-up by the attributes alone, whatever the schema, as command-line secret tools do it.
const SecretSchema byAttributes = schema("org.example.AnyTool", SECRET_SCHEMA_DONT_MATCH_NAME);

// The items of every collection with service and account, found independently of the store.
int countItems(const std::string& service, const std::string& account) {
    GError* error = nullptr;
    GList* items =
        secret_password_search_sync(&byAttributes, SECRET_SEARCH_ALL, nullptr, &error, "service",
                                    service.c_str(), "account", account.c_str(), nullptr);
    EXPECT_EQ(error, nullptr) << error->message;
    int count = static_cast<int>(g_list_length(items));
    g_list_free_full(items, g_object_unref);
    return count;
}

// What another program finds, or stores with a schema of its own.
std::string lookUp(const std::string& service, const std::string& account) {
    gchar* found =
        secret_password_lookup_sync(&byAttributes, nullptr, nullptr, "service", service.c_str(),
                                    "account", account.c_str(), nullptr);
    std::string text = found != nullptr ? found : "(none)";
    secret_password_free(found);
    return text;
}

class SecretServiceStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(std::getenv("QUILLET_TEST_KEYRING"), nullptr)
            << "no test keyring; run this test through ctest (with-keyring.sh)";
    }

    void storeAsAnotherTool(const SecretSchema& schema, const char* text) {
        ASSERT_TRUE(secret_password_store_sync(&schema, SECRET_COLLECTION_SESSION, "other tool",
                                               text, nullptr, nullptr, "service", service.c_str(),
                                               "account", account.c_str(), nullptr));
    }

    SecretServiceStore store{SECRET_COLLECTION_SESSION};
    const std::string service = "com.quillet.test";
    const std::string account = Uuid::random().text();
};

TEST_F(SecretServiceStoreTest, WritingAgainUpdatesTheOneItemThatOtherToolsFind) {
    const std::string text = "Zeile 1\nZeile 2 \u2014 \u00fc\u00e9 \U0001F511";
    SecretResult written = store.write(service, account, text);
    ASSERT_TRUE(written.ok()) << written.error;
    EXPECT_EQ(store.read(service, account).text, text);
    EXPECT_EQ(lookUp(service, account), text);

    ASSERT_TRUE(store.write(service, account, "").ok());
    EXPECT_EQ(countItems(service, account), 1);
    SecretResult read = store.read(service, account);
    EXPECT_TRUE(read.ok() && read.text.empty()) << read.error;
    // Another store object, as after a restart, still finds and updates the same item.
    ASSERT_TRUE(SecretServiceStore(SECRET_COLLECTION_SESSION).write(service, account, "2").ok());
    EXPECT_EQ(countItems(service, account), 1);
    EXPECT_EQ(store.read(service, account).text, "2");

    // Copies left by other writers are folded into the one item.
    storeAsAnotherTool(otherTool, "stale one");
    storeAsAnotherTool(byAttributes, "stale two");
    ASSERT_EQ(countItems(service, account), 3);
    ASSERT_TRUE(store.write(service, account, "mine").ok());
    EXPECT_EQ(countItems(service, account), 1);
    EXPECT_EQ(store.read(service, account).text, "mine");
}

TEST_F(SecretServiceStoreTest, ItemsAreKeptApartByServiceAndAccountAndRemovedAlone) {
    const std::string other = Uuid::random().text();
    ASSERT_TRUE(store.write(service, account, "a").ok());
    ASSERT_TRUE(store.write(service, other, "b").ok());
    ASSERT_TRUE(store.write("com.quillet.elsewhere", account, "c").ok());
    EXPECT_EQ(store.read(service, account).text, "a");
    EXPECT_EQ(store.remove(service, account).status, SecretStatus::ok);
    EXPECT_EQ(store.read(service, account).status, SecretStatus::missing);
    EXPECT_EQ(store.remove(service, account).status, SecretStatus::missing);
    EXPECT_EQ(countItems(service, account), 0);
    EXPECT_EQ(store.read(service, other).text, "b");
    EXPECT_EQ(store.read("com.quillet.elsewhere", account).text, "c");

    // Failures are reported, not thrown.
    SecretServiceStore noCollection("quillet-no-such-collection");
    EXPECT_EQ(noCollection.write(service, account, "x").status, SecretStatus::failed);
    EXPECT_EQ(countItems(service, account), 0);
}

} // namespace
} // namespace quillet
