#include "platform/x11/X11SecureInput.h"

#include "platform/x11/XcbReply.h"

#include <X11/Xlib-xcb.h>
#include <cstdlib>
#include <deque>
#include <string_view>
#include <vector>
#include <xcb/xcb.h>

namespace quillet {
namespace {

// Bounds on the walks through other clients' window trees, which may change under our feet.
constexpr int maxDepth = 64;
constexpr std::size_t maxVisited = 256;
constexpr int startDepth = 3;

// Selects events on a window that may be gone by now, without waiting for the answer.
void selectEvents(xcb_connection_t* c, xcb_window_t window, std::uint32_t mask) {
    xcb_discard_reply(
        c, xcb_change_window_attributes_checked(c, window, XCB_CW_EVENT_MASK, &mask).sequence);
}

XcbReply<xcb_query_tree_reply_t> tree(xcb_connection_t* c, xcb_window_t window) {
    xcb_generic_error_t* error = nullptr;
    return takeReply(xcb_query_tree_reply(c, xcb_query_tree(c, window), &error), error);
}

// Selects focus events on the windows below window, depth levels down: frames and the clients
// inside them.
void selectBelow(xcb_connection_t* c, xcb_window_t window, int depth) {
    if (depth == 0) {
        return;
    }
    if (auto children = tree(c, window)) {
        const xcb_window_t* child = xcb_query_tree_children(children.get());
        for (int i = 0; i < xcb_query_tree_children_length(children.get()); ++i) {
            selectEvents(c, child[i], XCB_EVENT_MASK_FOCUS_CHANGE);
            selectBelow(c, child[i], depth - 1);
        }
    }
}

} // namespace

X11SecureInput::X11SecureInput(X11Connection& connection, OwnGrabs ownGrabs)
    : display_(connection.display()), root_(XDefaultRootWindow(display_)),
      ownGrabs_(std::move(ownGrabs)), alive_(std::make_shared<X11SecureInput*>(this)) {
    connection.watchWhileAlive(std::weak_ptr<X11SecureInput*>(alive_),
                               &X11SecureInput::drainEvents);
}

X11SecureInput::~X11SecureInput() {
    stop();
    alive_.reset();
}

void X11SecureInput::start(std::function<void()> changed) {
    changed_ = std::move(changed);
    if (started_) {
        return;
    }
    started_ = true;
    grabbed_ = own_ = false;
    holder_.clear();
    ownSeen_ = ownGrabs_ ? ownGrabs_() : 0;
    xcb_connection_t* c = XGetXCBConnection(display_);
    const auto root = static_cast<xcb_window_t>(root_);
    selectEvents(c, root, XCB_EVENT_MASK_FOCUS_CHANGE | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY);
    // Windows made from now on are picked up as children of the root, which every client's
    // top-level window is before a window manager moves it into a frame; the selection stays
    // with it there. The ones already there are looked for a few levels down.
    selectBelow(c, root, startDepth);
    follow();
    XFlush(display_);
}

void X11SecureInput::stop() {
    changed_ = {};
    if (!started_) {
        return;
    }
    started_ = false;
    grabbed_ = own_ = false;
    holder_.clear();
    // The children keep their selections: their events are drained and dropped, and the windows
    // are other clients' to destroy.
    selectEvents(XGetXCBConnection(display_), static_cast<xcb_window_t>(root_), 0);
    XFlush(display_);
}

void X11SecureInput::drainEvents() {
    const bool wasActive = active();
    const std::string wasHolder = holder();
    bool refollow = false;
    while (XPending(display_) > 0) {
        XEvent event;
        XNextEvent(display_, &event);
        if (!started_) {
            continue;
        }
        switch (event.type) {
        case CreateNotify:
            if (event.xcreatewindow.parent == root_) {
                selectEvents(XGetXCBConnection(display_),
                             static_cast<xcb_window_t>(event.xcreatewindow.window),
                             XCB_EVENT_MASK_FOCUS_CHANGE);
            }
            break;
        case FocusIn:
        case FocusOut:
            focusEvent(event.xfocus);
            refollow = refollow || event.xfocus.mode == NotifyNormal ||
                       event.xfocus.mode == NotifyWhileGrabbed;
            break;
        default:
            break;
        }
    }
    if (refollow) {
        follow();
    }
    if ((active() != wasActive || holder() != wasHolder) && changed_) {
        auto changed = changed_; // the handler may replace itself
        changed();
    }
}

void X11SecureInput::focusEvent(const XFocusChangeEvent& event) {
    switch (event.mode) {
    case NotifyGrab:
    case NotifyWhileGrabbed:
        if (!grabbed_) {
            beginGrab();
        }
        // Quillet grabs on the root window only; any other grab window is another client's.
        // NotifyPointer and the like go to the window under the pointer, which says nothing of
        // the grab.
        if (event.mode == NotifyGrab && event.type == FocusIn && event.detail < NotifyPointer &&
            event.window != root_) {
            own_ = false;
            if (holder_.empty()) {
                holder_ = nameAround(event.window);
            }
        }
        break;
    default: // NotifyUngrab, or NotifyNormal, which the server sends only while nothing grabs
        grabbed_ = own_ = false;
        holder_.clear();
        break;
    }
}

void X11SecureInput::beginGrab() {
    grabbed_ = true;
    own_ = false;
    holder_.clear();
    // Each activation of Quillet's grabs sends focus events, in order: one not yet matched with
    // its events is this grab.
    if (ownGrabs_ && ownGrabs_() > ownSeen_) {
        ++ownSeen_;
        own_ = true;
    }
}

void X11SecureInput::follow() {
    xcb_connection_t* c = XGetXCBConnection(display_);
    xcb_generic_error_t* error = nullptr;
    auto focused = takeReply(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), &error), error);
    const Window focus = focused ? focused->focus : None;
    if (focus == followed_ || focus == None || focus == PointerRoot || focus == root_) {
        return;
    }
    // The window left behind keeps its selection: a grab reported there means as much.
    followed_ = focus;
    selectEvents(c, static_cast<xcb_window_t>(focus), XCB_EVENT_MASK_FOCUS_CHANGE);
}

