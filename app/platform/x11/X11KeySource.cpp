#include "platform/x11/X11KeySource.h"

#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Locks.h"

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib-xcb.h>
#include <X11/Xproto.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XKB.h>
#include <X11/extensions/XKBproto.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/record.h>
#include <X11/keysym.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <utility>
#include <vector>
#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace quillet {
namespace {

const char* const refused = "The X server refused the keyboard listener.";

// The core modifier bits of an event's state field; the group sits in bits 13 and 14.
constexpr unsigned realModifiers = 0xff;
constexpr unsigned groupShift = 13;

// Set while a RECORD request is being checked: the default handler would end the process.
bool requestFailed = false;
int noteFailure(Display*, XErrorEvent*) {
    requestFailed = true;
    return 0;
}

KeyEvent::Key keyFor(xkb_keysym_t sym) {
    using Key = KeyEvent::Key;
    switch (sym) {
    case XKB_KEY_BackSpace:
        return Key::backspace;
    case XKB_KEY_Tab:
    case XKB_KEY_ISO_Left_Tab:
    case XKB_KEY_KP_Tab:
        return Key::tab;
    case XKB_KEY_Escape:
        return Key::escape;
    case XKB_KEY_Return:
    case XKB_KEY_KP_Enter:
    case XKB_KEY_ISO_Enter:
        return Key::enter;
    case XKB_KEY_Left:
    case XKB_KEY_KP_Left:
        return Key::left;
    case XKB_KEY_Right:
    case XKB_KEY_KP_Right:
        return Key::right;
    case XKB_KEY_Up:
    case XKB_KEY_KP_Up:
        return Key::up;
    case XKB_KEY_Down:
    case XKB_KEY_KP_Down:
        return Key::down;
    case XKB_KEY_Home:
    case XKB_KEY_KP_Home:
        return Key::home;
    case XKB_KEY_End:
    case XKB_KEY_KP_End:
        return Key::end;
    case XKB_KEY_Page_Up:
    case XKB_KEY_KP_Page_Up:
        return Key::pageUp;
    case XKB_KEY_Page_Down:
    case XKB_KEY_KP_Page_Down:
        return Key::pageDown;
    case XKB_KEY_Mode_switch:
    case XKB_KEY_Num_Lock:
        return Key::modifier;
    default:
        break;
    }
    // Shift_L through Hyper_R, and the ISO level, latch and group keys.
    if ((sym >= XKB_KEY_Shift_L && sym <= XKB_KEY_Hyper_R) ||
        (sym >= XKB_KEY_ISO_Lock && sym <= XKB_KEY_ISO_Last_Group_Lock)) {
        return Key::modifier;
    }
    return Key::other;
}

// Control characters type nothing, except the three the engine treats as text.
bool typesNothing(const std::string& text) {
    if (text.size() != 1) {
        return text.empty();
    }
    const auto c = static_cast<unsigned char>(text[0]);
    return (c < 0x20 && c != '\t' && c != '\n' && c != '\r') || c == 0x7f;
}

// Whether a recorded request changes what keys mean. GetKbdByName does only when asked to load
// the keymap it names.
bool changesKeymap(const unsigned char* request, std::size_t size, int xkbOpcode) {
    if (size < 4) {
        return false;
    }
    if (request[0] == X_ChangeKeyboardMapping || request[0] == X_SetModifierMapping) {
        return true;
    }
    if (request[0] != xkbOpcode) {
        return false;
    }
    if (request[1] != X_kbGetKbdByName) {
        return true;
    }
    xkbGetKbdByNameReq byName;
    if (size < sizeof byName) {
        return false;
    }
    std::memcpy(&byName, request, sizeof byName);
    return byName.load != 0;
}

} // namespace

// RECORD calls back through a plain function with the source's slot, which is cleared when the
// source closes: a connection whose close had to wait may still deliver the end of the data.
struct RecordCallback {
    static void call(XPointer closure, XRecordInterceptData* data) {
        if (X11KeySource* self = *reinterpret_cast<X11KeySource**>(closure)) {
            ++self->dispatching_;
            self->recorded(data->category, data->data, std::size_t{data->data_len} * 4);
            --self->dispatching_;
        }
        XRecordFreeData(data);
    }
};

void X11KeySource::XkbDeleter::operator()(xkb_context* context) const {
    xkb_context_unref(context);
}
void X11KeySource::XkbDeleter::operator()(xkb_keymap* keymap) const {
    xkb_keymap_unref(keymap);
}
void X11KeySource::XkbDeleter::operator()(xkb_state* state) const {
    xkb_state_unref(state);
}
void X11KeySource::XkbDeleter::operator()(xkb_compose_table* table) const {
    xkb_compose_table_unref(table);
}
void X11KeySource::XkbDeleter::operator()(xkb_compose_state* state) const {
    xkb_compose_state_unref(state);
}

X11KeySource::X11KeySource(std::string display, Scheduler& scheduler, OwnKeys& own)
    : displayName_(std::move(display)), scheduler_(scheduler), own_(own) {
    tab_.keysym = XK_Tab;
    escape_.keysym = XK_Escape;
    return_.keysym = XK_Return;
    upArrow_.keysym = XK_Up;
    downArrow_.keysym = XK_Down;
}

