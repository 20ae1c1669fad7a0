#include "platform/linux/SecretServiceStore.h"

#include <functional>
#include <libsecret/secret.h>
#include <utility>

namespace quillet {
namespace {

// Items are matched by their two attributes alone, whatever schema name the writer recorded,
// so that an item stored by another tool with the same service and account is the same item.
const SecretSchema itemSchema = {
    "com.quillet.app.Secret",
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

template <typename T> struct Unref {
    void operator()(T* object) const { g_object_unref(object); }
};
template <typename T> using Object = std::unique_ptr<T, Unref<T>>;

struct UnrefValue {
    void operator()(SecretValue* value) const { secret_value_unref(value); }
};
struct FreeItems {
    void operator()(GList* items) const { g_list_free_full(items, g_object_unref); }
};
struct UnrefTable {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};

// Receives a GError and turns it into a message.
class ErrorSlot {
public:
    ErrorSlot() = default;
    ErrorSlot(const ErrorSlot&) = delete;
    ErrorSlot& operator=(const ErrorSlot&) = delete;
    ~ErrorSlot() {
        if (error_ != nullptr) {
            g_error_free(error_);
        }
    }
    GError** out() { return &error_; }
    explicit operator bool() const { return error_ != nullptr; }
    std::string message(std::string_view what) const {
        std::string text(what);
        if (error_ != nullptr && error_->message != nullptr) {
            text += ": ";
            text += error_->message;
        }
        return text;
    }

private:
    GError* error_ = nullptr;
};

SecretResult failed(std::string message) {
    return {SecretStatus::failed, {}, std::move(message)};
}

SecretResult done(SecretStatus status = SecretStatus::ok, std::string text = {}) {
    return {status, std::move(text), {}};
}

// The attribute table of one item, pointing into the strings given, which must outlive it.
std::unique_ptr<GHashTable, UnrefTable> attributesFor(const std::string& service,
                                                      const std::string& account) {
    std::unique_ptr<GHashTable, UnrefTable> table(g_hash_table_new(g_str_hash, g_str_equal));
    g_hash_table_insert(table.get(), const_cast<char*>("service"),
                        const_cast<char*>(service.c_str()));
    g_hash_table_insert(table.get(), const_cast<char*>("account"),
                        const_cast<char*>(account.c_str()));
    return table;
}

// The items with service and account in collection, unlocked; optionally with their secrets.
std::unique_ptr<GList, FreeItems> search(SecretCollection* collection, const std::string& service,
                                         const std::string& account, bool withSecrets,
                                         std::string& error) {
    auto attributes = attributesFor(service, account);
    int flags = SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK;
    if (withSecrets) {
        flags |= SECRET_SEARCH_LOAD_SECRETS;
    }
    ErrorSlot slot;
    std::unique_ptr<GList, FreeItems> items(
        secret_collection_search_sync(collection, &itemSchema, attributes.get(),
                                      static_cast<SecretSearchFlags>(flags), nullptr, slot.out()));
    if (slot) {
        error = slot.message("Could not search the keyring");
    }
    return items;
}

// The collection with an alias, unlocked; nothing, with error set, when it
// is missing or stays locked.
Object<SecretCollection> openCollection(SecretService* service, const std::string& name,
                                        std::string& error) {
    ErrorSlot slot;
    Object<SecretCollection> collection(secret_collection_for_alias_sync(
        service, name.c_str(), SECRET_COLLECTION_NONE, nullptr, slot.out()));
    if (slot) {
        error = slot.message("Could not open the keyring collection \"" + name + "\"");
        return nullptr;
    }
    if (!collection) {
        error = "The Secret Service has no \"" + name + "\" collection.";
        return nullptr;
    }
    if (secret_collection_get_locked(collection.get())) {
        GList* list = g_list_append(nullptr, collection.get());
        ErrorSlot unlockSlot;
        secret_service_unlock_sync(service, list, nullptr, nullptr, unlockSlot.out());
        g_list_free(list);
        if (unlockSlot || secret_collection_get_locked(collection.get())) {
            error = unlockSlot.message("The keyring collection \"" + name + "\" is locked");
            return nullptr;
        }
    }
    return collection;
}

} // namespace

struct SecretServiceStore::Connection {
    Object<SecretService> service;