std::string X11SecureInput::nameAround(Window window) {
    xcb_connection_t* c = XGetXCBConnection(display_);
    const auto root = static_cast<xcb_window_t>(root_);
    // The window itself or an ancestor: the grab window, or an application's own child window.
    auto w = static_cast<xcb_window_t>(window);
    for (int depth = 0; depth < maxDepth && w != XCB_NONE && w != root; ++depth) {
        if (std::string name = wmClassOf(c, w); !name.empty()) {
            return name;
        }
        auto up = tree(c, w);
        w = up ? up->parent : XCB_NONE;
    }
    // A window manager's frame: the client window sits somewhere inside, first found breadth
    // first.
    std::deque<xcb_window_t> next{static_cast<xcb_window_t>(window)};
    std::vector<xcb_window_t> seen;
    while (!next.empty() && seen.size() < maxVisited) {
        const xcb_window_t at = next.front();
        next.pop_front();
        seen.push_back(at);
        if (at != window) {
            if (std::string name = wmClassOf(c, at); !name.empty()) {
                return name;
            }
        }
        if (auto down = tree(c, at)) {
            const xcb_window_t* child = xcb_query_tree_children(down.get());
            next.insert(next.end(), child, child + xcb_query_tree_children_length(down.get()));
        }
    }
    // No WM_CLASS anywhere: a title is better than nothing.
    const Atom netName = XInternAtom(display_, "_NET_WM_NAME", False);
    const Atom utf8 = XInternAtom(display_, "UTF8_STRING", False);
    for (xcb_window_t at : seen) {
        if (std::string title = textProperty(c, at, static_cast<xcb_atom_t>(netName),
                                             static_cast<xcb_atom_t>(utf8));
            !title.empty()) {
            return title;
        }
    }
    return {};
}

} // namespace quillet
