#pragma once

// The other clients of a real X server, as tests play them: the user's keyboard, applications
// with windows of their own, and another application's clipboard. Failures are thrown.
// Include after gtest: Xlib defines None and Bool as macros, and gtest uses both names.
#include "library/RunLoop.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11Connection.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XInput.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <clocale>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <unicode/utf8.h>
#include <vector>

namespace quillet::testing {

// Clients here read their connections on threads of their own: Xlib must lock.
inline const bool xlibThreads = XInitThreads() != 0;

/// Opens an X11Connection or X11Clipboard on $DISPLAY, as Quillet does; throws when it cannot.
template <class T = X11Connection> std::unique_ptr<T> openOwn(RunLoop& loop) {
    std::string error;
    auto opened = T::open("", loop, error);
    if (!opened) {
        throw std::runtime_error(error);
    }
    return opened;
}

/// The keycodes the keymap leaves without any keysym: where a test binds characters of its own.
inline std::set<unsigned> emptyKeycodes(Display* display) {
    int low = 0, high = 0, width = 0;
    XDisplayKeycodes(display, &low, &high);
    KeySym* syms = XGetKeyboardMapping(display, static_cast<KeyCode>(low), high - low + 1, &width);
    std::set<unsigned> empty;
    for (int keycode = low; keycode <= high; ++keycode) {
        bool none = true;
        for (int i = 0; i < width; ++i) {
            none = none && syms[(keycode - low) * width + i] == NoSymbol;
        }
        if (none) {
            empty.insert(static_cast<unsigned>(keycode));
        }
    }
    XFree(syms);
    return empty;
}

/// The user's hands. Keys come either from the server's own keyboard device, so they look like
/// a physical keyboard's, or from XTEST's virtual keyboard, as on-screen keyboards, remote
/// desktops and automation tools send them. Each call but send() returns once the server has
/// its keys.
class Typist {
public:
    enum class Source { keyboard, xtest };

    /// Connects to $DISPLAY; throws when it cannot, or when a keyboard device is asked for and
    /// the server has none.
    explicit Typist(Source source = Source::keyboard) : display_(XOpenDisplay(nullptr)) {
        if (display_ == nullptr) {
            throw std::runtime_error("no X display");
        }
        if (source == Source::xtest) {
            return;
        }
        int count = 0;
        XDeviceInfo* devices = XListInputDevices(display_, &count);
        for (int i = 0; i < count && keyboard_ == nullptr; ++i) {
            if (devices[i].use == IsXExtensionKeyboard &&
                std::string(devices[i].name).find("XTEST") == std::string::npos) {
                keyboard_ = XOpenDevice(display_, devices[i].id);
            }
        }
        XFreeDeviceList(devices);
        if (keyboard_ == nullptr) {
            XCloseDisplay(display_);
            throw std::runtime_error("the X server has no keyboard device of its own");
        }
    }
    ~Typist() {
        if (keyboard_ != nullptr) {
            XCloseDevice(display_, keyboard_);
        }
        XCloseDisplay(display_);
    }
    Typist(const Typist&) = delete;
    Typist& operator=(const Typist&) = delete;

    Display* display() const { return display_; }
    unsigned code(KeySym key) const { return XKeysymToKeycode(display_, key); }

    /// Presses (down) or releases the key of keycode; sync() waits until the server has it.
    void send(unsigned keycode, bool down) {
        if (keyboard_ == nullptr) {
            XTestFakeKeyEvent(display_, keycode, down ? True : False, CurrentTime);
        } else {
            XTestFakeDeviceKeyEvent(display_, keyboard_, keycode, down ? True : False, nullptr, 0,
                                    CurrentTime);
        }
    }
    void sync() { XSync(display_, False); }
    void key(KeySym key, bool down) {
        send(code(key), down);
        sync();
    }

    /// Presses keys in order and releases them the other way round, as in Control+Shift+K, all
    /// at once as a quick hand would.
    void chord(const std::vector<KeySym>& keys) {
        for (KeySym key : keys) {
            send(code(key), true);
        }
        for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
            send(code(*key), false);
        }
        sync();
    }

