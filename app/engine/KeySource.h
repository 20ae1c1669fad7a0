#pragma once

#include <string>

namespace quillet {

/// One key press the user made, as the keyboard engine needs to see it.
struct KeyEvent {
    /// The keys the engine treats specially; everything else is told apart by its text.
    enum class Key {
        other,     ///< any key not below; its text says what it typed
        modifier,  ///< Shift, Control, Alt, Super and the like pressed on their own
        backspace, ///< erases the character before the caret
        tab,
        escape,
        enter, ///< Return or keypad Enter; its text is "\r"
        left,
        right,
        up,
        down,
        home,
        end,
        pageUp,
        pageDown,
    };

    /// The modifiers held while the key went down.
    struct Modifiers {
        bool control = false;
        bool super = false; ///< Super, Windows or Command
        bool shift = false;
        bool alt = false; ///< Alt or Option; AltGr is a shifted level, not a modifier here

        bool operator==(const Modifiers&) const = default;
    };

    Key key = Key::other;
    /// What the key types with the current layout and modifiers (UTF-8); empty when it types
    /// nothing. Tab, line feed and carriage return count as text; other control characters do not.
    std::string text;
    Modifiers modifiers;
    /// The application has not received the key yet: the verdict decides whether it ever does.
    /// Always true for a source that can swallow keys; for one that cannot, true only for a key
    /// caught by a grab (see KeySource::grabTab).
    bool held = false;
};

/// What the engine wants done with a key the application has not received yet.
enum class Verdict {
    pass,    ///< deliver it to the application as if nobody had looked
    swallow, ///< drop it: the engine answers it by typing, which keys typed after it wait for
    drop,    ///< drop it: the engine has answered it and types nothing (the popup's keys)
};

/// The keyboard as the engine listens to it, in whatever application has the focus. A source
/// never reports the key events the engine's own Executor produces; telling them apart is the
/// platform's business, since only it knows how they were made. Events are delivered on the main
/// thread, one at a time.
class KeySource {
public:
    /// Receives what the source sees.
    class Observer {
    public:
        virtual ~Observer() = default;

        /// A key went down; the verdict matters only when the event is held.
        virtual Verdict key(const KeyEvent& event) = 0;
        /// A mouse button went down: the caret may have moved.
        virtual void click() = 0;
        /// Keys may have been missed (the listener restarted or the layout changed).
        virtual void reset() = 0;
    };

    virtual ~KeySource() = default;

    /// Starts delivering to observer; false, with error saying why, when the keyboard cannot be
    /// watched.
    virtual bool start(Observer& observer, std::string& error) = 0;

    /// Stops delivering; no event reaches the observer after this returns.
    virtual void stop() = 0;

    /// True when every key is held until the observer's verdict (an input method); false when
    /// keys reach the application as they are seen (X11), so only grabbed keys can be swallowed.
    virtual bool canSwallow() const = 0;

    /// Asks that plain Tab presses be held for a verdict (true) or left alone (false); a source
    /// that can swallow keys holds them anyway.
    virtual void grabTab(bool on) = 0;

    /// Asks that plain Escape presses be held for a verdict (true) or left alone (false).
    virtual void grabEscape(bool on) = 0;

    /// Asks that plain Return presses be held for a verdict (true) or left alone (false).
    virtual void grabReturn(bool on) = 0;

    /// Asks that plain Up and Down presses be held for a verdict (true) or left alone (false).
    virtual void grabArrows(bool on) = 0;
};

} // namespace quillet
