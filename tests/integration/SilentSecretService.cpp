// A stand-in for a hung keyring: owns the Secret Service's bus name and never answers a call. Prints "ready"
// once the name is owned; stops on SIGTERM.
#include <gio/gio.h>

#include <cstdio>

namespace {

// Swallows every call made to this process, so the callers wait for an answer that never comes.
GDBusMessage* dropCalls(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer) {
    if (incoming && g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
        g_object_unref(message);
        return nullptr;
    }
    return message;
}

void announce(GDBusConnection*, const gchar*, gpointer) {
    std::puts("ready");
    std::fflush(stdout);
}

} // namespace

int main() {
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (bus == nullptr) {
        return 1;
    }
    g_bus_own_name_on_connection(bus, "org.freedesktop.secrets", G_BUS_NAME_OWNER_FLAGS_NONE, announce, nullptr,
                                 nullptr, nullptr);
    g_dbus_connection_add_filter(bus, dropCalls, nullptr, nullptr);
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_main_loop_run(loop);
    return 0;
}
