#include "platform/x11/X11Desktop.h"

namespace quillet {

std::unique_ptr<X11Desktop> X11Desktop::open(const std::string& display, Scheduler& scheduler,
                                             const Preferences& preferences, std::string& error,
                                             const std::function<void(const std::string&)>& log) {
    std::unique_ptr<X11Desktop> desktop(new X11Desktop);
    desktop->display_ = display;
    desktop->typing_ = X11Connection::open(display, scheduler, error);
    if (!desktop->typing_) {
        return nullptr;
    }
    desktop->focus_ = X11Connection::open(display, scheduler, error);
    desktop->clipboard_ = X11Clipboard::open(display, scheduler, error);
    desktop->grabWatch_ = X11Connection::open(display, scheduler, error);
    desktop->shortcutConnection_ = X11Connection::open(display, scheduler, error);
    if (!desktop->focus_ || !desktop->clipboard_ || !desktop->grabWatch_ ||
        !desktop->shortcutConnection_) {
        return nullptr;
    }
    desktop->shortcut_ = std::make_unique<X11GlobalShortcut>(*desktop->shortcutConnection_);
    desktop->typer_ = std::make_unique<X11Typer>(*desktop->typing_, desktop->own_);
    // Typing on the master keyboard directly lets Quillet hold every slave keyboard while it
    // types, XTEST's included.
    desktop->typer_->useKeyboard(X11CoreKeyboard::open(desktop->typing_->display()));
    desktop->front_ = std::make_unique<X11FrontApplication>(*desktop->focus_);
    desktop->keys_ = std::make_unique<X11KeySource>(display, scheduler, desktop->own_);
    desktop->executor_ = std::make_unique<X11Executor>(*desktop->typer_, *desktop->clipboard_,
                                                       *desktop->front_, preferences, scheduler);
    // The user's keys typed on during an expansion wait until it is over, so they cannot land
    // between its erase and its paste.
    X11KeySource* keys = desktop->keys_.get();
    if (const X11CoreKeyboard* master = desktop->typer_->coreKeyboard()) {
        keys->setTypingKeyboard(master->masterId());
    } else if (log) {
        log("no XInput 2 master keyboard to type on: keys from XTEST's virtual keyboard can "
            "land inside an expansion");
    }
    desktop->executor_->setHoldKeyboard([keys](bool on) { keys->holdKeyboard(on); });
    desktop->grabs_ = std::make_unique<X11SecureInput>(*desktop->grabWatch_,
                                                       [keys] { return keys->grabsActivated(); });
    desktop->accessible_ = std::make_unique<AtSpiFocus>(scheduler, log);
    AtSpiFocus* accessible = desktop->accessible_.get();
    X11FrontApplication* front = desktop->front_.get();
    accessible->setFrontProcess([front] { return front->frontProcess(); });
    front->setOnWindowChange([accessible](int pid) { accessible->frontMoved(pid); });
    desktop->secure_ = std::make_unique<AnySecureInput>(
        std::vector<SecureInput*>{desktop->grabs_.get(), desktop->accessible_.get()});
    return desktop;
}

X11Desktop::~X11Desktop() {
    // The executor gives the user's clipboard back and the typer its spare keycodes before the
    // connections they use close.
    executor_.reset();
    shortcut_.reset();
    secure_.reset();
    accessible_.reset();
    grabs_.reset();
    keys_.reset();
    typer_.reset();
    front_.reset();
    clipboard_.reset();
}

void X11Desktop::setOnClipboardChange(std::function<void()> changed) {
    clipboard_->setOnChange(std::move(changed));
}

} // namespace quillet