    /// Taps one key, with Shift held when asked or when the keysym is on the key's second level.
    void tap(KeySym key, bool shift = false) {
        const unsigned keycode = code(key);
        if (keycode == 0) {
            throw std::runtime_error("no key types keysym " + std::to_string(key));
        }
        shift = shift || (XkbKeycodeToKeysym(display_, keycode, 0, 0) != key &&
                          XkbKeycodeToKeysym(display_, keycode, 0, 1) == key);
        shift ? chord({XK_Shift_L, key}) : chord({key});
    }

    /// Types text character by character, pause between key strokes.
    void type(std::string_view text,
              std::chrono::milliseconds pause = std::chrono::milliseconds(8)) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
        for (int32_t i = 0, size = static_cast<int32_t>(text.size()); i < size;) {
            UChar32 c = 0;
            U8_NEXT(bytes, i, size, c);
            tap(c == '\n'   ? XK_Return
                : c == '\t' ? XK_Tab
                : c == 0x1B ? XK_Escape
                : c == '\b' ? XK_BackSpace
                            : static_cast<KeySym>(c < 0x100 ? c : 0x01000000 + c));
            std::this_thread::sleep_for(pause);
        }
    }

    /// The core keyboard's state: modifiers held and locked, the layout group.
    XkbStateRec state() const {
        XkbStateRec state{};
        XkbGetState(display_, XkbUseCoreKbd, &state);
        return state;
    }

private:
    Display* display_;
    XDevice* keyboard_ = nullptr;
};

/// An application of the test's own that needs no window manager: a window with the keyboard
/// focus that reads its key events on its own thread as they come, and translates them through
/// an input context with the keymap Xlib knows at that moment, as any application would.
class KeyWindow {
public:
    struct Key {
        unsigned keycode;
        bool press;
        KeySym keysym;
        unsigned state;
    };

    /// changed, when given, is called on the window's thread after every key event.
    explicit KeyWindow(std::function<void()> changed = {}) : changed_(std::move(changed)) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
        XSetLocaleModifiers("@im=none"); // no input method server: plain key translation
        display_ = XOpenDisplay(nullptr);
        if (display_ == nullptr) {
            return;
        }
        window_ =
            XCreateSimpleWindow(display_, XDefaultRootWindow(display_), 0, 0, 200, 100, 0, 0, 0);
        XSelectInput(display_, window_, KeyPressMask | KeyReleaseMask | StructureNotifyMask);
        XMapWindow(display_, window_);
        for (XEvent event; XWindowEvent(display_, window_, StructureNotifyMask, &event),
                           event.type != MapNotify;) {
        }
        XSetInputFocus(display_, window_, RevertToParent, CurrentTime);
        im_ = XOpenIM(display_, nullptr, nullptr, nullptr);
        if (im_ == nullptr) {
            return;
        }
        ic_ = XCreateIC(im_, XNInputStyle, XIMPreeditNothing | XIMStatusNothing, XNClientWindow,
                        window_, XNFocusWindow, window_, nullptr);
        // Xlib reads the keymap when it translates its first key and follows changes only from
        // then on; any application that has seen a key has done so.
        XKeyEvent first{};
        first.type = KeyPress;
        first.display = display_;
        first.keycode = XKeysymToKeycode(display_, XK_a);
        char ignored[8];
        XLookupString(&first, ignored, sizeof ignored, nullptr, nullptr);
        XSync(display_, False);
        reader_ = std::thread([this] { read(); });
    }
    ~KeyWindow() {
        if (reader_.joinable()) {
            stop_ = true;
            reader_.join();
        }
        if (ic_ != nullptr) {
            XDestroyIC(ic_);
        }
        if (im_ != nullptr) {
            XCloseIM(im_);
        }
        if (display_ != nullptr) {
            XCloseDisplay(display_);
        }
    }

    bool ready() const { return ic_ != nullptr && reader_.joinable(); }

    /// Waits (10 s at most) until done holds of the key events and the text typed so far.
    bool waitUntil(const std::function<bool(const std::vector<Key>&, const std::string&)>& done) {
        std::unique_lock lock(mutex_);
        return keyed_.wait_for(lock, std::chrono::seconds(10), [&] { return done(keys_, text_); });
    }
    bool waitForText(const std::string& expected) {
        return waitUntil([&](auto&, const std::string& text) { return text == expected; });
    }
    /// Waits for count presses (or releases) of keycode among the events from index from on.
    bool waitForKey(unsigned keycode, bool press, std::size_t from = 0, std::size_t count = 1) {
        return waitUntil([&](const std::vector<Key>& keys, auto&) {
            return count <=
                   static_cast<std::size_t>(std::count_if(
                       keys.begin() + static_cast<std::ptrdiff_t>(std::min(from, keys.size())),
                       keys.end(), [&](const Key& key) {
                           return key.keycode == keycode && key.press == press;
                       }));
        });
    }

    std::string text() {
        std::lock_guard lock(mutex_);
        return text_;
    }
    std::vector<Key> keys() {
        std::lock_guard lock(mutex_);
        return keys_;
    }
    void clear() {
        std::lock_guard lock(mutex_);
        text_.clear();
        keys_.clear();
    }

