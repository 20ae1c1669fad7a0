#pragma once

#include "platform/AnySecureInput.h"
#include "platform/Desktop.h"
#include "platform/linux/AtSpiFocus.h"
#include "platform/x11/OwnKeys.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Executor.h"
#include "platform/x11/X11FrontApplication.h"
#include "platform/x11/X11GlobalShortcut.h"
#include "platform/x11/X11KeySource.h"
#include "platform/x11/X11SecureInput.h"
#include "platform/x11/X11Typer.h"

#include <functional>
#include <memory>
#include <string>

namespace quillet {

/// The X11 session: RECORD and XTEST share what Quillet types through OwnKeys, and the executor
/// pastes through Quillet's own CLIPBOARD selection.
class X11Desktop final : public Desktop {
public:
    /// Connects to display; null, with error, when the server cannot be used. log (may be
    /// empty) hears what works only in part, such as a missing accessibility bus.
    static std::unique_ptr<X11Desktop>
    open(const std::string& display, Scheduler& scheduler, const Preferences& preferences,
         std::string& error, const std::function<void(const std::string&)>& log = {});
    ~X11Desktop() override;

    std::string describe() const override { return "x11 on display " + display_; }
    KeySource& keys() override { return *keys_; }
    Executor& executor() override { return *executor_; }
    FrontApplication& front() override { return *front_; }
    Pasteboard& pasteboard() override { return *clipboard_; }
    /// Active while another client grabs the keyboard or a password field has the focus.
    SecureInput& secureInput() override { return *secure_; }
    Caret& caret() override { return *accessible_; }
    GlobalShortcut& shortcut() override { return *shortcut_; }
    std::uint64_t focusedWindow() override { return front_->frontWindow(); }
    void refocus(std::uint64_t window, std::function<void(bool)> done) override {
        front_->refocus(static_cast<Window>(window), std::move(done));
    }
    void setOnClipboardChange(std::function<void()> changed) override;

private:
    X11Desktop() = default;

    std::string display_;
    OwnKeys own_;
    std::unique_ptr<X11Connection> typing_;
    std::unique_ptr<X11Connection> focus_;
    std::unique_ptr<X11Clipboard> clipboard_;
    std::unique_ptr<X11Typer> typer_;
    std::unique_ptr<X11FrontApplication> front_;
    std::unique_ptr<X11KeySource> keys_;
    std::unique_ptr<X11Executor> executor_;
    std::unique_ptr<X11Connection> grabWatch_;
    std::unique_ptr<X11SecureInput> grabs_;
    std::unique_ptr<AtSpiFocus> accessible_;
    std::unique_ptr<AnySecureInput> secure_;
    std::unique_ptr<X11Connection> shortcutConnection_;
    std::unique_ptr<X11GlobalShortcut> shortcut_;
};

} // namespace quillet
