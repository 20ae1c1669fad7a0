#include "platform/x11/X11FrontApplication.h"

#include "platform/Trace.h"
#include "platform/x11/XcbReply.h"

#include <X11/Xlib-xcb.h>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>
#include <xcb/xcb.h>

namespace quillet {
namespace {

// How far up from the focused window a WM_CLASS is looked for; real trees are a few levels
// deep, and the bound keeps a window tree changing under our feet from looping.
constexpr int maxDepth = 64;
// The most windows read from the window manager's list: far more than anyone keeps open.
constexpr std::uint32_t maxClients = 4096;

xcb_window_t activeWindow(xcb_connection_t* c, xcb_window_t root, xcb_atom_t atom) {
    xcb_generic_error_t* error = nullptr;
    auto reply =
        takeReply(xcb_get_property_reply(
                      c, xcb_get_property(c, 0, root, atom, XCB_ATOM_WINDOW, 0, 1), &error),
                  error);
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4) {
        return XCB_NONE;
    }
    xcb_window_t window = XCB_NONE;
    std::memcpy(&window, xcb_get_property_value(reply.get()), sizeof window);
    return window;
}

xcb_window_t parentOf(xcb_connection_t* c, xcb_window_t window) {
    xcb_generic_error_t* error = nullptr;
    auto reply = takeReply(xcb_query_tree_reply(c, xcb_query_tree(c, window), &error), error);
    return reply ? reply->parent : XCB_NONE;
}

// The class of window or of its nearest ancestor that has one, with that window; an empty
// class when none has.
std::pair<std::string, xcb_window_t> classUpFrom(xcb_connection_t* c, xcb_window_t window,
                                                 xcb_window_t root) {
    for (int depth = 0; depth < maxDepth && window != XCB_NONE && window != root; ++depth) {
        if (std::string name = wmClassOf(c, window); !name.empty()) {
            return {std::move(name), window};
        }
        window = parentOf(c, window);
    }
    return {};
}

// The windows the window manager lists as its clients; nothing without one.
std::vector<xcb_window_t> clientList(xcb_connection_t* c, xcb_window_t root, xcb_atom_t atom) {
    xcb_generic_error_t* error = nullptr;
    auto reply = takeReply(
        xcb_get_property_reply(
            c, xcb_get_property(c, 0, root, atom, XCB_ATOM_WINDOW, 0, maxClients), &error),
        error);
    std::vector<xcb_window_t> windows;
    if (reply && reply->format == 32) {
        const auto* first = static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
        windows.assign(first, first + xcb_get_property_value_length(reply.get()) / 4);
    }
    return windows;
}

// The top-level windows on screen, for a session without a window manager.
std::vector<xcb_window_t> shownTopLevels(xcb_connection_t* c, xcb_window_t root) {
    xcb_generic_error_t* error = nullptr;
    auto tree = takeReply(xcb_query_tree_reply(c, xcb_query_tree(c, root), &error), error);
    std::vector<xcb_window_t> windows;
    if (!tree) {
        return windows;
    }
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    std::vector<xcb_get_window_attributes_cookie_t> cookies;
    for (int i = 0; i < count; ++i) {
        cookies.push_back(xcb_get_window_attributes(c, children[i]));
    }
    for (int i = 0; i < count; ++i) {
        auto attributes = takeReply(
            xcb_get_window_attributes_reply(c, cookies[static_cast<std::size_t>(i)], &error),
            error);
        if (attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
            !attributes->override_redirect) {
            windows.push_back(children[i]);
        }
    }
    return windows;
}

// Selects events on a window that may be gone by now; false when it is.
bool selectEvents(xcb_connection_t* c, xcb_window_t window, std::uint32_t mask) {
    xcb_generic_error_t* error = xcb_request_check(
        c, xcb_change_window_attributes_checked(c, window, XCB_CW_EVENT_MASK, &mask));
    std::free(error);
    return error == nullptr;
}

} // namespace