private:
    void read() {
        while (!stop_) {
            pollfd fd{XConnectionNumber(display_), POLLIN, 0};
            if (XPending(display_) == 0) {
                poll(&fd, 1, 50);
            }
            while (XPending(display_) > 0) {
                XEvent event;
                XNextEvent(display_, &event);
                if (event.type == MappingNotify) {
                    XRefreshKeyboardMapping(&event.xmapping);
                }
                if (!XFilterEvent(&event, None) &&
                    (event.type == KeyPress || event.type == KeyRelease)) {
                    take(event.xkey);
                }
            }
        }
    }

    void take(XKeyEvent& key) {
        char buffer[64];
        KeySym keysym = NoSymbol;
        int length = 0;
        if (key.type == KeyPress) {
            Status status = 0;
            length = Xutf8LookupString(ic_, &key, buffer, sizeof buffer, &keysym, &status);
            length = status == XLookupChars || status == XLookupBoth ? length : 0;
        } else {
            XLookupString(&key, buffer, sizeof buffer, &keysym, nullptr);
        }
        std::lock_guard lock(mutex_);
        keys_.push_back({key.keycode, key.type == KeyPress, keysym, key.state});
        if (key.type == KeyPress && (key.state & (ControlMask | Mod1Mask | Mod4Mask)) == 0) {
            // What an editor would do with the key.
            if (keysym == XK_BackSpace) {
                while (!text_.empty() && (text_.back() & 0xc0) == 0x80) {
                    text_.pop_back();
                }
                if (!text_.empty()) {
                    text_.pop_back();
                }
            } else {
                text_.append(keysym == XK_Return ? "\n" : std::string(buffer, length));
            }
        }
        keyed_.notify_all();
        if (changed_) {
            changed_();
        }
    }

    Display* display_ = nullptr;
    Window window_ = None;
    XIM im_ = nullptr;
    XIC ic_ = nullptr;
    std::atomic<bool> stop_ = false;
    std::thread reader_;
    std::mutex mutex_;
    std::condition_variable keyed_;
    std::function<void()> changed_;
    std::string text_;
    std::vector<Key> keys_;
};

/// Applications of the test's own under a window manager: windows they open, activate as a
/// taskbar would, focus and grab the keyboard onto.
class X11Windows {
public:
    X11Windows() : display_(XOpenDisplay(nullptr)) {}
    ~X11Windows() {
        if (display_ != nullptr) {
            XCloseDisplay(display_);
        }
    }

    Display* display() const { return display_; }
    Window root() const { return XDefaultRootWindow(display_); }