X11KeySource::~X11KeySource() {
    stop();
}

// Life ----------------------------------------------------------------------------------------

bool X11KeySource::start(Observer& observer, std::string& error) {
    if (control_) {
        observer_ = &observer;
        return true;
    }
    control_ = X11Connection::open(displayName_, scheduler_, error);
    if (!control_) {
        return false;
    }
    data_ = X11Connection::open(displayName_, scheduler_, error);
    if (!data_) {
        closeConnections();
        return false;
    }
    Display* control = control_->display();
    int major = 0;
    int minor = 0;
    int eventBase = 0;
    int errorBase = 0;
    if (!XRecordQueryVersion(control, &major, &minor) ||
        !XQueryExtension(control, "XKEYBOARD", &xkbOpcode_, &eventBase, &errorBase)) {
        error = refused;
        closeConnections();
        return false;
    }
    xtest_ = XTestQueryExtension(control, &eventBase, &errorBase, &major, &minor) != 0;

    xkb_.reset(xkb_context_new(XKB_CONTEXT_NO_FLAGS));
    if (!xkb_ ||
        !xkb_x11_setup_xkb_extension(XGetXCBConnection(control), XKB_X11_MIN_MAJOR_XKB_VERSION,
                                     XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr,
                                     nullptr, nullptr) ||
        !loadKeymap()) {
        error = "Cannot read the keyboard layout from the X server.";
        closeConnections();
        return false;
    }
    loadCompose();

    // Key and button presses of every client, and the requests that change what keys mean, all
    // in the order the server handled them. The keymap is then read back from the server, so a
    // key typed right after a change is decoded with the new meaning.
    XRecordRange* ranges[5] = {};
    for (auto*& range : ranges) {
        range = XRecordAllocRange();
    }
    ranges[0]->device_events = {KeyPress, ButtonPress};
    ranges[0]->core_requests = {X_ChangeKeyboardMapping, X_ChangeKeyboardMapping};
    ranges[1]->core_requests = {X_SetModifierMapping, X_SetModifierMapping};
    const auto xkb = static_cast<unsigned char>(xkbOpcode_);
    ranges[2]->ext_requests = {{xkb, xkb}, {X_kbSetMap, X_kbSetMap}};
    ranges[3]->ext_requests = {{xkb, xkb}, {X_kbSetCompatMap, X_kbSetCompatMap}};
    ranges[4]->ext_requests = {{xkb, xkb}, {X_kbGetKbdByName, X_kbGetKbdByName}};
    XRecordClientSpec clients = XRecordAllClients;
    requestFailed = false;
    auto* previous = XSetErrorHandler(noteFailure);
    context_ = XRecordCreateContext(control, 0, &clients, 1, ranges, 5);
    XSync(control, False);
    for (auto* range : ranges) {
        XFree(range);
    }
    bool ok = context_ != 0 && !requestFailed;
    if (ok) {
        alive_ = std::make_shared<X11KeySource*>(this);
        ok = XRecordEnableContextAsync(data_->display(), context_, RecordCallback::call,
                                       reinterpret_cast<XPointer>(alive_.get())) != 0 &&
             awaitRecording(true);
    }
    XSetErrorHandler(previous);
    if (!ok) {
        error = refused;
        closeConnections();
        return false;
    }

    observer_ = &observer;
    data_->watch([alive = std::weak_ptr(alive_)](Display* display) {
        // An observer may stop the source from a callback; the connection then outlives it for
        // a moment and must not reach it.
        const auto self = alive.lock();
        if (!self || *self == nullptr) {
            return;
        }
        XRecordProcessReplies(display);
        if (*self == nullptr) {
            return;
        }
        while (XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
        }
    });
    control_->watch([this](Display*) { readControl(); });
    for (Grab* grab : grabs()) {
        applyGrab(*grab);
    }
    return true;
}

void X11KeySource::stop() {
    observer_ = nullptr;
    if (!control_) {
        return;
    }
    holdKeyboard(false);
    Display* control = control_->display();
    // A source started again holds nothing until asked, as the engine expects.
    for (Grab* grab : grabs()) {
        grab->wanted = false;
        releaseGrab(*grab);
    }
    if (context_ != 0) {
        XRecordDisableContext(control, context_);
        XSync(control, False);
        if (dispatching_ == 0) {
            awaitRecording(false); // so libXtst forgets the recording before the close
        }
        XRecordFreeContext(control, context_);
        XSync(control, False);
        context_ = 0;
    }
    closeConnections();
}

bool X11KeySource::awaitRecording(bool on) {
    // While a context is enabled the server answers nothing else on the data connection, so
    // its start and end are waited for by reading, not by a round trip.
    Display* data = data_->display();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    XFlush(data);
    while (recording_ != on && !requestFailed && std::chrono::steady_clock::now() < deadline) {
        pollfd readable{XConnectionNumber(data), POLLIN, 0};
        poll(&readable, 1, 100);
        XRecordProcessReplies(data);
    }
    return recording_ == on && !requestFailed;
}

