#pragma once

#include "engine/KeySource.h"
#include "library/Scheduler.h"
#include "platform/x11/OwnKeys.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <vector>

struct xkb_context;
struct xkb_keymap;
struct xkb_state;
struct xkb_compose_table;
struct xkb_compose_state;

namespace quillet {

class X11Connection;

/// The keyboard on an X server, heard through the RECORD extension. Every key press of every
/// client arrives on a dedicated data connection, in server order with the requests that change
/// the keyboard mapping, and is decoded with xkbcommon from the server's keymap. A second, control
/// connection fetches the keymap, holds the Tab, Escape and Return grabs and sends the keys a
/// verdict lets through. Everything runs on the scheduler's main thread. An observer may stop the
/// source from inside a call, but must not destroy it there.
class X11KeySource final : public KeySource {
public:
    /// A listener on display (empty: $DISPLAY) that leaves out the events own announces.
    X11KeySource(std::string display, Scheduler& scheduler, OwnKeys& own);
    /// Stops.
    ~X11KeySource() override;
    X11KeySource(const X11KeySource&) = delete;
    X11KeySource& operator=(const X11KeySource&) = delete;

    /// Opens the connections and starts recording; false when the display or RECORD is missing.
    bool start(Observer& observer, std::string& error) override;
    /// Ends the recording, the grabs and any hold, and closes the connections.
    void stop() override;
    /// False: X11 delivers a key before anyone has looked at it.
    bool canSwallow() const override { return false; }
    /// Grabs plain Tab on the root window, whatever locks are on, or lets it go.
    void grabTab(bool on) override;
    /// Grabs plain Escape on the root window, whatever locks are on, or lets it go.
    void grabEscape(bool on) override;
    /// Grabs plain Return on the root window, whatever locks are on, or lets it go.
    void grabReturn(bool on) override;
    void grabArrows(bool on) override;

    /// Keeps the user's keys from the applications while on (an expansion is being typed); they
    /// are reported as held and the ones let through are replayed when it ends. Every slave
    /// keyboard is held, XTEST's virtual one included, once setTypingKeyboard named the master
    /// Quillet types on; before, only the physical ones. Does nothing without XInput2 or when
    /// none can be grabbed.
    void holdKeyboard(bool on);

    /// Names the master keyboard Quillet types on directly, which the held keys are replayed on
    /// with the modifiers they were typed with.
    void setTypingKeyboard(int master) { master_ = master; }

    /// How many times a key has turned a grab of Tab or Escape active so far, counting every key
    /// the server sent until this call: how a grab watcher tells Quillet's grabs from others'.
    std::uint64_t grabsActivated();

private:
    struct XkbDeleter {
        void operator()(xkb_context* context) const;
        void operator()(xkb_keymap* keymap) const;
        void operator()(xkb_state* state) const;
        void operator()(xkb_compose_table* table) const;
        void operator()(xkb_compose_state* state) const;
    };

    // A key caught by a passive grab on the root window while it is wanted.
    struct Grab {
        unsigned long keysym;
        bool wanted = false;
        unsigned keycode = 0; // grabbed now; 0 when not
    };

    // A key press that reached the control connection instead of the application.
    struct Caught {
        unsigned keycode;
        unsigned long time;
    };

    // A physical key event kept back while the keyboard is held.
    struct Queued {
        unsigned keycode;
        bool press;
        unsigned mods = 0;    // a press's effective modifiers on the user's keyboard
        unsigned group = 0;   // and its layout
        bool barrier = false; // a swallowed key began another expansion: what follows waits
    };

    friend struct RecordCallback;
    void recorded(int category, const unsigned char* data, std::size_t size);
    void keyEvent(unsigned keycode, bool press, unsigned state, unsigned long time);
    void mappingChanged();
    bool loadKeymap();
    void findModifiers();
    KeyEvent decode(xkb_state* state, unsigned keycode) const;
    void loadCompose();
    void compose(KeyEvent& event, xkb_state* state, unsigned keycode);
    void syncState(unsigned state);
    void readControl();
    void readHold();
    bool replayQueued(bool announce);
    void heldKey(unsigned keycode, bool press, unsigned mods, unsigned group);
    bool wasCaught(unsigned keycode, unsigned long time);
    bool grabMayCatch() const;
    void applyGrab(Grab& grab);
    void releaseGrab(Grab& grab);
    unsigned keycodeFor(unsigned long keysym) const;
    void deliver(unsigned keycode);
    void releaseHold(bool announce);
    void readSoon();
    bool awaitRecording(bool on);
    void closeConnections();

    std::string displayName_;
    Scheduler& scheduler_;
    OwnKeys& own_;
    Observer* observer_ = nullptr;

    std::unique_ptr<X11Connection> control_;
    std::unique_ptr<X11Connection> data_;
    std::unique_ptr<X11Connection> hold_; // XInput2 grabs, opened on first use
    unsigned long context_ = 0;           // the RECORD context
    int xkbOpcode_ = 0;
    bool xtest_ = false;
    bool recording_ = false;               // RECORD has said StartOfData and not EndOfData
    int dispatching_ = 0;                  // depth of callbacks that may reach the observer
    std::shared_ptr<X11KeySource*> alive_; // how RECORD and the handlers reach this source

    std::unique_ptr<xkb_context, XkbDeleter> xkb_;
    std::unique_ptr<xkb_keymap, XkbDeleter> keymap_;
    std::unique_ptr<xkb_state, XkbDeleter> state_;
    // Dead keys and Compose sequences, as the user's locale and ~/.XCompose define them.
    std::unique_ptr<xkb_compose_table, XkbDeleter> composeTable_;
    std::unique_ptr<xkb_compose_state, XkbDeleter> compose_;
    std::set<unsigned> down_; // keys the server has down, as recorded
    unsigned altMask_ = 0;
    unsigned superMask_ = 0;
    unsigned numLockMask_ = 0;
    unsigned scrollLockMask_ = 0;

    Grab tab_;
    Grab escape_;
    Grab return_;
    Grab upArrow_;
    Grab downArrow_;
    std::array<Grab*, 5> grabs() { return {&tab_, &escape_, &return_, &upArrow_, &downArrow_}; }
    std::deque<Caught> caught_;
    unsigned grabHolder_ = 0;       // the key whose press turned a passive grab into an active one
    unsigned activeKey_ = 0;        // the same, as the control connection's events tell it
    std::uint64_t activations_ = 0; // presses that turned a passive grab into an active one

    bool holding_ = false;
    bool holdCaught_ = false; // a press reached this hold's grabs
    int master_ = -1;         // the master keyboard Quillet types on; -1: XTEST's virtual keyboard
    int xiOpcode_ = -1;
    std::set<int> heldDevices_;
    std::deque<Queued> queued_;
    std::set<unsigned> swallowed_;   // held presses swallowed, whose releases are dropped too
    std::set<unsigned> heldPresses_; // keys pressed during this hold
    std::vector<unsigned> earlierReleases_; // releases of keys pressed before it
    std::uint64_t holdGeneration_ = 0;      // which hold a safety release belongs to
};

} // namespace quillet
