#include "platform/x11/X11Typer.h"

#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <algorithm>
#include <array>
#include <bit>
#include <thread>
#include <utility>
#include <xkbcommon/xkbcommon.h>

namespace quillet {
namespace {

using namespace std::string_view_literals;
using Clock = std::chrono::steady_clock;

// The modifiers modifiersHeld reports: what would turn a paste shortcut into another one.
constexpr unsigned heldModifiers = ShiftMask | ControlMask | Mod1Mask | Mod4Mask;

// Whether a key is down in a key vector as XQueryKeymap fills it.
bool isDown(const char (&keys)[32], unsigned keycode) {
    return (keys[keycode / 8] & (1 << (keycode % 8))) != 0;
}

// The code point starting at text[i], advancing i past it; nothing for a malformed sequence,
// of which only the first byte is skipped.
std::optional<char32_t> nextCodePoint(std::string_view text, std::size_t& i) {
    const auto lead = static_cast<unsigned char>(text[i++]);
    if (lead < 0x80) {
        return lead;
    }
    std::size_t extra = 0;
    char32_t c = 0;
    char32_t least = 0;
    if ((lead & 0xe0) == 0xc0) {
        extra = 1;
        c = lead & 0x1f;
        least = 0x80;
    } else if ((lead & 0xf0) == 0xe0) {
        extra = 2;
        c = lead & 0x0f;
        least = 0x800;
    } else if ((lead & 0xf8) == 0xf0) {
        extra = 3;
        c = lead & 0x07;
        least = 0x10000;
    } else {
        return std::nullopt;
    }
    if (i + extra > text.size()) {
        return std::nullopt;
    }
    for (std::size_t k = 0; k < extra; ++k) {
        const auto byte = static_cast<unsigned char>(text[i + k]);
        if ((byte & 0xc0) != 0x80) {
            return std::nullopt;
        }
        c = (c << 6) | (byte & 0x3f);
    }
    if (c < least || c > 0x10ffff || (c >= 0xd800 && c <= 0xdfff)) {
        return std::nullopt;
    }
    i += extra;
    return c;
}

// Characters typed as the keys that send them rather than as text.
KeySym controlKeysym(char32_t c) {
    switch (c) {
    case '\n':
    case '\r':
        return XK_Return;
    case '\t':
        return XK_Tab;
    case '\b':
        return XK_BackSpace;
    default:
        return NoSymbol;
    }
}

bool isLatin1(char32_t c) {
    return (c >= 0x20 && c <= 0x7e) || (c >= 0xa0 && c <= 0xff);
}

// The keysym a spare keycode gets for a character: Latin-1 keysyms are the code points
// themselves; every other character has the Unicode keysym.
KeySym keysymForCharacter(char32_t c) {
    return isLatin1(c) ? KeySym{c} : KeySym{0x01000000 + c};
}

// Keypad keysyms carry digits and operators too, but what they send depends on Num Lock.
bool isKeypad(KeySym keysym) {
    return keysym >= XK_KP_Space && keysym <= XK_KP_Equal;
}

// The group a key uses while the keyboard is in group, by the key's out-of-range rule.
int effectiveGroup(unsigned char groupInfo, int group) {
    const int count = groupInfo & 0x0f;
    if (group < count) {
        return group;
    }
    switch (groupInfo & 0xc0) {
    case XkbClampIntoRange:
        return count - 1;
    case XkbRedirectIntoRange: {
        const int target = (groupInfo >> 4) & 0x03;
        return target < count ? target : 0;
    }
    default:
        return group % count;
    }
}

const XkbAction* firstAction(XkbDescPtr keymap, KeyCode keycode) {
    if (keymap->server == nullptr || keymap->server->key_acts == nullptr ||
        keymap->server->key_acts[keycode] == 0) {
        return nullptr;
    }
    return &keymap->server->acts[keymap->server->key_acts[keycode]];
}

bool isModifierAction(const XkbAction& action) {
    return action.type == XkbSA_SetMods || action.type == XkbSA_LatchMods;
}

// The modifiers a key sets when pressed: its action's, or its modifier map entry's.
unsigned actionModifiers(XkbDescPtr keymap, KeyCode keycode) {
    const unsigned mapped = keymap->map->modmap != nullptr ? keymap->map->modmap[keycode] : 0;
    const XkbAction* action = firstAction(keymap, keycode);
    if (action == nullptr || !isModifierAction(*action)) {
        return mapped;
    }
    return (action->mods.flags & XkbSA_UseModMapMods) != 0 ? mapped : action->mods.mask;
}

bool isEmpty(XkbDescPtr keymap, KeyCode keycode) {
    const XkbSymMapRec& keys = keymap->map->key_sym_map[keycode];
    const int count = (keys.group_info & 0x0f) * keys.width;
    for (int i = 0; i < count; ++i) {
        if (keymap->map->syms[keys.offset + i] != NoSymbol) {
            return false;
        }
    }
    return true;
}

// True when the key's first group has keysym at some level.
bool holds(XkbDescPtr keymap, KeyCode keycode, KeySym keysym) {
    const XkbSymMapRec& keys = keymap->map->key_sym_map[keycode];
    if ((keys.group_info & 0x0f) == 0) {
        return false;
    }
    for (int level = 0; level < keys.width; ++level) {
        if (keymap->map->syms[keys.offset + level] == keysym) {
            return true;
        }
    }
    return false;
}

KeySym symbolAt(XkbDescPtr keymap, KeyCode keycode, int group, int level) {
    const XkbSymMapRec& keys = keymap->map->key_sym_map[keycode];
    if (group >= (keys.group_info & 0x0f) || level >= keys.width) {
        return NoSymbol;
    }
    return keymap->map->syms[keys.offset + group * keys.width + level];
}

// The keys of the US ANSI layout that type a character, by macOS virtual key code (0 to 50);
// their keysyms are the characters themselves.
constexpr std::string_view ansiCharacters =
    "asdfhgzxcv\0bqweryt123465=97-80]ou[ip\0lj'k;\\,/nm.\0 `"sv;
static_assert(ansiCharacters.size() == 51);

// The other keys template tokens can name, by macOS virtual key code.
constexpr std::array<std::pair<std::uint16_t, KeySym>, 26> namedKeys{
    {{36, XK_Return}, {48, XK_Tab},   {51, XK_BackSpace}, {53, XK_Escape},   {117, XK_Delete},
     {115, XK_Home},  {119, XK_End},  {116, XK_Prior},    {121, XK_Next},    {123, XK_Left},
     {124, XK_Right}, {125, XK_Down}, {126, XK_Up},       {76, XK_KP_Enter}, {122, XK_F1},
     {120, XK_F2},    {99, XK_F3},    {118, XK_F4},       {96, XK_F5},       {97, XK_F6},
     {98, XK_F7},     {100, XK_F8},   {101, XK_F9},       {109, XK_F10},     {103, XK_F11},
     {111, XK_F12}}};

} // namespace

X11Typer::X11Typer(X11Connection& connection, OwnKeys& own)
    : connection_(connection), display_(connection.display()), own_(own),
      alive_(std::make_shared<X11Typer*>(this)) {
    int opcode = 0;
    int errorBase = 0;
    int major = XkbMajorVersion;
    int minor = XkbMinorVersion;
    if (XkbQueryExtension(display_, &opcode, &xkbEventBase_, &errorBase, &major, &minor)) {
        const unsigned long events = XkbNewKeyboardNotifyMask | XkbMapNotifyMask;
        XkbSelectEvents(display_, XkbUseCoreKbd, events, events);
    } else {
        xkbEventBase_ = -1;
    }
    int eventBase = 0;
    xtest_ = XTestQueryExtension(display_, &eventBase, &errorBase, &major, &minor) != 0;
    reloadKeymap();
    connection_.watchWhileAlive(std::weak_ptr<X11Typer*>(alive_), &X11Typer::drainEvents);
}

X11Typer::~X11Typer() {
    alive_.reset();
    drainEvents();
    if (stale_) {
        reloadKeymap(); // drops spares someone else has rebound meanwhile
    }
    Clock::time_point lastUse{};
    for (const Spare& spare : spares_) {
        if (spare.bound != NoSymbol) {
            lastUse = std::max(lastUse, spare.used);
        }
    }
    if (Clock::now() < lastUse + rebindAfter) {
        XSync(display_, False);
        std::this_thread::sleep_until(lastUse + rebindAfter);
    }
    for (const Spare& spare : spares_) {
        if (spare.bound != NoSymbol && keymap_ != nullptr) {
            writeSpare(spare.keycode, NoSymbol);
        }
    }
    XSync(display_, False);
    if (keymap_ != nullptr) {
        XkbFreeKeyboard(keymap_, XkbAllComponentsMask, True);
    }
}

std::optional<KeySym> X11Typer::keysymFor(std::uint16_t macKeyCode) {
    if (macKeyCode < ansiCharacters.size() && ansiCharacters[macKeyCode] != '\0') {
        return KeySym{static_cast<unsigned char>(ansiCharacters[macKeyCode])};
    }
    for (const auto& [code, keysym] : namedKeys) {
        if (code == macKeyCode) {
            return keysym;
        }
    }
    return std::nullopt;
}

unsigned X11Typer::modifiersFor(std::uint64_t macMask) {
    unsigned out = 0;
    if ((macMask & (Tokens::commandMask | Tokens::controlMask)) != 0) {
        out |= ControlMask;
    }
    if ((macMask & Tokens::optionMask) != 0) {
        out |= Mod1Mask;
    }
    if ((macMask & Tokens::shiftMask) != 0) {
        out |= ShiftMask;
    }
    if ((macMask & Tokens::superMask) != 0) {
        out |= Mod4Mask;
    }
    return out;
}

bool X11Typer::press(const Tokens::KeyStroke& stroke) {
    const auto keysym = keysymFor(stroke.code);
    return keysym && tap(*keysym, modifiersFor(stroke.mask));
}

bool X11Typer::tap(KeySym keysym, unsigned modifiers, int times) {
    if (times <= 0) {
        return true;
    }
    const bool sent = strike(keysym, std::nullopt, modifiers, times);
    XFlush(display_);
    return sent;
}

bool X11Typer::type(std::string_view text) {
    bool all = true;
    for (std::size_t i = 0; i < text.size();) {
        const auto c = nextCodePoint(text, i);
        if (!c) {
            all = false;
            continue;
        }
        if (*c == '\r' && i < text.size() && text[i] == '\n') {
            continue; // one line break, typed for the '\n'
        }
        if (const KeySym control = controlKeysym(*c); control != NoSymbol) {
            all = strike(control, std::nullopt, 0, 1) && all;
        } else if (*c < 0x20 || (*c >= 0x7f && *c < 0xa0)) {
            all = false; // other control characters have no key
        } else {
            all = strike(keysymForCharacter(*c), *c, 0, 1) && all;
        }
    }
    XFlush(display_);
    return all;
}

bool X11Typer::modifiersHeld() {
    if (keyboard_) {
        return false;
    }
    drainEvents();
    if (stale_) {
        reloadKeymap();
    }
    if (keymap_ == nullptr) {
        return false;
    }
    char keys[32];
    XQueryKeymap(display_, keys);
    for (int keycode = keymap_->min_key_code; keycode <= keymap_->max_key_code; ++keycode) {
        if (isDown(keys, static_cast<unsigned>(keycode)) &&
            (modifiersOf(static_cast<KeyCode>(keycode)) & heldModifiers) != 0) {
            return true;
        }
    }
    return false;
}

void X11Typer::drainEvents() {
    while (XPending(display_) > 0) {
        XEvent event;
        XNextEvent(display_, &event);
        // Only keymap changes are selected on this connection; the group and modifiers are
        // read fresh for every key instead.
        if (event.type == MappingNotify) {
            XRefreshKeyboardMapping(&event.xmapping);
            stale_ = true;
        } else if (xkbEventBase_ >= 0 && event.type == xkbEventBase_) {
            stale_ = true;
        }
    }
}

void X11Typer::reloadKeymap() {
    XkbDescPtr fresh = XkbGetMap(display_, XkbAllClientInfoMask | XkbKeyActionsMask, XkbUseCoreKbd);
    if (fresh == nullptr || fresh->map == nullptr) {
        if (fresh != nullptr) {
            XkbFreeKeyboard(fresh, XkbAllComponentsMask, True);
        }
        return;
    }
    if (keymap_ != nullptr) {
        XkbFreeKeyboard(keymap_, XkbAllComponentsMask, True);
    }
    keymap_ = fresh;
    stale_ = false;
    indexGroup_ = -1;

    // For each modifier, the key that sets it: one whose action sets that modifier, or with no
    // actions at all, one the modifier map lists. A key with another action (Caps Lock's
    // LockMods, Mode_switch's SetGroup) would change more than the modifier.
    for (int bit = 0; bit < 8; ++bit) {
        modifierKeys_[bit] = 0;
        KeyCode plain = 0;
        for (int keycode = keymap_->min_key_code; keycode <= keymap_->max_key_code; ++keycode) {
            const auto key = static_cast<KeyCode>(keycode);
            if ((keymap_->map->modmap[key] & (1u << bit)) == 0) {
                continue;
            }
            const XkbAction* action = firstAction(keymap_, key);
            if (action == nullptr) {
                plain = plain != 0 ? plain : key;
            } else if (isModifierAction(*action) &&
                       (actionModifiers(keymap_, key) & (1u << bit)) != 0) {
                modifierKeys_[bit] = key;
                break;
            }
        }
        if (modifierKeys_[bit] == 0) {
            modifierKeys_[bit] = plain;
        }
    }
    adoptSpares();
}

unsigned X11Typer::stateDevice() const {
    return keyboard_ ? static_cast<unsigned>(keyboard_->masterId()) : XkbUseCoreKbd;
}

void X11Typer::adoptSpares() {
    // A spare someone else has bound meanwhile is theirs now: forget it without restoring it.
    // Ours may have gained the other case of a letter, which the server adds by itself.
    std::erase_if(spares_, [&](const Spare& spare) {
        return spare.bound == NoSymbol ? !isEmpty(keymap_, spare.keycode)
                                       : !holds(keymap_, spare.keycode, spare.bound);
    });
    // The highest empty keycodes first: no keyboard sends them.
    for (int keycode = keymap_->max_key_code;
         keycode >= keymap_->min_key_code && spares_.size() < spareCount; --keycode) {
        const auto key = static_cast<KeyCode>(keycode);
        const bool known = std::any_of(spares_.begin(), spares_.end(),
                                       [&](const Spare& spare) { return spare.keycode == key; });
        if (!known && isEmpty(keymap_, key) && keymap_->map->modmap[key] == 0) {
            spares_.push_back({key});
        }
    }
}

void X11Typer::buildIndex(int group, unsigned locked) {
    bySymbol_.clear();
    byCharacter_.clear();
    indexGroup_ = group;
    indexLocked_ = locked;
    for (int keycode = keymap_->min_key_code; keycode <= keymap_->max_key_code; ++keycode) {
        const auto key = static_cast<KeyCode>(keycode);
        const XkbSymMapRec& keys = keymap_->map->key_sym_map[key];
        if ((keys.group_info & 0x0f) == 0) {
            continue;
        }
        const int g = effectiveGroup(keys.group_info, group);
        const XkbKeyTypeRec& type = keymap_->map->types[keys.kt_index[g]];
        for (int level = 0; level < type.num_levels; ++level) {
            const KeySym keysym = symbolAt(keymap_, key, g, level);
            if (keysym == NoSymbol) {
                continue;
            }
            bySymbol_[keysym].push_back({key, g, level});
            const char32_t c = xkb_keysym_to_utf32(static_cast<xkb_keysym_t>(keysym));
            if (c >= 0x20 && c != 0x7f && !isKeypad(keysym)) {
                byCharacter_[c].push_back({key, g, level});
            }
        }
    }
}

XkbStateRec X11Typer::refreshState() {
    drainEvents();
    if (stale_ || keymap_ == nullptr) {
        reloadKeymap();
    }
    XkbStateRec state{};
    XkbGetState(display_, stateDevice(), &state);
    if (keymap_ != nullptr && (state.group != indexGroup_ || state.locked_mods != indexLocked_)) {
        buildIndex(state.group, state.locked_mods);
    }
    return state;
}

std::optional<unsigned> X11Typer::levelModifiers(const Place& place, unsigned locked) const {
    const XkbSymMapRec& keys = keymap_->map->key_sym_map[place.keycode];
    const XkbKeyTypeRec& type = keymap_->map->types[keys.kt_index[place.group]];
    const auto levelFor = [&](unsigned mods) {
        mods &= type.mods.mask;
        for (int i = 0; i < type.map_count; ++i) {
            if (type.map[i].active && type.map[i].mods.mask == mods) {
                return static_cast<int>(type.map[i].level);
            }
        }
        return 0;
    };
    // Where the type leaves Caps Lock alone, applications capitalise what the key gives.
    if ((locked & LockMask) != 0 && (type.mods.mask & LockMask) == 0) {
        const KeySym keysym = symbolAt(keymap_, place.keycode, place.group, place.level);
        KeySym lower = NoSymbol;
        KeySym upper = NoSymbol;
        XConvertCase(keysym, &lower, &upper);
        if (keysym != upper) {
            return std::nullopt;
        }
    }
    // The level is reached with no modifiers or with those of one of the type's entries;
    // locked modifiers count too, so a letter may need Shift to stay lower case.
    std::optional<unsigned> best;
    const auto consider = [&](unsigned mods) {
        if (levelFor(mods | locked) != place.level) {
            return;
        }
        const unsigned extra = mods & ~locked;
        for (int bit = 0; bit < 8; ++bit) {
            if ((extra & (1u << bit)) != 0 && modifierKeys_[bit] == 0) {
                return;
            }
        }
        if (!best || std::popcount(extra) < std::popcount(*best)) {
            best = extra;
        }
    };
    consider(0);
    for (int i = 0; i < type.map_count; ++i) {
        if (type.map[i].active) {
            consider(type.map[i].mods.mask);
        }
    }
    return best;
}

bool X11Typer::strike(KeySym keysym, std::optional<char32_t> character, unsigned modifiers,
                      int times) {
    if (!xtest_ || keysym == NoSymbol) {
        return false;
    }
    XkbStateRec state = refreshState();
    if (keymap_ == nullptr) {
        return false;
    }
    // A key the user still holds is down on the master too, where another press of it would be
    // taken for the key's repeat and dropped: the character comes from another key then, a
    // spare one if need be.
    char down[32] = {};
    if (keyboard_) {
        XQueryKeymap(display_, down);
    }
    // The place needing the fewest extra modifiers; the layout's own keys before spares.
    const auto choose = [&](KeyCode& keycode, unsigned& extra) {
        const std::vector<Place>* places =
            character ? findCharacter(*character) : findSymbol(keysym);
        if (places == nullptr) {
            return false;
        }
        std::optional<unsigned> best;
        for (const Place& place : *places) {
            if (isDown(down, place.keycode)) {
                continue;
            }
            // A key stroke is pressed as the user would press it, Caps Lock or not; text must
            // come out as it is.
            const auto mods = levelModifiers(place, character ? state.locked_mods : 0);
            if (mods && (!best || std::popcount(*mods) < std::popcount(*best))) {
                best = mods;
                keycode = place.keycode;
            }
        }
        if (best) {
            extra = *best;
        }
        return best.has_value();
    };
    KeyCode keycode = 0;
    unsigned extra = 0;
    if (!choose(keycode, extra)) {
        if (!bindSpare(keysym)) {
            return false;
        }
        state = refreshState();
        if (!choose(keycode, extra)) {
            return false;
        }
    }
    const unsigned wanted = modifiers | extra;
    for (int bit = 0; bit < 8; ++bit) {
        const unsigned mask = 1u << bit;
        if ((wanted & mask) != 0 && modifierKeys_[bit] == 0 && (state.base_mods & mask) == 0) {
            return false; // a modifier no key sets: the key would mean something else
        }
    }
    for (int i = 0; i < times; ++i) {
        if (i > 0) {
            XkbGetState(display_, stateDevice(), &state);
        }
        strokeOnce(keycode, wanted, state);
    }
    return true;
}

void X11Typer::strokeOnce(KeyCode keycode, unsigned wanted, const XkbStateRec& state) {
    const std::vector<KeyCode> released = releaseUnwanted(state, wanted);
    // Modifiers the user already holds stay as they are; the others are pressed just for the
    // key. Pressing a held one again would leave it up afterwards.
    std::vector<KeyCode> pressed;
    for (int bit = 0; bit < 8; ++bit) {
        const unsigned mask = 1u << bit;
        const KeyCode key = modifierKeys_[bit];
        if ((wanted & mask) != 0 && (state.base_mods & mask) == 0 &&
            std::find(pressed.begin(), pressed.end(), key) == pressed.end()) {
            send(key, true);
            pressed.push_back(key);
        }
    }
    send(keycode, true);
    send(keycode, false);
    for (auto it = pressed.rbegin(); it != pressed.rend(); ++it) {
        send(*it, false);
    }
    for (KeyCode key : released) {
        send(key, true);
    }
    for (Spare& spare : spares_) {
        if (spare.keycode == keycode) {
            spare.used = Clock::now();
        }
    }
}

bool X11Typer::bindSpare(KeySym keysym) {
    if (spares_.empty()) {
        return false;
    }
    // A free spare, else the one left alone longest.
    auto spare = std::find_if(spares_.begin(), spares_.end(),
                              [](const Spare& s) { return s.bound == NoSymbol; });
    if (spare == spares_.end()) {
        spare = std::min_element(spares_.begin(), spares_.end(),
                                 [](const Spare& a, const Spare& b) { return a.used < b.used; });
        if (Clock::now() < spare->used + rebindAfter) {
            // Hand the earlier presses to the applications before waiting for them to read.
            XSync(display_, False);
            std::this_thread::sleep_until(spare->used + rebindAfter);
        }
    }
    if (!writeSpare(spare->keycode, keysym)) {
        return false;
    }
    spare->bound = keysym;
    spare->used = Clock::now();
    // Read back what the server made of it; the round trip also orders the change before the
    // key.
    stale_ = true;
    return true;
}

bool X11Typer::writeSpare(KeyCode keycode, KeySym keysym) {
    // Both levels of the ALPHABETIC type: it takes Shift and Caps Lock in, so applications
    // neither shift nor capitalise the character (which a one-level key would get under
    // Caps Lock, ß becoming ẞ).
    if (keysym == NoSymbol) {
        XkbChangeTypesOfKey(keymap_, keycode, 0, XkbGroup1Mask, nullptr, nullptr);
    } else {
        int types[XkbNumKbdGroups] = {XkbAlphabeticIndex};
        KeySym* syms = nullptr;
        if (XkbChangeTypesOfKey(keymap_, keycode, 1, XkbGroup1Mask, types, nullptr) != Success ||
            (syms = XkbResizeKeySyms(keymap_, keycode, 2)) == nullptr) {
            return false;
        }
        syms[0] = keysym;
        syms[1] = keysym;
    }
    XkbMapChangesRec changes{};
    changes.changed = XkbKeySymsMask;
    changes.first_key_sym = keycode;
    changes.num_key_syms = 1;
    own_.expectMappingChange();
    return XkbChangeMap(display_, keymap_, &changes) != 0;
}

std::vector<KeyCode> X11Typer::releaseUnwanted(const XkbStateRec& state, unsigned wanted) {
    std::vector<KeyCode> released;
    const unsigned unwanted = state.base_mods & ~wanted;
    if (unwanted != 0) {
        // On the master keyboard the user's keys go down again after the key: their release,
        // should the user let go meanwhile, is held and follows. Through XTEST's keyboard
        // they are released for good, since pressing them again could leave a modifier stuck
        // down if the user lets go in between.
        char keys[32];
        XQueryKeymap(display_, keys);
        for (int keycode = keymap_->min_key_code; keycode <= keymap_->max_key_code; ++keycode) {
            const auto key = static_cast<KeyCode>(keycode);
            if (isDown(keys, static_cast<unsigned>(keycode)) &&
                (modifiersOf(key) & unwanted) != 0) {
                send(key, false);
                if (keyboard_) {
                    released.push_back(key);
                }
            }
        }
    }
    if ((state.latched_mods & ~wanted) != 0) {
        XkbLatchModifiers(display_, stateDevice(), state.latched_mods & ~wanted, 0);
    }
    return released;
}

void X11Typer::send(KeyCode keycode, bool press) {
    own_.expect(keycode, press);
    if (keyboard_) {
        XTestFakeDeviceKeyEvent(display_, keyboard_->device(), keycode, press ? True : False,
                                nullptr, 0, CurrentTime);
    } else {
        XTestFakeKeyEvent(display_, keycode, press ? True : False, CurrentTime);
    }
}

unsigned X11Typer::modifiersOf(KeyCode keycode) const {
    return keymap_->map->modmap[keycode] | actionModifiers(keymap_, keycode);
}

const std::vector<X11Typer::Place>* X11Typer::findSymbol(KeySym keysym) const {
    const auto it = bySymbol_.find(keysym);
    return it == bySymbol_.end() ? nullptr : &it->second;
}

const std::vector<X11Typer::Place>* X11Typer::findCharacter(char32_t c) const {
    const auto it = byCharacter_.find(c);
    return it == byCharacter_.end() ? nullptr : &it->second;
}

} // namespace quillet