void X11KeySource::closeConnections() {
    if (alive_) {
        *alive_ = nullptr;
    }
    recording_ = false;
    state_.reset();
    keymap_.reset();
    xkb_.reset();
    down_.clear();
    caught_.clear();
    grabHolder_ = 0;
    activeKey_ = 0;
    for (Grab* grab : grabs()) {
        grab->keycode = 0;
    }
    holding_ = false;
    holdCaught_ = false;
    heldDevices_.clear();
    queued_.clear();
    swallowed_.clear();
    heldPresses_.clear();
    earlierReleases_.clear();
    if (dispatching_ > 0) {
        // A callback reading one of these connections is on the stack: close them once it has
        // returned.
        std::shared_ptr<X11Connection> data = std::move(data_);
        std::shared_ptr<X11Connection> hold = std::move(hold_);
        scheduler_.post([data, hold, alive = alive_]() mutable {
            data.reset();
            hold.reset();
        });
    }
    data_.reset();
    hold_.reset();
    control_.reset();
    alive_.reset();
}

// What RECORD sees ----------------------------------------------------------------------------

void X11KeySource::recorded(int category, const unsigned char* data, std::size_t size) {
    switch (category) {
    case XRecordStartOfData:
        recording_ = true;
        return;
    case XRecordEndOfData:
        recording_ = false;
        return;
    case XRecordFromClient:
        if (changesKeymap(data, size, xkbOpcode_)) {
            mappingChanged();
        }
        return;
    case XRecordFromServer:
        break;
    default:
        return;
    }
    if (size < sizeof(xEvent) || !control_) {
        return;
    }
    xEvent event;
    std::memcpy(&event, data, sizeof event);
    const int type = event.u.u.type & 0x7f;
    const unsigned detail = event.u.u.detail;
    if (type == KeyPress || type == KeyRelease) {
        keyEvent(detail, type == KeyPress, event.u.keyButtonPointer.state,
                 event.u.keyButtonPointer.time);
    } else if (type == ButtonPress && (detail < 4 || detail > 7) && observer_ != nullptr) {
        // Buttons 4 to 7 are the wheel: scrolling moves no caret.
        observer_->click();
    }
}

void X11KeySource::keyEvent(unsigned keycode, bool press, unsigned state, unsigned long time) {
    if (!state_) {
        return;
    }
    const bool own = own_.consume(keycode, press);
    if (!press) {
        if (down_.erase(keycode) > 0) {
            xkb_state_update_key(state_.get(), keycode, XKB_KEY_UP);
        }
        if (keycode == grabHolder_) {
            grabHolder_ = 0; // the server ends a passive grab's activation with this release
        }
        return;
    }
    syncState(state);
    // A press of a key already down is the keyboard repeating it: reported again, but the
    // modifier state must not count it twice.
    const bool repeat = !down_.insert(keycode).second;
    const bool caught = grabMayCatch() && wasCaught(keycode, time);
    if (own) {
        if (caught) {
            deliver(keycode); // one of ours landed in a grab: it was meant for the application
        }
    } else if (observer_ != nullptr) {
        KeyEvent event = decode(state_.get(), keycode);
        compose(event, state_.get(), keycode);
        event.held = caught && event.key != KeyEvent::Key::modifier;
        const Verdict verdict = observer_->key(event);
        if (event.held && verdict == Verdict::pass && control_) {
            deliver(keycode);
        }
    }
    if (!repeat && state_) {
        xkb_state_update_key(state_.get(), keycode, XKB_KEY_DOWN);
    }
}

void X11KeySource::syncState(unsigned state) {
    // The event carries the server's modifiers and group as they were before the key. They
    // normally agree with the tracked state; when they do not (a key held since before the
    // start, a layout switched by a request, a keymap rebuilt), the server is right.
    const unsigned mods = state & realModifiers;
    const unsigned group = (state >> groupShift) & 3;
    const unsigned tracked =
        xkb_state_serialize_mods(state_.get(), XKB_STATE_MODS_EFFECTIVE) & realModifiers;
    const unsigned layout = xkb_state_serialize_layout(state_.get(), XKB_STATE_LAYOUT_EFFECTIVE);
    if (tracked != mods || layout != group) {
        xkb_state_update_mask(state_.get(), mods, 0, 0, 0, 0, group);
    }
}

KeyEvent X11KeySource::decode(xkb_state* state, unsigned keycode) const {
    KeyEvent event;
    const xkb_keysym_t sym = xkb_state_key_get_one_sym(state, keycode);
    event.key = keyFor(sym);
    if (event.key == KeyEvent::Key::tab) {
        event.text = "\t";
    } else if (event.key == KeyEvent::Key::enter) {
        event.text = "\r";
    } else if (event.key != KeyEvent::Key::modifier) {
        char text[64];
        const int n = xkb_state_key_get_utf8(state, keycode, text, sizeof text);
        if (n > 0 && static_cast<std::size_t>(n) < sizeof text) {
            event.text.assign(text, static_cast<std::size_t>(n));
        }
        if (typesNothing(event.text)) {
            event.text.clear();
        }
    }
    const unsigned mods = xkb_state_serialize_mods(state, XKB_STATE_MODS_EFFECTIVE) & realModifiers;
    event.modifiers.control = (mods & ControlMask) != 0;
    event.modifiers.shift = (mods & ShiftMask) != 0;
    event.modifiers.alt = (mods & altMask_) != 0;
    event.modifiers.super = (mods & superMask_) != 0;
    return event;
}

