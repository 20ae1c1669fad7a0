#include "platform/x11/X11Desktop.h"

namespace quillet {

std::unique_ptr<X11Desktop> X11Desktop::open(const std::string& display, Scheduler& scheduler,
                                             const Preferences& preferences, std::string& error) {
    std::unique_ptr<X11Desktop> desktop(new X11Desktop);
    desktop->display_ = display;
    desktop->typing_ = X11Connection::open(display, scheduler, error);
    if (!desktop->typing_) {
        return nullptr;
    }
    desktop->focus_ = X11Connection::open(display, scheduler, error);
    desktop->clipboard_ = X11Clipboard::open(display, scheduler, error);
    if (!desktop->focus_ || !desktop->clipboard_) {
        return nullptr;
    }
    desktop->typer_ = std::make_unique<X11Typer>(*desktop->typing_, desktop->own_);
    desktop->front_ = std::make_unique<X11FrontApplication>(*desktop->focus_);
    desktop->keys_ = std::make_unique<X11KeySource>(display, scheduler, desktop->own_);
    desktop->executor_ = std::make_unique<X11Executor>(*desktop->typer_, *desktop->clipboard_,
                                                       *desktop->front_, preferences, scheduler);
    // The user's keys typed on during an expansion wait until it is over, so they cannot land
    // between its erase and its paste.
    X11KeySource* keys = desktop->keys_.get();
    desktop->executor_->setHoldKeyboard([keys](bool on) { keys->holdKeyboard(on); });
    return desktop;
}

X11Desktop::~X11Desktop() {
    // The executor gives the user's clipboard back and the typer its spare keycodes before the
    // connections they use close.
    executor_.reset();
    keys_.reset();
    typer_.reset();
    front_.reset();
    clipboard_.reset();
}

void X11Desktop::setOnClipboardChange(std::function<void()> changed) {
    clipboard_->setOnChange(std::move(changed));
}

} // namespace quillet