X11FrontApplication::X11FrontApplication(X11Connection& connection)
    : scheduler_(connection.scheduler()), display_(connection.display()),
      root_(XDefaultRootWindow(display_)),
      activeAtom_(XInternAtom(display_, "_NET_ACTIVE_WINDOW", False)),
      pidAtom_(XInternAtom(display_, "_NET_WM_PID", False)),
      alive_(std::make_shared<X11FrontApplication*>(this)) {
    // Focus events on the root come when the focus leaves it or returns to it (no window
    // manager, or one without EWMH).
    selectEvents(XGetXCBConnection(display_), static_cast<xcb_window_t>(root_),
                 XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_FOCUS_CHANGE);
    Front front = resolve();
    id_ = std::move(front.id);
    window_ = front.window;
    connection.watchWhileAlive(std::weak_ptr<X11FrontApplication*>(alive_),
                               &X11FrontApplication::drainEvents);
}

X11FrontApplication::~X11FrontApplication() {
    alive_.reset();
    if (refocusTimer_ != 0) {
        scheduler_.cancel(refocusTimer_);
    }
    xcb_connection_t* c = XGetXCBConnection(display_);
    if (followed_ != None) {
        selectEvents(c, static_cast<xcb_window_t>(followed_), 0);
    }
    selectEvents(c, static_cast<xcb_window_t>(root_), 0);
}