// Dead keys and Compose ------------------------------------------------------------------------

void X11KeySource::loadCompose() {
    // The applications compose with the same tables, so what they show and what is matched
    // agree. The C locale's table gives Latin-1 bytes; its UTF-8 twin gives the same sequences.
    std::string locale = "C";
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        if (const char* value = std::getenv(name); value != nullptr && *value != '\0') {
            locale = value;
            break;
        }
    }
    if (locale == "C" || locale == "POSIX") {
        locale = "C.UTF-8";
    }
    composeTable_.reset(xkb_compose_table_new_from_locale(xkb_.get(), locale.c_str(),
                                                          XKB_COMPOSE_COMPILE_NO_FLAGS));
    compose_.reset(composeTable_
                       ? xkb_compose_state_new(composeTable_.get(), XKB_COMPOSE_STATE_NO_FLAGS)
                       : nullptr);
}

// A dead key or a Compose key starts a sequence that types nothing until it ends; the character
// it makes then arrives as the text of its last key, so "café" typed with a dead acute reaches
// the matcher as the four characters it shows.
void X11KeySource::compose(KeyEvent& event, xkb_state* state, unsigned keycode) {
    if (!compose_ || event.key == KeyEvent::Key::modifier) {
        return;
    }
    const xkb_keysym_t sym = xkb_state_key_get_one_sym(state, keycode);
    if (xkb_compose_state_feed(compose_.get(), sym) != XKB_COMPOSE_FEED_ACCEPTED) {
        return;
    }
    switch (xkb_compose_state_get_status(compose_.get())) {
    case XKB_COMPOSE_NOTHING:
        return;
    case XKB_COMPOSE_COMPOSING:
        event.text.clear();
        return;
    case XKB_COMPOSE_CANCELLED:
        event.text.clear();
        xkb_compose_state_reset(compose_.get());
        return;
    case XKB_COMPOSE_COMPOSED: {
        char text[64];
        const xkb_keysym_t made = xkb_compose_state_get_one_sym(compose_.get());
        const int n = made != XKB_KEY_NoSymbol
                          ? xkb_keysym_to_utf8(made, text, sizeof text) - 1
                          : xkb_compose_state_get_utf8(compose_.get(), text, sizeof text);
        event.key = KeyEvent::Key::other;
        event.text = n > 0 && static_cast<std::size_t>(n) < sizeof text
                         ? std::string(text, static_cast<std::size_t>(n))
                         : std::string();
        xkb_compose_state_reset(compose_.get());
        return;
    }
    }
}

// The keymap ----------------------------------------------------------------------------------

void X11KeySource::mappingChanged() {
    const bool ours = own_.consumeMappingChange();
    if (!control_) {
        return;
    }
    loadKeymap();
    // The keys to grab, or the lock modifiers to grab them with, may have moved.
    for (Grab* grab : grabs()) {
        applyGrab(*grab);
    }
    if (!ours && observer_ != nullptr) {
        observer_->reset();
    }
}

