#include "SecretServiceSession.h"

#include "SecretServiceBackend.h"

namespace keyferry {

namespace {

const SecretSchema& itemSchema() {
    static const SecretSchema schema = [] {
        SecretSchema built{};
        built.name = "com.quillix.companion.GenericPassword";
        built.flags = SECRET_SCHEMA_NONE;
        built.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        built.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return built;
    }();
    return schema;
}

struct HashTableUnref {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
using Attributes = std::unique_ptr<GHashTable, HashTableUnref>;

Attributes attributesOf(const SecretQuery& query) {
    return Attributes(secret_attributes_build(&itemSchema(), "service", query.service.c_str(), "account",
                                              query.account.c_str(), nullptr));
}

struct ValueUnref {
    void operator()(SecretValue* value) const { secret_value_unref(value); }
};
using Value = std::unique_ptr<SecretValue, ValueUnref>;

Value valueOf(const std::string& bytes) {
    return Value(secret_value_new(bytes.data(), static_cast<gssize>(bytes.size()), "application/octet-stream"));
}

struct ErrorFree {
    void operator()(GError* error) const { g_error_free(error); }
};
using Error = std::unique_ptr<GError, ErrorFree>;

// Where an asynchronous call leaves its result.
struct Completion {
    GAsyncResult* result = nullptr;
};

void complete(GObject*, GAsyncResult* result, gpointer data) {
    static_cast<Completion*>(data)->result = static_cast<GAsyncResult*>(g_object_ref(result));
}

gboolean wakeUp(gpointer) {
    return G_SOURCE_REMOVE;
}

} // namespace

SecretServiceSession::SecretServiceSession(std::chrono::milliseconds callTimeout)
    : timeout(callTimeout), context(g_main_context_new()) {}

SecretServiceSession::~SecretServiceSession() {
    collection.reset();
    service.reset();
    // Let the proxies' last clean-up run before the context goes.
    while (g_main_context_iteration(context, FALSE)) {
    }
    g_main_context_unref(context);
}

void SecretServiceSession::beginCall() {
    deadline = std::chrono::steady_clock::now() + timeout;
}

SecretServiceSession::Ref<GAsyncResult> SecretServiceSession::await(const Start& start) {
    Ref<GCancellable> cancellable(g_cancellable_new());
    Completion completion;
    g_main_context_push_thread_default(context);
    start(cancellable.get(), complete, &completion);
    bool cancelled = false;
    while (completion.result == nullptr) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (!cancelled && left.count() <= 0) {
            g_cancellable_cancel(cancellable.get());
            cancelled = true;
        }
        GSource* alarm = nullptr;
        if (!cancelled) {
            alarm = g_timeout_source_new(static_cast<guint>(left.count()));
            g_source_set_callback(alarm, wakeUp, nullptr, nullptr);
            g_source_attach(alarm, context);
        }
        g_main_context_iteration(context, TRUE);
        if (alarm != nullptr) {
            g_source_destroy(alarm);
            g_source_unref(alarm);
        }
    }
    g_main_context_pop_thread_default(context);
    return Ref<GAsyncResult>(completion.result);
}

SecretStatus SecretServiceSession::statusOf(GError* error) {
    if (error == nullptr) {
        return secretSuccess;
    }
    const bool locked = g_error_matches(error, SECRET_ERROR, SECRET_ERROR_IS_LOCKED);
    g_error_free(error);
    if (locked) {
        return SecretServiceBackend::secretInteractionNotAllowed;
    }
    // The service may have gone away: connect afresh next time.
    collection.reset();
    service.reset();
    return SecretServiceBackend::secretNotAvailable;
}

SecretStatus SecretServiceSession::openCollection(SecretCollection*& opened) {
    GError* error = nullptr;
    if (!service) {
        const auto result = await([](GCancellable* cancellable, GAsyncReadyCallback callback, gpointer data) {
            secret_service_open(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_OPEN_SESSION, cancellable, callback, data);
        });
        service.reset(secret_service_open_finish(result.get(), &error));
        if (!service) {
            return error != nullptr ? statusOf(error) : SecretServiceBackend::secretNotAvailable;
        }
        // A keyring that goes away must not take the application with it.
        g_dbus_connection_set_exit_on_close(g_dbus_proxy_get_connection(G_DBUS_PROXY(service.get())), FALSE);
    }
    // Looked up on every call, so that its locked state is the current one.
    SecretService* current = service.get();
    const auto result = await([current](GCancellable* cancellable, GAsyncReadyCallback callback, gpointer data) {
        secret_collection_for_alias(current, SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, cancellable, callback,
                                    data);
    });
    collection.reset(secret_collection_for_alias_finish(result.get(), &error));
    if (error != nullptr) {
        return statusOf(error);
    }
    if (!collection) {
        return SecretServiceBackend::secretNotAvailable;
    }
    if (secret_collection_get_locked(collection.get())) {
        return SecretServiceBackend::secretInteractionNotAllowed;
    }
    opened = collection.get();
    return secretSuccess;
}

SecretStatus SecretServiceSession::existingItems(const SecretQuery& query, std::vector<Ref<SecretItem>>& items) {
    beginCall();
    if (const SecretStatus status = search(query, items); status != secretSuccess) {
        return status;
    }
    return items.empty() ? secretItemNotFound : secretSuccess;
}

SecretStatus SecretServiceSession::search(const SecretQuery& query, std::vector<Ref<SecretItem>>& items) {
    SecretCollection* target = nullptr;
    if (const SecretStatus status = openCollection(target); status != secretSuccess) {
        return status;
    }
    const Attributes attributes = attributesOf(query);
    GHashTable* matching = attributes.get();
    const auto result =
        await([target, matching](GCancellable* cancellable, GAsyncReadyCallback callback, gpointer data) {
            const auto flags = static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_LOAD_SECRETS);
            secret_collection_search(target, &itemSchema(), matching, flags, cancellable, callback, data);
        });
    GError* error = nullptr;
    GList* found = secret_collection_search_finish(target, result.get(), &error);
    for (GList* entry = found; entry != nullptr; entry = entry->next) {
        items.emplace_back(static_cast<SecretItem*>(entry->data));
    }
    g_list_free(found);
    return statusOf(error);
}