    /// Opens a window with WM_CLASS className (none when null) and title inside parent (the
    /// root when None), managed unless unmanaged; waits until it is viewable.
    Window open(const char* className, const std::string& title = "", bool unmanaged = false,
                Window parent = None) {
        XSetWindowAttributes attributes{};
        attributes.override_redirect = unmanaged ? True : False;
        const Window window =
            XCreateWindow(display_, parent != None ? parent : root(), 10, 10, 200, 100, 0,
                          CopyFromParent, InputOutput, nullptr, CWOverrideRedirect, &attributes);
        if (className != nullptr) {
            std::string instance = "quillet-test";
            std::string name = className;
            XClassHint hint{instance.data(), name.data()};
            XSetClassHint(display_, window, &hint);
        }
        if (!title.empty()) {
            XChangeProperty(display_, window, XInternAtom(display_, "_NET_WM_NAME", False),
                            XInternAtom(display_, "UTF8_STRING", False), 8, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(title.data()),
                            static_cast<int>(title.size()));
        }
        XSelectInput(display_, window, StructureNotifyMask);
        XMapWindow(display_, window);
        if (!waitViewable(window)) {
            throw std::runtime_error(std::string(className ? className : "a child") + " not shown");
        }
        settle();
        return window;
    }

    /// Asks the window manager to activate window, as a taskbar does.
    void activate(Window window) {
        sendToRoot(window, "_NET_ACTIVE_WINDOW", 2); // 2: a pager, spared focus-stealing checks
        settle();
    }

    /// Gives window the input focus directly, as an application does for itself.
    void focus(Window window) {
        XSetInputFocus(display_, window, RevertToParent, CurrentTime);
        settle();
    }

    void close(Window window) {
        XDestroyWindow(display_, window);
        XSync(display_, False);
    }

    /// Grabs the keyboard onto window, as soon as the server lets it.
    void grab(Window window) {
        int status = GrabSuccess;
        for (int tries = 0; tries < 500; ++tries) {
            status =
                XGrabKeyboard(display_, window, False, GrabModeAsync, GrabModeAsync, CurrentTime);
            XSync(display_, False);
            if (status == GrabSuccess) {
                return;
            }
        }
        throw std::runtime_error("the keyboard could not be grabbed: " + std::to_string(status));
    }

    void ungrab() {
        XUngrabKeyboard(display_, CurrentTime);
        XSync(display_, False);
    }

    /// Waits until a window manager runs: it lists the clients it manages on the root window.
    bool waitForWindowManager() {
        watchRoot();
        return waitUntil([&] { return hasProperty(root(), "_NET_CLIENT_LIST"); });
    }

    /// Waits until the keyboard focus is on window (in), or has left it for another one (out).
    bool waitForFocus(Window window, bool in) {
        watchRoot(); // the window manager announces the active window there
        return waitUntil([&] {
            Window focus = None;
            int revert = 0;
            XGetInputFocus(display_, &focus, &revert);
            return in ? focus == window : focus != window && focus > PointerRoot;
        });
    }

    /// Waits until a window of the root titled title is viewable (shown) or gone; where it is
    /// when shown.
    std::optional<XRectangle> waitForTitled(const std::string& title, bool shown) {
        watchRoot();
        std::optional<XRectangle> found;
        waitUntil([&] { return (found = titled(title)).has_value() == shown; });
        return found;
    }

private:
    void watchRoot() {
        XSelectInput(display_, root(), PropertyChangeMask | SubstructureNotifyMask);
    }

    std::optional<XRectangle> titled(const std::string& title) {
        Window rootReturn = None, parent = None, *children = nullptr;
        unsigned count = 0;
        std::optional<XRectangle> found;
        XQueryTree(display_, root(), &rootReturn, &parent, &children, &count);
        for (unsigned i = 0; i < count && !found; ++i) {
            XWindowAttributes a{};
            char* name = nullptr;
            if (XGetWindowAttributes(display_, children[i], &a) && a.map_state == IsViewable &&
                XFetchName(display_, children[i], &name) && name != nullptr && title == name) {
                found = XRectangle{static_cast<short>(a.x), static_cast<short>(a.y),
                                   static_cast<unsigned short>(a.width),
                                   static_cast<unsigned short>(a.height)};
            }
            if (name != nullptr) {
                XFree(name);
            }
        }
        if (children != nullptr) {
            XFree(children);
        }
        return found;
    }

