#include "GnomeRemoteDesktop.h"

#include <gio/gio.h>

namespace keyferry {

namespace {

constexpr const char* service = "org.gnome.Mutter.RemoteDesktop";
constexpr const char* sessionInterface = "org.gnome.Mutter.RemoteDesktop.Session";
constexpr int callLimitMs = 5000;

// Calls a method; its answer, or null on any failure.
GVariant* call(GDBusConnection* bus, const char* destination, const char* path, const char* interface,
               const char* method, GVariant* arguments, const GVariantType* answer = nullptr) {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(bus, destination, path, interface, method, arguments, answer,
                                                  G_DBUS_CALL_FLAGS_NO_AUTO_START, callLimitMs, nullptr, &error);
    if (error != nullptr) {
        g_error_free(error);
    }
    return reply;
}

bool succeeded(GVariant* reply) {
    if (reply == nullptr) {
        return false;
    }
    g_variant_unref(reply);
    return true;
}

GDBusConnection* sessionBus() {
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (error != nullptr) {
        g_error_free(error);
    }
    return bus;
}

bool hasOwner(GDBusConnection* bus, const char* name) {
    GVariant* reply = call(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
                           g_variant_new("(s)", name), G_VARIANT_TYPE("(b)"));
    if (reply == nullptr) {
        return false;
    }
    gboolean owned = FALSE;
    g_variant_get(reply, "(b)", &owned);
    g_variant_unref(reply);
    return owned != FALSE;
}

std::string createdSession(GDBusConnection* bus) {
    GVariant* reply =
        call(bus, service, "/org/gnome/Mutter/RemoteDesktop", service, "CreateSession", nullptr, G_VARIANT_TYPE("(o)"));
    if (reply == nullptr) {
        return {};
    }
    const gchar* path = nullptr;
    g_variant_get(reply, "(&o)", &path);
    std::string session(path);
    g_variant_unref(reply);
    return session;
}

} // namespace

bool GnomeRemoteDesktop::offered() {
    GDBusConnection* bus = sessionBus();
    if (bus == nullptr) {
        return false;
    }
    const bool owned = hasOwner(bus, service);
    g_object_unref(bus);
    return owned;
}

std::unique_ptr<GnomeRemoteDesktop> GnomeRemoteDesktop::start() {
    GDBusConnection* bus = sessionBus();
    if (bus == nullptr) {
        return nullptr;
    }
    std::string session = hasOwner(bus, service) ? createdSession(bus) : std::string();
    if (session.empty()) {
        g_object_unref(bus);
        return nullptr;
    }
    std::unique_ptr<GnomeRemoteDesktop> desktop(new GnomeRemoteDesktop(bus, std::move(session)));
    if (!succeeded(call(bus, service, desktop->session.c_str(), sessionInterface, "Start", nullptr))) {
        return nullptr;
    }
    return desktop;
}

GnomeRemoteDesktop::GnomeRemoteDesktop(GDBusConnection* connection, std::string sessionPath)
    : bus(connection), session(std::move(sessionPath)) {}

GnomeRemoteDesktop::~GnomeRemoteDesktop() {
    succeeded(call(bus, service, session.c_str(), sessionInterface, "Stop", nullptr));
    g_object_unref(bus);
}

std::optional<bool> GnomeRemoteDesktop::capsLockOn() const {
    GVariant* reply = call(bus, service, session.c_str(), "org.freedesktop.DBus.Properties", "Get",
                           g_variant_new("(ss)", sessionInterface, "CapsLockState"), G_VARIANT_TYPE("(v)"));
    if (reply == nullptr) {
        return std::nullopt;
    }
    GVariant* value = nullptr;
    g_variant_get(reply, "(v)", &value);
    std::optional<bool> on;
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN)) {
        on = g_variant_get_boolean(value) != FALSE;
    }
    g_variant_unref(value);
    g_variant_unref(reply);
    return on;
}

bool GnomeRemoteDesktop::pressKeysym(std::uint32_t keysym, bool pressed, bool answered) {
    GVariant* key = g_variant_new("(ub)", keysym, static_cast<gboolean>(pressed));
    if (answered) {
        return succeeded(call(bus, service, session.c_str(), sessionInterface, "NotifyKeyboardKeysym", key));
    }
    // No answer asked for (no callback): the call goes out in order and nothing waits.
    g_dbus_connection_call(bus, service, session.c_str(), sessionInterface, "NotifyKeyboardKeysym", key, nullptr,
                           G_DBUS_CALL_FLAGS_NO_AUTO_START, callLimitMs, nullptr, nullptr, nullptr);
    return true;
}

} // namespace keyferry