    // Runs one operation in the collection, connecting first when needed. A failure drops the
    // connection, so a Secret Service that was restarted is found again on the next call.
    SecretResult run(const std::string& collectionAlias,
                     const std::function<SecretResult(SecretCollection*)>& operation) {
        if (!service) {
            ErrorSlot slot;
            service.reset(secret_service_open_sync(secret_service_get_type(), nullptr,
                                                   SECRET_SERVICE_OPEN_SESSION, nullptr,
                                                   slot.out()));
            if (!service || slot) {
                service.reset();
                return failed(slot.message("The Secret Service is not available"));
            }
        }
        std::string error;
        auto collection = openCollection(service.get(), collectionAlias, error);
        SecretResult result = collection ? operation(collection.get()) : failed(error);
        if (result.status == SecretStatus::failed) {
            service.reset();
        }
        return result;
    }
};

SecretServiceStore::SecretServiceStore(std::string collection)
    : collection_(std::move(collection)), connection_(std::make_unique<Connection>()) {}

SecretServiceStore::~SecretServiceStore() = default;

SecretResult SecretServiceStore::read(std::string_view service, std::string_view account) {
    const std::string s(service);
    const std::string a(account);
    return connection_->run(collection_, [&](SecretCollection* collection) {
        std::string error;
        auto items = search(collection, s, a, true, error);
        if (!error.empty()) {
            return failed(error);
        }
        if (!items) {
            return done(SecretStatus::missing);
        }
        std::unique_ptr<SecretValue, UnrefValue> value(
            secret_item_get_secret(static_cast<SecretItem*>(items->data)));
        if (!value) {
            return failed("The keyring item for \"" + a + "\" could not be unlocked.");
        }
        gsize length = 0;
        const gchar* bytes = secret_value_get(value.get(), &length);
        return done(SecretStatus::ok, std::string(bytes, length));
    });
}

SecretResult SecretServiceStore::write(std::string_view service, std::string_view account,
                                       std::string_view text) {
    const std::string s(service);
    const std::string a(account);
    return connection_->run(collection_, [&](SecretCollection* collection) {
        std::string error;
        auto items = search(collection, s, a, false, error);
        if (!error.empty()) {
            return failed(error);
        }
        std::unique_ptr<SecretValue, UnrefValue> value(
            secret_value_new(text.data(), static_cast<gssize>(text.size()), "text/plain"));
        ErrorSlot slot;
        if (!items) {
            auto attributes = attributesFor(s, a);
            const std::string label = "Quillet: " + a;
            Object<SecretItem> created(secret_item_create_sync(
                collection, &itemSchema, attributes.get(), label.c_str(), value.get(),
                SECRET_ITEM_CREATE_REPLACE, nullptr, slot.out()));
            if (slot || !created) {
                return failed(slot.message("Could not add the keyring item for \"" + a + "\""));
            }
            return done();
        }
        auto* first = static_cast<SecretItem*>(items->data);
        if (!secret_item_set_secret_sync(first, value.get(), nullptr, slot.out())) {
            return failed(slot.message("Could not update the keyring item for \"" + a + "\""));
        }
        // Copies left by another writer would make later reads ambiguous.
        for (GList* extra = items->next; extra != nullptr; extra = extra->next) {
            ErrorSlot ignored;
            secret_item_delete_sync(static_cast<SecretItem*>(extra->data), nullptr, ignored.out());
        }
        return done();
    });
}

SecretResult SecretServiceStore::remove(std::string_view service, std::string_view account) {
    const std::string s(service);
    const std::string a(account);
    return connection_->run(collection_, [&](SecretCollection* collection) {
        std::string error;
        auto items = search(collection, s, a, false, error);
        if (!error.empty()) {
            return failed(error);
        }
        if (!items) {
            return done(SecretStatus::missing);
        }
        for (GList* item = items.get(); item != nullptr; item = item->next) {
            ErrorSlot slot;
            if (!secret_item_delete_sync(static_cast<SecretItem*>(item->data), nullptr,
                                         slot.out())) {
                return failed(slot.message("Could not delete the keyring item for \"" + a + "\""));
            }
        }
        return done();
    });
}

} // namespace quillet
