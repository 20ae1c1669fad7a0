#pragma once

#include <X11/Xlib.h>
#include <vector>

namespace quillet {

/// Every combination of the lock modifiers (Caps Lock, and Num Lock and Scroll Lock where their
/// masks are not 0), so that a passive grab holds whatever locks are on.
inline std::vector<unsigned> lockCombinations(unsigned numLock, unsigned scrollLock) {
    std::vector<unsigned> masks{0};
    for (unsigned lock : {static_cast<unsigned>(LockMask), numLock, scrollLock}) {
        if (lock == 0) {
            continue;
        }
        const std::size_t n = masks.size();
        for (std::size_t i = 0; i < n; ++i) {
            if ((masks[i] & lock) == 0) {
                masks.push_back(masks[i] | lock);
            }
        }
    }
    return masks;
}

/// The modifier mask the key producing keysym is mapped to (Num Lock's is usually Mod2); 0 when
/// it is on none.
inline unsigned modifierMaskOf(Display* display, KeySym keysym) {
    const KeyCode keycode = XKeysymToKeycode(display, keysym);
    XModifierKeymap* map = XGetModifierMapping(display);
    unsigned mask = 0;
    for (int modifier = 0; map != nullptr && keycode != 0 && modifier < 8; ++modifier) {
        for (int i = 0; i < map->max_keypermod; ++i) {
            if (map->modifiermap[modifier * map->max_keypermod + i] == keycode) {
                mask |= 1U << modifier;
            }
        }
    }
    if (map != nullptr) {
        XFreeModifiermap(map);
    }
    return mask;
}

} // namespace quillet
