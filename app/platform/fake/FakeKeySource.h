#pragma once

#include "engine/KeySource.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// A keyboard driven by the test. It holds keys the way a platform would: every key when it can
/// swallow (an input method), else only plain Tab and Escape while they are grabbed (X11).
class FakeKeySource final : public KeySource {
public:
    /// A keyboard that swallows keys (swallows) or lets them through as X11 does.
    explicit FakeKeySource(bool swallows = false) : swallows_(swallows) {}

    bool start(Observer& observer, std::string& error) override {
        if (refusal) {
            error = *refusal;
            return false;
        }
        observer_ = &observer;
        return true;
    }

    void stop() override { observer_ = nullptr; }

    bool canSwallow() const override { return swallows_; }

    void grabTab(bool on) override {
        tabGrabbed = on;
        grabs.push_back(on ? "grab tab" : "release tab");
    }

    void grabReturn(bool on) override {
        returnGrabbed = on;
        grabs.push_back(on ? "grab return" : "release return");
    }
    void grabArrows(bool on) override {
        arrowsGrabbed = on;
        grabs.push_back(on ? "grab arrows" : "release arrows");
    }
    void grabEscape(bool on) override {
        escapeGrabbed = on;
        grabs.push_back(on ? "grab escape" : "release escape");
    }

    /// Presses a key; held is worked out as the platform would. Nothing when not started.
    std::optional<Verdict> press(KeyEvent event) {
        const auto& m = event.modifiers;
        const bool bare = !m.control && !m.super && !m.alt && !m.shift;
        event.held =
            swallows_ || (holding && holding()) ||
            (bare && ((event.key == KeyEvent::Key::tab && tabGrabbed) ||
                      (event.key == KeyEvent::Key::escape && escapeGrabbed) ||
                      (event.key == KeyEvent::Key::enter && returnGrabbed) ||
                      ((event.key == KeyEvent::Key::up || event.key == KeyEvent::Key::down) &&
                       arrowsGrabbed)));
        if (observer_ == nullptr) {
            return std::nullopt;
        }
        verdicts.push_back(observer_->key(event));
        return verdicts.back();
    }

    /// Presses one key by kind, with its usual text.
    std::optional<Verdict> press(KeyEvent::Key key, KeyEvent::Modifiers modifiers = {}) {
        KeyEvent event;
        event.key = key;
        event.modifiers = modifiers;
        if (key == KeyEvent::Key::tab) {
            event.text = "\t";
        } else if (key == KeyEvent::Key::enter) {
            event.text = "\r";
        } else if (key == KeyEvent::Key::escape) {
            event.text = "\x1b";
        }
        return press(std::move(event));
    }

    /// Types text one code point per key; "\t" is Tab, "\r" Return, "\b" Backspace and "\x1b"
    /// Escape. Answers the verdict of the last key.
    std::optional<Verdict> type(std::string_view text, KeyEvent::Modifiers modifiers = {}) {
        std::optional<Verdict> last;
        for (std::size_t i = 0; i < text.size();) {
            const auto lead = static_cast<unsigned char>(text[i]);
            const std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
            const std::string_view character = text.substr(i, size);
            i += size;
            if (character == "\t") {
                last = press(KeyEvent::Key::tab, modifiers);
            } else if (character == "\r") {
                last = press(KeyEvent::Key::enter, modifiers);
            } else if (character == "\b") {
                last = press(KeyEvent::Key::backspace, modifiers);
            } else if (character == "\x1b") {
                last = press(KeyEvent::Key::escape, modifiers);
            } else {
                last = press(KeyEvent{KeyEvent::Key::other, std::string(character), modifiers});
            }
        }
        return last;
    }

    /// A mouse button goes down.
    void click() {
        if (observer_ != nullptr) {
            observer_->click();
        }
    }

    /// The listener lost track of the keyboard.
    void reset() {
        if (observer_ != nullptr) {
            observer_->reset();
        }
    }

    /// True while started.
    bool started() const { return observer_ != nullptr; }

    /// True while an expansion holds the keyboard (see FakeExecutor::holding).
    std::function<bool()> holding;
    /// When set, start() fails with this reason.
    std::optional<std::string> refusal;
    bool tabGrabbed = false;
    bool escapeGrabbed = false;
    bool returnGrabbed = false;
    bool arrowsGrabbed = false;
    /// Every grab and release asked for, in order: "grab tab", "release escape"...
    std::vector<std::string> grabs;
    /// The verdict on every key pressed, in order.
    std::vector<Verdict> verdicts;

private:
    bool swallows_;
    Observer* observer_ = nullptr;
};

} // namespace quillet
