#include "PlatformCore/LibsecretClient.h"

#include <libsecret/secret.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace {

using Kind = SecretServiceFailure::Kind;

constexpr char defaultAlias[] = "default";
constexpr char sessionCollection[] = "/org/freedesktop/secrets/collection/session";
constexpr char newCollectionLabel[] = "Default Keyring";
constexpr gsize largestData = 64 << 10;

constexpr SecretSchema schema = {"zorvane.Vimble.Secret",
                                 SECRET_SCHEMA_NONE,
                                 {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                  {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                  {"accessible", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                  {"accessGroup", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                  {"synchronizable", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                  {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                                 0,
                                 nullptr,
                                 nullptr,
                                 nullptr,
                                 nullptr,
                                 nullptr,
                                 nullptr,
                                 nullptr};

template <class Type>
struct Unref {
    void operator()(Type* object) const { g_object_unref(object); }
};
template <class Type>
using Object = std::unique_ptr<Type, Unref<Type>>;

using Attributes = std::unique_ptr<GHashTable, decltype(&g_hash_table_unref)>;
using Value = std::unique_ptr<SecretValue, void (*)(SecretValue*)>;

void unrefValue(SecretValue* value) { secret_value_unref(value); }

std::string plainLine(const char* text) {
    std::string line = text != nullptr ? text : "";
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, ' ');
    return line;
}

Kind kindOf(const GError& error) {
    if (error.domain == SECRET_ERROR) {
        if (error.code == SECRET_ERROR_IS_LOCKED) return Kind::locked;
        return error.code == SECRET_ERROR_PROTOCOL ? Kind::unreadable : Kind::internal;
    }
    if (error.domain == G_DBUS_ERROR) {
        switch (error.code) {
            case G_DBUS_ERROR_ACCESS_DENIED:
            case G_DBUS_ERROR_AUTH_FAILED: return Kind::refused;
            case G_DBUS_ERROR_INVALID_ARGS:
            case G_DBUS_ERROR_INVALID_SIGNATURE:
            case G_DBUS_ERROR_UNKNOWN_METHOD:
            case G_DBUS_ERROR_UNKNOWN_OBJECT: return Kind::internal;
            default: return Kind::notAvailable;  // nobody there, could not be started, no answer
        }
    }
    if (error.domain == G_IO_ERROR) {
        switch (error.code) {
            case G_IO_ERROR_CANCELLED: return Kind::dismissed;
            case G_IO_ERROR_PERMISSION_DENIED: return Kind::refused;
            case G_IO_ERROR_DBUS_ERROR: return Kind::internal;
            default: return Kind::notAvailable;  // no bus, it went away, or no answer in time
        }
    }
    return Kind::internal;
}

/// The last argument of a call; `raise` throws the error that the call has put into it.
class ErrorSlot {
public:
    ErrorSlot() = default;
    ~ErrorSlot() { g_clear_error(&error); }
    ErrorSlot(const ErrorSlot&) = delete;
    ErrorSlot& operator=(const ErrorSlot&) = delete;

    operator GError**() { return &error; }
    bool is(GQuark domain, int code) const { return g_error_matches(error, domain, code) != FALSE; }
    void raise() const {
        if (error != nullptr) throw SecretServiceFailure{kindOf(*error), plainLine(error->message)};
    }

private:
    GError* error = nullptr;
};

/// Takes the objects of a list over, and frees the list itself.
template <class Type>
std::vector<Object<Type>> takeList(GList* list) {
    std::vector<Object<Type>> objects;
    for (const GList* entry = list; entry != nullptr; entry = entry->next)
        objects.emplace_back(static_cast<Type*>(entry->data));
    g_list_free(list);
    return objects;
}

const char* pathOf(gpointer proxy) { return g_dbus_proxy_get_object_path(G_DBUS_PROXY(proxy)); }

Attributes attributesOf(const std::map<std::string, std::string>& map) {
    Attributes table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free), &g_hash_table_unref);
    for (const auto& [name, value] : map)
        g_hash_table_insert(table.get(), g_strdup(name.c_str()), g_strdup(value.c_str()));
    return table;
}

Value valueOf(ByteView data) {
    const bool isText =
        std::all_of(data.begin(), data.end(), [](std::uint8_t byte) { return byte >= 0x20 && byte < 0x7f; });
    const auto* bytes = data.empty() ? "" : reinterpret_cast<const char*>(data.data());
    // The library keeps its copy in memory that is not swapped, and wipes it.
    return Value(
        secret_value_new(bytes, static_cast<gssize>(data.size()), isText ? "text/plain" : "application/octet-stream"),
        &unrefValue);
}

LibsecretClient::Item describe(Object<SecretItem> object) {
    LibsecretClient::Item item;
    SecretItem* const source = object.get();
    item.isLocked = secret_item_get_locked(source) != FALSE;
    item.created = secret_item_get_created(source);
    item.path = pathOf(source);
    if (gchar* label = secret_item_get_label(source)) {
        item.label = label;
        g_free(label);
    }
    if (GHashTable* table = secret_item_get_attributes(source)) {
        const Attributes attributes(table, &g_hash_table_unref);
        GHashTableIter entry;
        gpointer name = nullptr;
        gpointer value = nullptr;
        g_hash_table_iter_init(&entry, attributes.get());
        while (g_hash_table_iter_next(&entry, &name, &value) != FALSE)
            item.attributes.emplace(static_cast<const char*>(name), static_cast<const char*>(value));
    }
    item.object = std::shared_ptr<void>(object.release(), &g_object_unref);
    return item;
}

/// Compares the lengths of paths first: services number their items, and 9 must come before 10.
bool isOlder(const LibsecretClient::Item& one, const LibsecretClient::Item& other) {
    if (one.created != other.created) return one.created < other.created;
    if (one.path.size() != other.path.size()) return one.path.size() < other.path.size();
    return one.path < other.path;
}

std::vector<LibsecretClient::Item> describeAll(std::vector<Object<SecretItem>> objects) {
    std::vector<LibsecretClient::Item> items;
    for (auto& object : objects) items.push_back(describe(std::move(object)));
    std::sort(items.begin(), items.end(), isOlder);
    return items;
}

SecretItem* objectOf(const LibsecretClient::Item& item) { return static_cast<SecretItem*>(item.object.get()); }

}  // namespace

struct LibsecretClient::Connection {
    Object<SecretService> service;
    std::vector<Object<SecretCollection>> collections;

    /// The default collection, or null.
    Object<SecretCollection> defaultCollection() const {
        ErrorSlot error;
        Object<SecretCollection> collection(
            secret_collection_for_alias_sync(service.get(), defaultAlias, SECRET_COLLECTION_NONE, nullptr, error));
        error.raise();
        return collection;
    }
};

LibsecretClient::Scope::Scope() : context(g_main_context_new()) {
    g_main_context_push_thread_default(static_cast<GMainContext*>(context));
}

LibsecretClient::Scope::~Scope() {
    auto* own = static_cast<GMainContext*>(context);
    // Deliver the reports that are still queued: they hold objects, which only the delivery releases.
    while (g_main_context_iteration(own, FALSE) != FALSE) {
    }
    g_main_context_pop_thread_default(own);
    g_main_context_unref(own);
}

LibsecretClient::LibsecretClient() : connection(std::make_unique<Connection>()) {
    ErrorSlot error;
    const auto flags = static_cast<SecretServiceFlags>(SECRET_SERVICE_OPEN_SESSION | SECRET_SERVICE_LOAD_COLLECTIONS);
    connection->service.reset(secret_service_open_sync(SECRET_TYPE_SERVICE, nullptr, flags, nullptr, error));
    error.raise();
    if (!connection->service) throw SecretServiceFailure{Kind::notAvailable, "no answer"};
    for (auto& collection : takeList<SecretCollection>(secret_service_get_collections(connection->service.get())))
        if (std::string_view(pathOf(collection.get())) != sessionCollection)
            connection->collections.push_back(std::move(collection));
}

LibsecretClient::~LibsecretClient() = default;

std::vector<LibsecretClient::Item> LibsecretClient::search(const std::map<std::string, std::string>& attributes) {
    const Attributes table = attributesOf(attributes);
    ErrorSlot error;
    auto found = takeList<SecretItem>(
        secret_service_search_sync(connection->service.get(), &schema, table.get(), SECRET_SEARCH_ALL, nullptr, error));
    error.raise();
    return describeAll(std::move(found));
}

std::vector<LibsecretClient::Item> LibsecretClient::list() {
    std::vector<Object<SecretItem>> found;
    for (const auto& collection : connection->collections) {
        if (secret_collection_get_locked(collection.get()) != FALSE) continue;
        ErrorSlot error;
        secret_collection_load_items_sync(collection.get(), nullptr, error);
        error.raise();
        for (auto& item : takeList<SecretItem>(secret_collection_get_items(collection.get())))
            found.push_back(std::move(item));
    }
    return describeAll(std::move(found));
}

std::vector<std::shared_ptr<void>> LibsecretClient::lockedCollections() {
    std::vector<std::shared_ptr<void>> locked;
    const auto first = connection->defaultCollection();
    for (const auto& collection : connection->collections) {
        if (secret_collection_get_locked(collection.get()) == FALSE) continue;
        const bool isDefault = first && std::string_view(pathOf(collection.get())) == pathOf(first.get());
        locked.insert(isDefault ? locked.begin() : locked.end(),
                      std::shared_ptr<void>(g_object_ref(collection.get()), &g_object_unref));
    }
    return locked;
}

void LibsecretClient::unlock(const std::shared_ptr<void>& object) {
    GList one{object.get(), nullptr, nullptr};
    GList* unlocked = nullptr;
    ErrorSlot error;
    secret_service_unlock_sync(connection->service.get(), &one, nullptr, &unlocked, error);
    const auto opened = takeList<GDBusProxy>(unlocked);
    error.raise();
    if (opened.empty()) throw SecretServiceFailure{Kind::dismissed, "it stays locked"};
}

Bytes LibsecretClient::load(const Item& item) {
    ErrorSlot error;
    secret_item_load_secret_sync(objectOf(item), nullptr, error);
    error.raise();
    const Value value(secret_item_get_secret(objectOf(item)), [](SecretValue* held) {
        if (held != nullptr) secret_value_unref(held);
    });
    if (!value) throw SecretServiceFailure{Kind::locked, "the secret was not given out"};
    gsize length = 0;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(secret_value_get(value.get(), &length));
    if (length > largestData) throw SecretServiceFailure{Kind::unreadable, "the secret is too large"};
    return bytes != nullptr ? Bytes(bytes, bytes + length) : Bytes();
}

void LibsecretClient::setData(const Item& item, ByteView data) {
    const Value value = valueOf(data);
    ErrorSlot error;
    const bool isSet = secret_item_set_secret_sync(objectOf(item), value.get(), nullptr, error) != FALSE;
    error.raise();
    if (!isSet) throw SecretServiceFailure{Kind::dismissed, "the secret was not changed"};
}

void LibsecretClient::remove(const Item& item) {
    ErrorSlot error;
    const bool isRemoved = secret_item_delete_sync(objectOf(item), nullptr, error) != FALSE;
    error.raise();
    if (!isRemoved) throw SecretServiceFailure{Kind::dismissed, "the secret was not removed"};
}

std::string LibsecretClient::create(const std::map<std::string, std::string>& attributes, const std::string& label,
                                    ByteView data) {
    auto collection = connection->defaultCollection();
    if (!collection) {
        ErrorSlot error;
        collection.reset(secret_collection_create_sync(connection->service.get(), newCollectionLabel, defaultAlias,
                                                       SECRET_COLLECTION_CREATE_NONE, nullptr, error));
        // These two errors only mean that the prompt was dismissed: the service then names the collection "/",
        // which libsecret does not find.
        if (!error.is(G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD) &&
            !error.is(SECRET_ERROR, SECRET_ERROR_NO_SUCH_OBJECT))
            error.raise();
        if (!collection)
            throw SecretServiceFailure{Kind::dismissed, "there is no default collection, and none was made"};
    }
    if (secret_collection_get_locked(collection.get()) != FALSE)
        unlock(std::shared_ptr<void>(g_object_ref(collection.get()), &g_object_unref));
    const Attributes table = attributesOf(attributes);
    const Value value = valueOf(data);
    ErrorSlot error;
    const Object<SecretItem> item(secret_item_create_sync(collection.get(), &schema, table.get(), label.c_str(),
                                                          value.get(), SECRET_ITEM_CREATE_NONE, nullptr, error));
    error.raise();
    if (!item) throw SecretServiceFailure{Kind::dismissed, "the secret was not stored"};
    return pathOf(item.get());
}