std::vector<std::string> X11FrontApplication::running() const {
    xcb_connection_t* c = XGetXCBConnection(display_);
    const auto root = static_cast<xcb_window_t>(root_);
    // Interned here, not at start: only the editor's picker asks, and seldom.
    std::vector<xcb_window_t> windows = clientList(
        c, root, static_cast<xcb_atom_t>(XInternAtom(display_, "_NET_CLIENT_LIST", False)));
    if (windows.empty()) {
        windows = shownTopLevels(c, root);
    }
    std::vector<std::string> ids;
    for (xcb_window_t window : windows) {
        if (std::string id = wmClassOf(c, window); !id.empty()) {
            ids.push_back(std::move(id));
        }
    }
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

void X11FrontApplication::drainEvents() {
    for (;;) {
        bool again = false;
        while (XPending(display_) > 0) {
            XEvent event;
            XNextEvent(display_, &event);
            switch (event.type) {
            case PropertyNotify:
                again = again ||
                        (event.xproperty.window == root_ && event.xproperty.atom == activeAtom_);
                break;
            case FocusIn:
            case FocusOut:
                again = true;
                break;
            case UnmapNotify:
            case DestroyNotify:
                again = again || event.xany.window == followed_;
                break;
            default:
                break;
            }
        }
        if (!again) {
            return;
        }
        // Looking again reads replies, and with them perhaps more events: drain those too.
        refresh();
    }
}

void X11FrontApplication::refresh() {
    Front now = resolve();
    const bool moved = now.window != window_;
    const bool changed = now.id != id_;
    id_ = std::move(now.id);
    window_ = now.window;
    if (refocusing_ != None && window_ == refocusing_) {
        endRefocus(true);
    }
    // The handlers may replace themselves.
    if (moved && moved_) {
        auto handler = moved_;
        handler(processOf(window_));
    }
    if (changed && changed_) {
        auto handler = changed_;
        handler();
    }
    if (changed) {
        trace("front " + id_); // once the engine has taken it in, for tests to wait on
    }
}

void X11FrontApplication::refocus(Window window, std::function<void(bool)> done) {
    endRefocus(false); // an earlier request gives way
    if (window == None) {
        done(false);
        return;
    }
    refocusing_ = window;
    refocused_ = std::move(done);
    xcb_connection_t* c = XGetXCBConnection(display_);
    // The window manager decides about activation; a pager's request (source 2) is one it
    // honours without second-guessing the timestamp. Without a window manager nobody answers,
    // so the focus is also set directly.
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = static_cast<xcb_window_t>(window);
    message.type = static_cast<xcb_atom_t>(activeAtom_);
    message.data.data32[0] = 2;
    message.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(c, 0, static_cast<xcb_window_t>(root_),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
    if (activeWindow(c, static_cast<xcb_window_t>(root_), static_cast<xcb_atom_t>(activeAtom_)) ==
        XCB_NONE) {
        std::free(xcb_request_check(
            c, xcb_set_input_focus_checked(c, XCB_INPUT_FOCUS_PARENT,
                                           static_cast<xcb_window_t>(window), XCB_CURRENT_TIME)));
    }
    xcb_flush(c);
    std::weak_ptr<X11FrontApplication*> alive = alive_;
    refocusTimer_ = scheduler_.postAfter(std::chrono::seconds(1), [alive] {
        if (auto self = alive.lock()) {
            (*self)->refocusTimer_ = 0;
            (*self)->endRefocus(false);
        }
    });
    refresh(); // perhaps it never lost the focus
}

void X11FrontApplication::endRefocus(bool back) {
    if (refocusing_ == None) {
        return;
    }
    refocusing_ = None;
    if (refocusTimer_ != 0) {
        scheduler_.cancel(refocusTimer_);
        refocusTimer_ = 0;
    }
    if (auto done = std::exchange(refocused_, {})) {
        done(back);
    }
}

int X11FrontApplication::processOf(Window window) {
    if (window == None) {
        return 0;
    }
    xcb_connection_t* c = XGetXCBConnection(display_);
    xcb_generic_error_t* error = nullptr;
    auto reply =
        takeReply(xcb_get_property_reply(c,
                                         xcb_get_property(c, 0, static_cast<xcb_window_t>(window),
                                                          static_cast<xcb_atom_t>(pidAtom_),
                                                          XCB_ATOM_CARDINAL, 0, 1),
                                         &error),
                  error);
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4) {
        return 0;
    }
    std::uint32_t pid = 0;
    std::memcpy(&pid, xcb_get_property_value(reply.get()), sizeof pid);
    return static_cast<int>(pid);
}

X11FrontApplication::Front X11FrontApplication::resolve() {
    xcb_connection_t* c = XGetXCBConnection(display_);
    const auto root = static_cast<xcb_window_t>(root_);
    xcb_generic_error_t* error = nullptr;
    auto focused = takeReply(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), &error), error);
    xcb_window_t focus = focused ? focused->focus : XCB_NONE;
    // Whichever answers, the focused window's changes are what say to look again when the
    // window manager keeps no _NET_ACTIVE_WINDOW.
    follow(focus);
    if (const xcb_window_t active = activeWindow(c, root, static_cast<xcb_atom_t>(activeAtom_));
        active != XCB_NONE) {
        if (auto [name, window] = classUpFrom(c, active, root); !name.empty()) {
            return {std::move(name), window};
        }
    }
    if (focus == XCB_INPUT_FOCUS_POINTER_ROOT) {
        // Keys go to the window under the pointer.
        auto pointer =
            takeReply(xcb_query_pointer_reply(c, xcb_query_pointer(c, root), &error), error);
        focus = pointer ? pointer->child : XCB_NONE;
    }
    auto [name, window] = classUpFrom(c, focus, root);
    return {std::move(name), window};
}

void X11FrontApplication::follow(Window focus) {
    if (focus == followed_) {
        return;
    }
    xcb_connection_t* c = XGetXCBConnection(display_);
    if (followed_ != None) {
        selectEvents(c, static_cast<xcb_window_t>(followed_), 0);
    }
    followed_ = None;
    if (focus != None && focus != PointerRoot && focus != root_ &&
        selectEvents(c, static_cast<xcb_window_t>(focus),
                     XCB_EVENT_MASK_FOCUS_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY)) {
        followed_ = focus;
    }
}

} // namespace quillet
