#include "platform/linux/DBusSiteSink.h"

#include <gio/gio.h>
#include <iostream>

namespace quillet {
namespace {

// Said on standard error: the browser keeps it in its log, and standard output is its channel.
void report(const char* what, GError* error) {
    std::cerr << "quillet: " << what << ": " << (error != nullptr ? error->message : "") << '\n';
    g_clear_error(&error);
}

} // namespace

DBusSiteSink::DBusSiteSink() {
    GError* error = nullptr;
    bus_ = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (bus_ == nullptr) {
        report("no session bus", error);
    }
}

DBusSiteSink::~DBusSiteSink() {
    if (bus_ != nullptr) {
        g_object_unref(bus_);
    }
}

void DBusSiteSink::changed(const std::string& browserAndSite) {
    if (bus_ == nullptr) {
        return;
    }
    gchar* text =
        g_utf8_make_valid(browserAndSite.c_str(), static_cast<gssize>(browserAndSite.size()));
    GError* error = nullptr;
    const bool sent =
        g_dbus_connection_emit_signal(bus_, nullptr, "/com/quillet/Site", "com.quillet.Site",
                                      "Changed", g_variant_new("(s)", text), &error) != 0;
    g_free(text);
    if (!sent) {
        report("the site was not sent", error);
        return;
    }
    // The bus answers in order, so once it answers this call it has routed the signal: the host
    // may exit the moment the browser closes its input.
    GVariant* reply = g_dbus_connection_call_sync(
        bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
        nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (reply == nullptr) {
        report("the session bus did not answer", error);
        return;
    }
    g_variant_unref(reply);
}

} // namespace quillet
