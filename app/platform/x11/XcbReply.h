#pragma once

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <xcb/xcb.h>

namespace quillet {

/// Frees an xcb reply with free(), as xcb allocates them.
struct XcbFree {
    void operator()(void* reply) const { std::free(reply); }
};

/// An xcb reply owned until the end of its scope.
template <typename T> using XcbReply = std::unique_ptr<T, XcbFree>;

/// Takes a reply; an error (a window that is gone) comes back beside it and is dropped. The
/// error is taken by reference: the reply call sets it, and the order arguments are evaluated
/// in is unspecified.
template <typename T> XcbReply<T> takeReply(T* reply, xcb_generic_error_t*& error) {
    std::free(error);
    error = nullptr;
    return XcbReply<T>(reply);
}

/// A window's 8-bit property as bytes; empty when it has none or the window is gone.
inline std::string textProperty(xcb_connection_t* c, xcb_window_t window, xcb_atom_t name,
                                xcb_atom_t type) {
    xcb_generic_error_t* error = nullptr;
    auto reply = takeReply(
        xcb_get_property_reply(c, xcb_get_property(c, 0, window, name, type, 0, 1024), &error),
        error);
    if (!reply || reply->format != 8) {
        return {};
    }
    return std::string(static_cast<const char*>(xcb_get_property_value(reply.get())),
                       static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
}

/// The class part of a window's WM_CLASS (the instance name, a NUL, the class, a NUL); empty
/// when the window has none or it is gone.
inline std::string wmClassOf(xcb_connection_t* c, xcb_window_t window) {
    const std::string value = textProperty(c, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    const std::size_t instanceEnd = value.find('\0');
    if (instanceEnd == std::string::npos) {
        return {};
    }
    const std::string_view name = std::string_view(value).substr(instanceEnd + 1);
    return std::string(name.substr(0, name.find('\0')));
}

} // namespace quillet