SecretStatus SecretServiceSession::create(const SecretQuery& query, const std::string& bytes) {
    SecretCollection* target = nullptr;
    if (const SecretStatus status = openCollection(target); status != secretSuccess) {
        return status;
    }
    const Attributes attributes = attributesOf(query);
    const Value value = valueOf(bytes);
    const std::string label = "Keyferry (" + query.account + ")";
    GHashTable* matching = attributes.get();
    SecretValue* secret = value.get();
    const auto result = await([&](GCancellable* cancellable, GAsyncReadyCallback callback, gpointer data) {
        secret_item_create(target, &itemSchema(), matching, label.c_str(), secret, SECRET_ITEM_CREATE_REPLACE,
                           cancellable, callback, data);
    });
    GError* error = nullptr;
    const Ref<SecretItem> item(secret_item_create_finish(result.get(), &error));
    return statusOf(error);
}

SecretStatus SecretServiceSession::setSecret(SecretItem* item, const std::string& bytes) {
    const Value value = valueOf(bytes);
    SecretValue* secret = value.get();
    const auto result = await([item, secret](GCancellable* cancellable, GAsyncReadyCallback callback, gpointer data) {
        secret_item_set_secret(item, secret, cancellable, callback, data);
    });
    GError* error = nullptr;
    secret_item_set_secret_finish(item, result.get(), &error);
    return statusOf(error);
}

SecretStatus SecretServiceSession::remove(SecretItem* item) {
    const auto result = await([item](GCancellable* cancellable, GAsyncReadyCallback callback, gpointer data) {
        secret_item_delete(item, cancellable, callback, data);
    });
    GError* error = nullptr;
    secret_item_delete_finish(item, result.get(), &error);
    return statusOf(error);
}

} // namespace keyferry