bool X11KeySource::loadKeymap() {
    xcb_connection_t* connection = XGetXCBConnection(control_->display());
    const std::int32_t device = xkb_x11_get_core_keyboard_device_id(connection);
    if (device < 0) {
        return false;
    }
    std::unique_ptr<xkb_keymap, XkbDeleter> keymap(xkb_x11_keymap_new_from_device(
        xkb_.get(), connection, device, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap) {
        return false;
    }
    std::unique_ptr<xkb_state, XkbDeleter> state(xkb_state_new(keymap.get()));
    if (!state) {
        return false;
    }
    // Keys still down press again in the new state, so their releases undo them; locks and the
    // group carry over.
    for (unsigned keycode : down_) {
        xkb_state_update_key(state.get(), keycode, XKB_KEY_DOWN);
    }
    if (state_) {
        xkb_state_update_mask(state.get(),
                              xkb_state_serialize_mods(state.get(), XKB_STATE_MODS_DEPRESSED),
                              xkb_state_serialize_mods(state_.get(), XKB_STATE_MODS_LATCHED),
                              xkb_state_serialize_mods(state_.get(), XKB_STATE_MODS_LOCKED),
                              xkb_state_serialize_layout(state.get(), XKB_STATE_LAYOUT_DEPRESSED),
                              xkb_state_serialize_layout(state_.get(), XKB_STATE_LAYOUT_LATCHED),
                              xkb_state_serialize_layout(state_.get(), XKB_STATE_LAYOUT_LOCKED));
    }
    keymap_ = std::move(keymap);
    state_ = std::move(state);
    findModifiers();
    return true;
}

void X11KeySource::findModifiers() {
    // Which of Mod1 to Mod5 mean Alt, Super, Num Lock and Scroll Lock depends on the keys
    // mapped to them. Meta counts as Super only on a modifier without Alt, as PC keymaps put
    // Meta on Alt's.
    altMask_ = superMask_ = numLockMask_ = scrollLockMask_ = 0;
    unsigned metaMask = 0;
    XModifierKeymap* map = XGetModifierMapping(control_->display());
    if (map == nullptr) {
        return;
    }
    for (int modifier = 3; modifier < 8; ++modifier) {
        const unsigned bit = 1u << modifier;
        for (int i = 0; i < map->max_keypermod; ++i) {
            const unsigned keycode = map->modifiermap[modifier * map->max_keypermod + i];
            if (keycode == 0) {
                continue;
            }
            const xkb_level_index_t levels =
                xkb_keymap_num_levels_for_key(keymap_.get(), keycode, 0);
            for (xkb_level_index_t level = 0; level < levels; ++level) {
                const xkb_keysym_t* syms = nullptr;
                const int n =
                    xkb_keymap_key_get_syms_by_level(keymap_.get(), keycode, 0, level, &syms);
                for (int s = 0; s < n; ++s) {
                    switch (syms[s]) {
                    case XKB_KEY_Alt_L:
                    case XKB_KEY_Alt_R:
                        altMask_ |= bit;
                        break;
                    case XKB_KEY_Super_L:
                    case XKB_KEY_Super_R:
                    case XKB_KEY_Hyper_L:
                    case XKB_KEY_Hyper_R:
                        superMask_ |= bit;
                        break;
                    case XKB_KEY_Meta_L:
                    case XKB_KEY_Meta_R:
                        metaMask |= bit;
                        break;
                    case XKB_KEY_Num_Lock:
                        numLockMask_ |= bit;
                        break;
                    case XKB_KEY_Scroll_Lock:
                        scrollLockMask_ |= bit;
                        break;
                    default:
                        break;
                    }
                }
            }
        }
    }
    XFreeModifiermap(map);
    superMask_ |= metaMask & ~altMask_;
}

unsigned X11KeySource::keycodeFor(unsigned long keysym) const {
    // The first key that types keysym on its first level, as a user would press it.
    const xkb_keycode_t last = xkb_keymap_max_keycode(keymap_.get());
    for (xkb_keycode_t keycode = xkb_keymap_min_keycode(keymap_.get()); keycode <= last;
         ++keycode) {
        const xkb_keysym_t* syms = nullptr;
        const int n = xkb_keymap_key_get_syms_by_level(keymap_.get(), keycode, 0, 0, &syms);
        if (n == 1 && syms[0] == keysym) {
            return keycode;
        }
    }
    return 0;
}

// Grabs -----------------------------------------------------------------------------------------

void X11KeySource::grabTab(bool on) {
    tab_.wanted = on;
    applyGrab(tab_);
}

void X11KeySource::grabEscape(bool on) {
    escape_.wanted = on;
    applyGrab(escape_);
}

void X11KeySource::grabReturn(bool on) {
    return_.wanted = on;
    applyGrab(return_);
}

void X11KeySource::grabArrows(bool on) {
    upArrow_.wanted = on;
    downArrow_.wanted = on;
    applyGrab(upArrow_);
    applyGrab(downArrow_);
}

void X11KeySource::applyGrab(Grab& grab) {
    if (!control_ || !keymap_) {
        return;
    }
    releaseGrab(grab);
    // Without XTEST a caught key could not be handed on when the verdict lets it through.
    if (!grab.wanted || !xtest_) {
        return;
    }
    const unsigned keycode = keycodeFor(grab.keysym);
    if (keycode == 0) {
        return;
    }
    xcb_connection_t* connection = XGetXCBConnection(control_->display());
    const auto root = static_cast<xcb_window_t>(XDefaultRootWindow(control_->display()));
    std::vector<xcb_void_cookie_t> cookies;
    for (unsigned mask : lockCombinations(numLockMask_, scrollLockMask_)) {
        cookies.push_back(xcb_grab_key_checked(
            connection, 0, root, static_cast<std::uint16_t>(mask),
            static_cast<xcb_keycode_t>(keycode), XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    }
    // Waiting for the answers also puts the grab in place before the next key is handled.
    // Another client may hold some of the combinations; the ones granted still work, and a key
    // they do not catch simply reaches the application and is reported as not held.
    for (xcb_void_cookie_t cookie : cookies) {
        if (xcb_generic_error_t* failure = xcb_request_check(connection, cookie)) {
            free(failure);
        }
    }
    grab.keycode = keycode;
}

void X11KeySource::releaseGrab(Grab& grab) {
    if (grab.keycode == 0 || !control_) {
        return;
    }
    Display* control = control_->display();
    XUngrabKey(control, static_cast<int>(grab.keycode), AnyModifier, XDefaultRootWindow(control));
    XSync(control, False);
    grab.keycode = 0;
}

bool X11KeySource::grabMayCatch() const {
    // Keys already caught but not yet recorded count too: a burst of Quillet's own keys can all
    // land in a grab that the first of them, handed on, has ended since.
    const auto grabbed = [](const Grab& grab) { return grab.keycode != 0; };
    return grabbed(tab_) || grabbed(escape_) || grabbed(return_) || grabbed(upArrow_) ||
           grabbed(downArrow_) || grabHolder_ != 0 || !caught_.empty();
}

// Whether a recorded press went to a grab of ours instead of the application. RECORD records a
// grabbed key like any other, and the grab cannot be inferred from the key and its modifiers:
// another client's active grab (an open menu, a screen locker) beats a passive grab on the
// root, and while a grab is active every other key goes to it too. The control connection
// receives exactly the keys a grab of ours took, so that decides. Both events come from the
// same step of the server, and the control connection gets its copy before the server answers
// a later request: one round trip after the recorded event, the copy is there if it exists.
// They are matched by key and server time.
bool X11KeySource::wasCaught(unsigned keycode, unsigned long time) {
    // Server times only grow (modulo 2^32): a copy older than this event belongs to none still
    // to come.
    while (!caught_.empty() && caught_.front().time != time &&
           static_cast<std::uint32_t>(time - caught_.front().time) < 0x80000000U) {
        caught_.pop_front();
    }
    auto find = [&] {
        for (auto it = caught_.begin(); it != caught_.end(); ++it) {
            if (it->keycode == keycode && it->time == time) {
                caught_.erase(caught_.begin(), it + 1); // the older ones were answered already
                return true;
            }
        }
        return false;
    };
    if (find()) {
        return true;
    }
    XSync(control_->display(), False);
    readControl();
    return find();
}

void X11KeySource::readControl() {
    constexpr std::size_t keep = 64;
    Display* display = control_->display();
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type == KeyPress) {
            caught_.push_back({event.xkey.keycode, event.xkey.time});
            if (grabHolder_ == 0) {
                grabHolder_ = event.xkey.keycode;
            }
            // Counted from this connection's own events, which come in server order, and not
            // from the recorded releases, which may come later than the next press here.
            if (activeKey_ == 0) {
                activeKey_ = event.xkey.keycode;
                ++activations_;
            }
            if (caught_.size() > keep) {
                caught_.pop_front();
            }
        } else if (event.type == KeyRelease && event.xkey.keycode == activeKey_) {
            activeKey_ = 0; // the server ends a passive grab's activation with this release
        }
    }
}

std::uint64_t X11KeySource::grabsActivated() {
    if (control_) {
        // A key that activated a grab reaches the control connection in the same step of the
        // server as the focus events the grab sends, so after a round trip it is here.
        XSync(control_->display(), False);
        readControl();
    }
    return activations_;
}

void X11KeySource::deliver(unsigned keycode) {
    Display* control = control_->display();
    // The press turned the passive grab into an active one; end it, and lift the passive grab
    // for the moment, or the key would land in the grab again.
    XUngrabKeyboard(control, CurrentTime);
    grabHolder_ = 0;
    activeKey_ = 0;
    Grab* grab = nullptr;
    for (Grab* candidate : grabs()) {
        if (keycode == candidate->keycode) {
            grab = candidate;
        }
    }
    if (grab != nullptr) {
        XUngrabKey(control, static_cast<int>(keycode), AnyModifier, XDefaultRootWindow(control));
        grab->keycode = 0;
    }
    own_.expect(keycode, true);
    own_.expect(keycode, false);
    XTestFakeKeyEvent(control, keycode, True, CurrentTime);
    XTestFakeKeyEvent(control, keycode, False, CurrentTime);
    if (grab != nullptr) {
        applyGrab(*grab); // waits for the server, after the replayed key
    } else {
        XSync(control, False);
    }
}

// Holding the keyboard --------------------------------------------------------------------------

// While the keyboard is held, each of the user's keyboards is grabbed with XInput2: every slave
// keyboard when Quillet types on the master directly, else every one but the XTEST ones. The
// server floats a grabbed slave: its keys come only to this connection, RECORD no longer sees
// them and the master keyboard, which the applications listen to, no longer feels them,
// modifiers included; Quillet's own keys arrive undisturbed.
void X11KeySource::holdKeyboard(bool on) {
    if (!on) {
        releaseHold(observer_ != nullptr);
        return;
    }
    if (holding_ || !control_ || !xtest_) {
        return;
    }
    if (!hold_) {
        std::string ignored;
        hold_ = X11Connection::open(displayName_, scheduler_, ignored);
        int eventBase = 0;
        int errorBase = 0;
        int major = 2;
        int minor = 0;
        if (!hold_ ||
            !XQueryExtension(hold_->display(), "XInputExtension", &xiOpcode_, &eventBase,
                             &errorBase) ||
            XIQueryVersion(hold_->display(), &major, &minor) != Success) {
            hold_.reset();
            return;
        }
        hold_->watch([alive = std::weak_ptr(alive_)](Display*) {
            if (const auto self = alive.lock(); self && *self != nullptr) {
                (*self)->readHold();
            }
        });
    }
    Display* hold = hold_->display();
    const Atom xtestDevice = XInternAtom(hold, "XTEST Device", True);
    auto isXtest = [&](const XIDeviceInfo& device) {
        if (xtestDevice != None) {
            Atom type = None;
            int format = 0;
            unsigned long items = 0;
            unsigned long after = 0;
            unsigned char* value = nullptr;
            if (XIGetProperty(hold, device.deviceid, xtestDevice, 0, 1, False, XA_INTEGER, &type,
                              &format, &items, &after, &value) == Success &&
                value != nullptr) {
                XFree(value);
                return items > 0;
            }
        }
        return std::strstr(device.name, "XTEST") != nullptr;
    };

    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(bits, XI_KeyPress);
    XISetMask(bits, XI_KeyRelease);
    requestFailed = false;
    auto* previous = XSetErrorHandler(noteFailure);
    int count = 0;
    XIDeviceInfo* devices = XIQueryDevice(hold, XIAllDevices, &count);
    for (int i = 0; i < count; ++i) {
        const XIDeviceInfo& device = devices[i];
        // Typing on the master, Quillet needs no slave keyboard of its own.
        const bool ours = master_ < 0 && isXtest(device);
        if (device.use != XISlaveKeyboard || !device.enabled || ours) {
            continue;
        }
        XIEventMask mask{device.deviceid, sizeof bits, bits};
        if (XIGrabDevice(hold, device.deviceid, XDefaultRootWindow(hold), CurrentTime, None,
                         XIGrabModeAsync, XIGrabModeAsync, False, &mask) == Success) {
            heldDevices_.insert(device.deviceid);
        }
    }
    XIFreeDeviceInfo(devices);
    XSync(hold, False);
    XSetErrorHandler(previous);
    readSoon();
    holding_ = !heldDevices_.empty();
    // The server has now recorded every key that reached an application before the hold, and
    // written them out with the reply just read: report them now, so the expansion knows what
    // was typed after its abbreviation. Inside a report this waits for the connection's turn.
    if (holding_ && dispatching_ == 0 && data_) {
        ++dispatching_;
        XRecordProcessReplies(data_->display());
        --dispatching_;
    }
}

void X11KeySource::readHold() {
    Display* hold = hold_->display();
    bool late = false;
    while (XPending(hold) > 0) {
        XEvent event;
        XNextEvent(hold, &event);
        XGenericEventCookie& cookie = event.xcookie;
        if (event.type != GenericEvent || cookie.extension != xiOpcode_ ||
            !XGetEventData(hold, &cookie)) {
            continue;
        }
        const auto* key = static_cast<const XIDeviceEvent*>(cookie.data);
        const bool press = cookie.evtype == XI_KeyPress;
        const auto keycode = static_cast<unsigned>(key->detail);
        const auto mods = static_cast<unsigned>(key->mods.effective);
        const auto group = static_cast<unsigned>(key->group.effective);
        if ((press || cookie.evtype == XI_KeyRelease) && holding_ &&
            heldDevices_.count(key->deviceid) > 0) {
            // Releases alone don't count: those of keys pressed before the hold go out after
            // its end in any case.
            holdCaught_ = holdCaught_ || press;
            ++dispatching_;
            heldKey(keycode, press, mods, group);
            --dispatching_;
        } else if (press || cookie.evtype == XI_KeyRelease) {
            // Caught by a grab that has ended since, while a report was being handled: the
            // key goes on as typed, for the listener to see like any other.
            late = true;
            queued_.push_back({keycode, press, mods & realModifiers, group});
        }
        XFreeEventData(hold, &cookie);
    }
    if (late && !holding_) {
        replayQueued(false);
        XFlush(hold);
    }
}

void X11KeySource::heldKey(unsigned keycode, bool press, unsigned mods, unsigned group) {
    if (!press) {
        if (heldPresses_.erase(keycode) == 0) {
            // Pressed before the hold, on the master the applications listen to: released
            // there too once the grabs end, or it would stay down.
            earlierReleases_.push_back(keycode);
        } else if (swallowed_.erase(keycode) == 0) {
            queued_.push_back({keycode, false});
        }
        return;
    }
    heldPresses_.insert(keycode);
    if (!keymap_ || observer_ == nullptr) {
        queued_.push_back({keycode, true, mods & realModifiers, group});
        return;
    }
    // The floating keyboard has a state of its own, which the event carries.
    std::unique_ptr<xkb_state, XkbDeleter> state(xkb_state_new(keymap_.get()));
    if (!state) {
        return;
    }
    xkb_state_update_mask(state.get(), mods & realModifiers, 0, 0, 0, 0, group);
    KeyEvent event = decode(state.get(), keycode);
    compose(event, state.get(), keycode);
    event.held = true;
    const Verdict verdict = observer_->key(event);
    if (verdict == Verdict::pass) {
        queued_.push_back({keycode, true, mods & realModifiers, group});
        return;
    }
    swallowed_.insert(keycode);
    if (verdict == Verdict::swallow) {
        queued_.push_back({0, false, 0, 0, true});
    }
}

// Sends the queued keys out through the hold connection, so that they reach the server before
// a request to end the grabs made after. On the master keyboard when Quillet types there, where
// the keys pressed before the hold are down too and so are released; while the hold lasts each
// press gets the modifiers and layout it was typed with, which Quillet's typing may have
// changed meanwhile.
bool X11KeySource::replayQueued(bool announce) {
    if (queued_.empty() || queued_.front().barrier) {
        return false;
    }
    Display* hold = hold_->display();
    XDevice master{};
    master.device_id = static_cast<XID>(master_);
    std::size_t sent = 0;
    for (; sent < queued_.size() && !queued_[sent].barrier; ++sent) {
        const Queued& key = queued_[sent];
        if (announce) {
            own_.expect(key.keycode, key.press);
        }
        if (master_ < 0) {
            XTestFakeKeyEvent(hold, key.keycode, key.press ? True : False, CurrentTime);
            continue;
        }
        XkbStateRec state{};
        if (key.press && holding_ &&
            XkbGetState(hold, static_cast<unsigned>(master_), &state) == Success) {
            if (state.group != key.group) {
                XkbLockGroup(hold, static_cast<unsigned>(master_), key.group);
            }
            // Latched, they hold for this key only, like the user's did.
            if (const unsigned missing = key.mods & ~state.mods & realModifiers; missing != 0) {
                XkbLatchModifiers(hold, static_cast<unsigned>(master_), missing, missing);
            }
        }
        XTestFakeDeviceKeyEvent(hold, &master, key.keycode, key.press ? True : False, nullptr, 0,
                                CurrentTime);
    }
    queued_.erase(queued_.begin(), queued_.begin() + static_cast<std::ptrdiff_t>(sent));
    return sent > 0;
}

void X11KeySource::releaseHold(bool announce) {
    if (!holding_ || !hold_) {
        return;
    }
    Display* hold = hold_->display();
    // A key caught here began the next expansion: what was typed after it waits for that one
    // to end. Should it never run, the keyboard is let go after a while all the same.
    auto keepForNext = [this, announce] {
        queued_.pop_front();
        readSoon();
        const std::uint64_t generation = ++holdGeneration_;
        scheduler_.postAfter(std::chrono::seconds(3),
                             [this, generation, announce, alive = std::weak_ptr(alive_)] {
                                 if (const auto self = alive.lock();
                                     self && *self != nullptr && holdGeneration_ == generation) {
                                     releaseHold(announce);
                                 }
                             });
    };
    // Once the hold has caught keys, the grabs end while other clients wait, and only when
    // nothing caught is left unread: a key an automation tool or on-screen keyboard sends just
    // then would otherwise reach the application ahead of one caught a moment before, which
    // goes out only once read. A hold that caught nothing skips the wait, which would hold up
    // the application drawing the expansion. Nothing is handled while clients wait, as handling
    // a key may ask the server through another connection.
    bool serverHeld = false;
    while (true) {
        // The keys caught so far go out while every keyboard is still held, through one the
        // hold leaves alone: a key the user types meanwhile is caught in turn and follows them,
        // where after the grabs ended it could overtake them. Until no more arrive.
        do {
            XSync(hold, False);
            if (dispatching_ == 0) {
                readHold();
            }
        } while (replayQueued(announce));
        if (!queued_.empty() && queued_.front().barrier) {
            keepForNext();
            return;
        }
        // A report being handled reads what it left unread after it; a hold that caught no
        // press has nothing a later key could overtake.
        if (dispatching_ != 0 || !holdCaught_) {
            break;
        }
        XGrabServer(hold);
        XSync(hold, False);
        if (XPending(hold) == 0) {
            serverHeld = true;
            break;
        }
        XUngrabServer(hold); // more came in: they go out first
    }
    ++holdGeneration_;
    for (int device : heldDevices_) {
        XIUngrabDevice(hold, device, CurrentTime);
    }
    // A key caught just before the grabs ended still belongs to the hold, and goes out the way
    // the others did.
    XSync(hold, False);
    if (serverHeld) {
        XUngrabServer(hold);
        XFlush(hold);
    }
    if (dispatching_ == 0) {
        readHold();
    }
    replayQueued(announce);
    if (!queued_.empty() && queued_.front().barrier) {
        // One of them began the next expansion: the keyboard is held again at once, and the
        // keys after it wait for that expansion, as they would have with the grabs kept.
        holding_ = false;
        heldDevices_.clear();
        holdKeyboard(true);
        if (holding_) {
            keepForNext();
            return;
        }
        holding_ = true; // none could be taken: everything goes out now, as below
    }
    std::erase_if(queued_, [](const Queued& key) { return key.barrier; });
    // Keys the user still holds are released where they were replayed: the master, or XTEST's
    // keyboard, only notes a release of a press it made itself. Left down there, they would turn
    // the next replay of the key into a repeat, which the server drops. The user's own release
    // comes later and finds them up.
    for (unsigned keycode : heldPresses_) {
        if (swallowed_.count(keycode) == 0) {
            queued_.push_back({keycode, false});
        }
    }
    replayQueued(announce);
    holding_ = false;
    holdCaught_ = false;
    heldDevices_.clear();
    swallowed_.clear();
    heldPresses_.clear();
    for (unsigned keycode : std::exchange(earlierReleases_, {})) {
        queued_.push_back({keycode, false});
    }
    replayQueued(announce);
    XSync(hold, False);
    readSoon();
}

void X11KeySource::readSoon() {
    // A round trip may have read keys into Xlib's queue that were left there (inside a report,
    // or caught just before the grabs ended); the socket is quiet then, and they would wait for
    // the next key.
    if (hold_ && XEventsQueued(hold_->display(), QueuedAlready) > 0) {
        hold_->drainSoon();
    }
}

} // namespace quillet
