#pragma once

#include "platform/Desktop.h"
#include "platform/x11/OwnKeys.h"
#include "platform/x11/X11Clipboard.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Executor.h"
#include "platform/x11/X11FrontApplication.h"
#include "platform/x11/X11KeySource.h"
#include "platform/x11/X11Typer.h"

#include <memory>
#include <string>

namespace quillet {

/// The X11 session: RECORD and XTEST share what Quillet types through OwnKeys, and the executor
/// pastes through Quillet's own CLIPBOARD selection.
class X11Desktop final : public Desktop {
public:
    /// Connects to display; null, with error, when the server cannot be used.
    static std::unique_ptr<X11Desktop> open(const std::string& display, Scheduler& scheduler,
                                            const Preferences& preferences, std::string& error);
    ~X11Desktop() override;

    std::string describe() const override { return "x11 on display " + display_; }
    KeySource& keys() override { return *keys_; }
    Executor& executor() override { return *executor_; }
    FrontApplication& front() override { return *front_; }
    Pasteboard& pasteboard() override { return *clipboard_; }
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
};

} // namespace quillet
