#pragma once

#include "SecretBackend.h"

#include <libsecret/secret.h>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace keyferry {

// The GLib side of SecretServiceBackend: a private main context, the Secret Service connection and the
// default collection, and the asynchronous calls run on that context with a deadline. Owned by
// SecretServiceBackend; one call at a time (its owner's caller serialises them).
class SecretServiceSession {
public:
    template <typename T> struct Unref {
        void operator()(T* object) const { g_object_unref(object); }
    };
    template <typename T> using Ref = std::unique_ptr<T, Unref<T>>;

    // Starts an asynchronous GIO call with the given cancellable, callback and user data.
    using Start = std::function<void(GCancellable*, GAsyncReadyCallback, gpointer)>;

    explicit SecretServiceSession(std::chrono::milliseconds timeout);
    ~SecretServiceSession();
    SecretServiceSession(const SecretServiceSession&) = delete;
    SecretServiceSession& operator=(const SecretServiceSession&) = delete;

    // The unlocked default collection, reached within the call's deadline; a status when there is none.
    SecretStatus openCollection(SecretCollection*& collection);

    // The items that match the query, secrets loaded; secretItemNotFound when there are none. Starts the
    // call's deadline.
    SecretStatus existingItems(const SecretQuery& query, std::vector<Ref<SecretItem>>& items);
    SecretStatus create(const SecretQuery& query, const std::string& value);
    SecretStatus setSecret(SecretItem* item, const std::string& value);
    SecretStatus remove(SecretItem* item);

    // Starts a deadline for the call about to be made; every step of the call shares it.
    void beginCall();

private:
    SecretStatus search(const SecretQuery& query, std::vector<Ref<SecretItem>>& items);

    // Runs one asynchronous call on the private context until it completes; cancels it at the deadline
    // (GIO then completes it as cancelled). Returns its result.
    Ref<GAsyncResult> await(const Start& start);
    SecretStatus statusOf(GError* error);

    std::chrono::milliseconds timeout;
    std::chrono::steady_clock::time_point deadline;
    GMainContext* context;
    Ref<SecretService> service;
    Ref<SecretCollection> collection;
};

} // namespace keyferry
