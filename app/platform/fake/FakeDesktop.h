#pragma once

#include "platform/Desktop.h"
#include "platform/fake/FakeCaret.h"
#include "platform/fake/FakeExecutor.h"
#include "platform/fake/FakeFrontApplication.h"
#include "platform/fake/FakeGlobalShortcut.h"
#include "platform/fake/FakeKeySource.h"
#include "platform/fake/FakePasteboard.h"
#include "platform/fake/FakeSecureInput.h"

namespace quillet {

/// A desktop session made of the fakes, for tests of what sits on top of a backend.
class FakeDesktop final : public Desktop {
public:
    std::string describe() const override { return "fake"; }
    KeySource& keys() override { return keys_; }
    Executor& executor() override { return executor_; }
    FrontApplication& front() override { return front_; }
    Pasteboard& pasteboard() override { return pasteboard_; }
    SecureInput& secureInput() override { return secure_; }
    Caret& caret() override { return caret_; }
    GlobalShortcut& shortcut() override { return shortcut_; }
    std::uint64_t focusedWindow() override { return 1; }
    void refocus(std::uint64_t, std::function<void(bool)> done) override { done(refocusWorks); }
    void setOnClipboardChange(std::function<void()> changed) override {
        clipboardChanged_ = std::move(changed);
    }

    FakeKeySource keys_;
    FakeExecutor executor_;
    FakeFrontApplication front_{"Gedit"};
    FakePasteboard pasteboard_;
    FakeSecureInput secure_;
    FakeCaret caret_;
    FakeGlobalShortcut shortcut_;
    bool refocusWorks = true;

private:
    std::function<void()> clipboardChanged_;
};

} // namespace quillet