    void sendToRoot(Window window, const char* message, long first) {
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = window;
        event.xclient.message_type = XInternAtom(display_, message, False);
        event.xclient.format = 32;
        event.xclient.data.l[0] = first;
        XSendEvent(display_, root(), False, SubstructureRedirectMask | SubstructureNotifyMask,
                   &event);
    }

    /// Waits until the window manager has handled everything sent so far, focus included, or
    /// it may act on an earlier request after the test has moved on. It answers in order, so
    /// the answer to a request for frame extents marks the point.
    void settle() {
        if (probe_ == None) {
            probe_ = XCreateSimpleWindow(display_, root(), 0, 0, 1, 1, 0, 0, 0);
            XSelectInput(display_, probe_, PropertyChangeMask);
        }
        XDeleteProperty(display_, probe_, XInternAtom(display_, "_NET_FRAME_EXTENTS", False));
        sendToRoot(probe_, "_NET_REQUEST_FRAME_EXTENTS", 0);
        if (!waitUntil([&] { return hasProperty(probe_, "_NET_FRAME_EXTENTS"); })) {
            throw std::runtime_error("the window manager does not answer");
        }
    }

    bool hasProperty(Window window, const char* name) {
        Atom type = None;
        int format = 0;
        unsigned long count = 0, after = 0;
        unsigned char* data = nullptr;
        XGetWindowProperty(display_, window, XInternAtom(display_, name, False), 0, 0, False,
                           AnyPropertyType, &type, &format, &count, &after, &data);
        if (data != nullptr) {
            XFree(data);
        }
        return type != None;
    }

    // Checks after each batch of events, or every 100 ms, for at most 10 s.
    template <typename Done> bool waitUntil(Done done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            if (done()) {
                return true;
            }
            pollfd fd{XConnectionNumber(display_), POLLIN, 0};
            poll(&fd, 1, 100);
            for (XEvent event; XPending(display_) > 0;) {
                XNextEvent(display_, &event);
            }
        }
        return false;
    }

    bool waitViewable(Window window) {
        // Openbox loses map requests that come while it is still starting, so one left
        // unanswered for a while is made again.
        auto again = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
        return waitUntil([&] {
            XWindowAttributes attributes{};
            if (XGetWindowAttributes(display_, window, &attributes) != 0 &&
                attributes.map_state == IsViewable) {
                return true;
            }
            if (std::chrono::steady_clock::now() > again) {
                XMapWindow(display_, window);
                again = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
            }
            return false;
        });
    }

    Display* display_;
    Window probe_ = None;
};

/// Another application's clipboard, on its own connection with its own main thread, so that it
/// answers while the test's thread waits for it and the other way round.
class OtherApp {
public:
    explicit OtherApp(RunLoop& main) : main_(main) {
        std::promise<void> ready;
        thread_ = std::thread([this, &ready] {
            RunLoop loop;
            std::string error;
            clipboard_ = X11Clipboard::open("", loop, error);
            loop_ = &loop;
            ready.set_value();
            loop.run();
            clipboard_.reset();
        });
        ready.get_future().wait();
    }
    ~OtherApp() {
        loop_->quit();
        thread_.join();
    }

    bool opened() const { return clipboard_ != nullptr; }

    /// Runs f(clipboard) on the other application's thread and wakes the test's loop after it.
    template <class F> auto call(F f) {
        using Result = decltype(f(std::declval<X11Clipboard&>()));
        auto task = std::make_shared<std::packaged_task<Result()>>(
            [this, f = std::move(f)]() mutable { return f(*clipboard_); });
        auto future = task->get_future();
        loop_->post([task, &main = main_] {
            (*task)();
            main.post([] {});
        });
        return future;
    }

private:
    RunLoop& main_;
    RunLoop* loop_ = nullptr;
    std::unique_ptr<X11Clipboard> clipboard_;
    std::thread thread_;
};

} // namespace quillet::testing
